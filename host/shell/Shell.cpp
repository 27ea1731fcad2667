// SPDX-License-Identifier: Apache-2.0
#include "host/shell/Shell.h"

#include <algorithm>
#include <istream>
#include <iterator>
#include <optional>
#include <ostream>
#include <utility>

#include "framework/log/LogService.h"
#include "host/commands/Commands.h"
#include "host/commands/Doubts.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/shell/Interrupt.h"
#include "host/shell/Progress.h"
#include "host/shell/WhatIf.h"

namespace Host {

namespace {

constexpr std::string_view kLoad = "load";

}  // namespace

std::string versionText() {
  return "BfnMacRewrite " HOST_VERSION;
}

Shell::Shell(Switch& host, std::ostream& out, ShellOptions const& options)
    : host_(host), out_(out), options_(options), changes_(host), slicedShow_(host) {
  for (auto* const commands : {operatorCommands, hostCommands}) {
    CommandGroup group = commands(host);
    addDoubts(group, host);
    table_.add(std::move(group));
  }
  table_.add(traceCommands());
  table_.add(changeCommands(changes_,
                            [this](std::string const& name) { return readConfiguration(name); }));
  table_.add(sliceCommands(slicedShow_));
  table_.add(chipCommands(host));
  table_.add(packetCommands(host, [this](std::string const& name) { return inputPath(name); }));
  table_.add(lookCommands(host));
  table_.add(explainCommands(host));
  table_.add(rewriteCommands(host));
  table_.add(scaleCommands());
  table_.add(whatIfCommands(*this));
  addLanguage();
  takeLog();
}

void Shell::takeLog() {
  Kiv::LogService::reset();
  Kiv::LogService::clockIs([clock = host_.clock] { return clock->now(); });
  Kiv::LogService::sinkIs([this](Kiv::LogMessage const& message) {
    if (options_.json) {
      out_ << jsonText({{"log", Kiv::toString(message)}}) << '\n';
    } else {
      out_ << "log: " << Kiv::toString(message) << '\n';
    }
    out_.flush();
  });
}

Shell::~Shell() {
  Kiv::LogService::clockIs({});
  Kiv::LogService::sinkIs({});
}

template <class F>
Shell::Status Shell::guarded(std::ostream& err, F const& run) {
  err_ = &err;
  firstFailure_ = Done;
  try {
    run();
    flush();
  } catch (Failure const& failure) {
    report(failure);
  }
  return firstFailure_;
}

void Shell::report(Failure const& failure) {
  if (firstFailure_ == Done) firstFailure_ = failure.status;
  for (LineError const& error : failure.errors) {
    if (options_.json) out_ << jsonText(error.json()) << '\n';
    out_.flush();
    *err_ << error.text << '\n' << (options_.carets ? error.caret : "") << std::flush;
  }
}

void Shell::warn(Doubt const& doubt) {
  std::string const text =
      place_.name + ':' + std::to_string(place_.line) + ": warning: " + doubt.text;
  if (options_.json) {
    out_ << jsonText({{"file", place_.name}, {"line", place_.line}, {"warning", text}}) << '\n';
  }
  out_.flush();
  *err_ << text << '\n';
  if (options_.carets && doubt.word) *err_ << caretAt(source_, *doubt.word);
  err_->flush();
}

Shell::Status Shell::runFile(std::filesystem::path const& file, std::ostream& err) {
  return guarded(err, [&] {
    try {
      FileLines lines(file, false);
      size_t commands = 0;
      readLines(lines, {file.string(), file.parent_path(), 0}, commands);
    } catch (InputError const& error) {
      throw Failure(BadInput, LineError(file.string() + ": error: " + error.what()));
    }
  });
}

Shell::Status Shell::runStream(std::istream& in, std::string const& name, std::ostream& err) {
  return guarded(err, [&] {
    FileLines lines(in);
    size_t commands = 0;
    readLines(lines, {name, {}, 0}, commands);
  });
}

Shell::Status Shell::runLine(std::string_view line, std::ostream& err) {
  place_ = {"prompt", {}, place_.line + 1, true};
  return guarded(err, [&] {
    located(line, [&] { return carryOut(pipeline_.expanded(wordsOf(line).value()), line); });
  });
}

std::optional<double> Shell::runDue() {
  unattended([this] { changes_.handleTime(); });
  return changes_.realTimeLeft();
}

void Shell::takeBack() {
  unattended([this] { changes_.expire(); });
}

template <class F>
void Shell::unattended(F const& run) {
  if (!changes_.hasWindow()) return;
  try {
    run();
  } catch (std::exception const& exception) {
    out_ << "exception: " << exception.what() << std::endl;
  }
  host_.turnEnds();
}

Shell::Inside::Inside(Shell& shell, Place const& place)
    : shell_(shell), outer_(shell.place_), variables_(shell.variables_) {
  // What a file means does not depend on what was typed before it.
  if (outer_.typed) shell.variables_ = {};
  shell.place_ = place;
  ++shell.depth_;
}

Shell::Inside::~Inside() {
  --shell_.depth_;
  shell_.place_ = outer_;
  shell_.variables_ = std::move(variables_);
}

void Shell::readLines(FileLines& lines, Place const& place, size_t& commands) {
  Inside const inside(*this, place);
  Progress progress(lines.size(), Progress::terminal());
  std::string line;
  while (!exited_ && lines.next(line)) {
    ++place_.line;
    if (Interrupt::requested()) {
      throw Failure(BadInput, errorHere("interrupted before this line"));
    }
    progress.add(line.size() + 1);
    try {
      if (located(line, [&] { return carryOut(wordsOf(line).value(), line); })) ++commands;
    } catch (Failure const& failure) {
      if (!options_.keepGoing) throw;
      report(failure);
    }
  }
}

void Shell::flush() {
  if (!out_.flush()) throw Failure(BadInput, LineError("error: the output cannot be written"));
}

template <class F>
bool Shell::located(std::string_view line, F const& run) {
  source_ = line;
  try {
    return run();
  } catch (InputError const& error) {
    throw Failure(BadInput, LineError(place_.name, place_.line, line, error));
  }
}

LineError Shell::errorHere(std::string const& what) const {
  LineError error(place_.name + ':' + std::to_string(place_.line) + ": " + what);
  error.file = place_.name;
  error.line = place_.line;
  return error;
}

std::optional<std::vector<std::string>> Shell::wordsOf(std::string_view line) const {
  if (variables_.empty() && line.find("expect") == std::string_view::npos) return splitWords(line);
  return variables_.replacedIn(lineWords(line));
}

std::string Shell::recordedLine(std::vector<std::string> words) const {
  // These name no files, and there are many of them.
  constexpr std::string_view kWithoutFiles[] = {"vxlan", "no", "host", "chip"};
  if (place_.folder.empty() ||
      std::ranges::find(kWithoutFiles, words[0]) != std::end(kWithoutFiles)) {
    return lineOf(words);
  }
  for (size_t at = 1; at < words.size() && words[at - 1] != "save"; ++at) {
    auto const places = pipeline_.next(std::span(words).first(at));
    bool const reads = std::ranges::any_of(places, [](CommandTable::Next const& next) {
      return next.completion.slot == "FILE" || next.completion.slot == "IN.pcap";
    });
    std::error_code error;
    std::filesystem::path const file = place_.folder / words[at];
    // The saved line is not read in the folder of this file.
    if (reads && std::filesystem::is_regular_file(file, error)) {
      words[at] = std::filesystem::absolute(file).lexically_normal().string();
    }
  }
  return lineOf(words);
}

bool Shell::carryOut(std::vector<std::string> const& words, std::string_view line) {
  if (words.empty()) return false;
  Prepared const prepared = prepare(words);
  words_ = words;
  bool const recorded = recorder_.line && words[0] != kLoad;
  if (recorded) recorder_.line(recordedLine(words));
  // With JSON answers, the line is in its answer.
  if (options_.echo && !options_.json) out_ << "> " << line << '\n';
  try {
    print(run(prepared), line);
  } catch (...) {
    if (recorded) recorder_.refused();
    throw;
  }
  return true;
}

Shell::Prepared Shell::prepare(std::span<std::string const> words) const {
  size_t const count = pipeline_.commandWords(words);
  auto filters = readingFrom(count, [&] { return pipeline_.stages(words.subspan(count)); });
  return {table_.find(words.subspan(0, count)), std::move(filters)};
}

Answer Shell::run(Prepared const& prepared) {
  flush();
  Answer answer = answerOf(*prepared.found.command, prepared.found.arguments);
  return prepared.filters.empty() ? answer : pipeline_.apply(prepared.filters, std::move(answer));
}

Answer Shell::answerOf(Command const& command, Arguments const& arguments) {
  if (command.doubts && (place_.typed || options_.warn || options_.strict)) {
    // The command may be a part of the line.
    auto const before = static_cast<size_t>(arguments.words.data() - words_.data());
    for (Doubt& doubt : command.doubts(arguments)) {
      if (options_.strict) throw InputError(doubt.text, {doubt.word, {}, {}, {}});
      if (doubt.word) *doubt.word += before;
      warn(doubt);
    }
  }
  try {
    // What an exception left undone does not keep what was done before it from the chip.
    try {
      Answer answer = command.handler(arguments);
      changes_.handleTime();
      host_.turnEnds();
      return answer;
    } catch (...) {
      host_.turnEnds();
      throw;
    }
  } catch (InputError const&) {
    throw;
  } catch (Failure const&) {
    throw;
  } catch (std::exception const& exception) {
    return {{{"exception", exception.what()}}, std::string("exception: ") + exception.what()};
  }
}

void Shell::print(Answer const& answer, std::string_view line) {
  if (options_.json) {
    out_ << jsonText({{"answer", answer.json},
                      {"command", line},
                      {"file", place_.name},
                      {"line", place_.line}})
         << '\n';
  } else if (!answer.text.empty() || answer.json.is_string()) {
    if (pager_) {
      pager_(answer);
    } else {
      out_ << answer.text << '\n';
    }
  }
}

}  // namespace Host
