// SPDX-License-Identifier: Apache-2.0
#include "host/shell/Shell.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <istream>
#include <malloc.h>
#include <ostream>

#include "framework/log/LogService.h"
#include "host/commands/Commands.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/shell/Interrupt.h"
#include "host/shell/Progress.h"

namespace Host {

namespace {

constexpr size_t kBriefLines = 6;
constexpr std::string_view kLoad = "load";

std::string shortened(std::string const& text) {
  std::vector<std::string_view> lines;
  for (std::string_view rest = text; !rest.empty();) {
    size_t const end = std::min(rest.find('\n'), rest.size());
    lines.push_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  if (lines.size() <= 2 * kBriefLines) return text;
  std::string brief;
  for (size_t i = 0; i < kBriefLines; ++i) brief += std::string(lines[i]) + '\n';
  brief += "... " + std::to_string(lines.size() - 2 * kBriefLines) + " lines ...\n";
  for (size_t i = lines.size() - kBriefLines; i < lines.size(); ++i) {
    brief += std::string(lines[i]) + (i + 1 < lines.size() ? "\n" : "");
  }
  return brief;
}

std::int64_t heapBytes() {
  struct mallinfo2 const info = ::mallinfo2();
  return static_cast<std::int64_t>(info.uordblks + info.hblkhd);
}

}  // namespace

std::string versionText() {
  return "BfnMacRewrite " HOST_VERSION;
}

Shell::Shell(Switch& host, std::ostream& out, ShellOptions const& options)
    : host_(host), out_(out), options_(options) {
  table_.add(operatorCommands(host));
  table_.add(hostCommands(host));
  table_.add(chipCommands(host));
  table_.add(packetCommands(host, [this](std::string const& name) { return inputPath(name); }));
  table_.add(lookCommands(host));
  table_.add(scaleCommands());
  addLanguage();
  Kiv::LogService::reset();
  Kiv::LogService::clockIs([clock = host.clock] { return clock->now(); });
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

void Shell::addLanguage() {
  CommandGroup group{"the language itself", {}};
  auto& add = group.commands;
  add.emplace_back("load <FILE>", "carry out the lines of a file", "load operator.cfg",
                   [this](Arguments const& given) { return load(given); });
  add.emplace_back("expect <COMMAND> == <JSON>",
                   "carry out the command; the run fails unless it answers that",
                   "expect dump capability == {\"overlaySrcMacRewriteSupported\": true}",
                   [this](Arguments const& given) { return expect(given); });
  add.emplace_back(
      "measure <COMMAND>", "carry out the command; seconds, and bytes by which the heap has grown",
      "measure load operator.cfg", [this](Arguments const& given) { return measure(given); });
  add.emplace_back("brief <COMMAND>", "carry out the command; only the first and last lines",
                   "brief show chip", [this](Arguments const& given) {
                     Answer answer = answerTo(given.words.subspan(1));
                     answer.text = shortened(answer.text);
                     return answer;
                   });
  add.emplace_back("clock advance <N>", "the lab's clock advances by that many seconds",
                   "clock advance 60", [this](Arguments const& given) {
                     host_.clock->advance(static_cast<double>(given.number("advance")));
                     return Answer();
                   });
  add.emplace_back("print [<TEXT>]", "print the words", "print rows in the chip",
                   [](Arguments const& given) {
                     std::string text;
                     for (auto const& word : given.words.subspan(1)) {
                       text += (text.empty() ? "" : " ") + word;
                     }
                     return Answer(text, text);
                   });
  add.emplace_back("help [<COMMAND>]", "the commands, or those that begin so", "help host vrf",
                   [this](Arguments const& given) {
                     std::string const text = table_.help(given.words.subspan(1));
                     return Answer(text, text);
                   });
  add.emplace_back("show version", "the version of this build", "show version",
                   [](Arguments const&) {
                     return Answer({{"version", HOST_VERSION}}, versionText());
                   });
  add.emplace_back("exit", "the rest is not read", "exit", [this](Arguments const&) {
    exited_ = true;
    return Answer();
  });
  table_.add(std::move(group));
}

std::filesystem::path Shell::inputPath(std::string const& name) const {
  std::filesystem::path const beside = place_.folder / name;
  std::error_code error;
  return std::filesystem::exists(beside, error) || !std::filesystem::exists(name, error)
             ? beside
             : std::filesystem::path(name);
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
  if (options_.json) out_ << jsonText({{"error", failure.what()}}) << '\n';
  out_.flush();
  *err_ << failure.what() << std::endl;
}

Shell::Status Shell::runFile(std::filesystem::path const& file, std::ostream& err) {
  return guarded(err, [&] {
    try {
      readFile(file);
    } catch (InputError const& error) {
      throw Failure(BadInput, file.string() + ": error: " + error.what());
    }
  });
}

Shell::Status Shell::runStream(std::istream& in, std::string const& name, std::ostream& err) {
  return guarded(err, [&] { readStream(in, {name, {}, 0}, 0); });
}

Shell::Status Shell::runLine(std::string_view line, std::ostream& err) {
  place_ = {"prompt", {}, place_.line + 1};
  return guarded(
      err, [&] { located([&] { return carryOut(pipeline_.expanded(splitWords(line)), line); }); });
}

size_t Shell::readFile(std::filesystem::path const& file) {
  std::error_code error;
  std::ifstream in(file);
  if (!in || std::filesystem::is_directory(file, error)) {
    throw InputError("expected a file of commands that can be read");
  }
  Kiv::U64 const size = std::filesystem::file_size(file, error);
  return readStream(in, {file.string(), file.parent_path(), 0}, error ? 0 : size);
}

size_t Shell::readStream(std::istream& in, Place const& place, Kiv::U64 size) {
  struct Nested {
    explicit Nested(Shell& in) : shell(in), outer(in.place_) { ++shell.depth_; }
    ~Nested() {
      --shell.depth_;
      shell.place_ = outer;
    }
    Shell& shell;
    Place const outer;
  } const nested(*this);
  place_ = place;
  Progress progress(size, Progress::terminal());
  size_t commands = 0;
  std::string line;
  while (!exited_ && std::getline(in, line)) {
    ++place_.line;
    if (Interrupt::requested()) {
      throw Failure(BadInput, place_.name + ':' + std::to_string(place_.line) +
                                  ": interrupted before this line");
    }
    progress.add(line.size() + 1);
    try {
      if (located([&] { return carryOut(splitWords(line), line); })) ++commands;
    } catch (Failure const& failure) {
      if (!options_.keepGoing) throw;
      report(failure);
    }
  }
  return commands;
}

void Shell::flush() {
  if (!out_.flush()) throw Failure(BadInput, "error: the output cannot be written");
}

template <class F>
bool Shell::located(F const& run) {
  try {
    return run();
  } catch (InputError const& error) {
    throw Failure(BadInput,
                  place_.name + ':' + std::to_string(place_.line) + ": error: " + error.what());
  }
}

bool Shell::carryOut(std::vector<std::string> const& words, std::string_view line) {
  if (words.empty()) return false;
  Prepared const prepared = prepare(words);
  bool const recorded = recorder_.line && words[0] != kLoad;
  if (recorded) recorder_.line(lineOf(words));
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
  auto filters = pipeline_.stages(words.subspan(count));
  return {table_.find(words.subspan(0, count)), std::move(filters)};
}

Answer Shell::run(Prepared const& prepared) {
  flush();
  Answer answer = answerOf(*prepared.found.command, prepared.found.arguments);
  return prepared.filters.empty() ? answer : pipeline_.apply(prepared.filters, std::move(answer));
}

Answer Shell::answerOf(Command const& command, Arguments const& arguments) {
  try {
    // What an exception left undone does not keep what was done before it from the chip.
    try {
      Answer answer = command.handler(arguments);
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

Answer Shell::load(Arguments const& given) {
  if (depth_ >= kMaxDepth) throw InputError("files are loaded within each other too deep");
  std::string const name = given.text("load");
  size_t commands = 0;
  try {
    commands = readFile(inputPath(name));
  } catch (InputError const& error) {
    throw InputError(excerpt(name) + ": " + error.what());
  }
  return {commands, name + ": " + std::to_string(commands) + (commands == 1 ? " line" : " lines") +
                        " accepted"};
}

Answer Shell::expect(Arguments const& given) {
  auto const words = given.words.subspan(1, given.words.size() - 3);
  nlohmann::json const expected = parsedJson(given.words.back());
  if (expected.is_discarded()) throw InputError("expected JSON after ==");
  nlohmann::json const found = answerTo(words).json;
  if (found == expected) return {};
  throw Failure(ExpectationFailed, place_.name + ':' + std::to_string(place_.line) +
                                       ": expectation failed\n  expected: " + jsonText(expected) +
                                       "\n  found:    " + jsonText(found));
}

Answer Shell::measure(Arguments const& given) {
  using Clock = std::chrono::steady_clock;
  std::int64_t const before = heapBytes();
  Clock::time_point const start = Clock::now();
  Answer answer = answerTo(given.words.subspan(1));
  double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
  std::int64_t const bytes = heapBytes() - before;
  char text[64];
  std::snprintf(text, sizeof text, "%.3f s, %+lld bytes", seconds, static_cast<long long>(bytes));
  answer.text += (answer.text.empty() ? "" : "\n") + std::string("  ") + text;
  return {{{"answer", answer.json}, {"bytes", bytes}, {"seconds", seconds}}, answer.text};
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
      pager_(answer.text + '\n');
    } else {
      out_ << answer.text << '\n';
    }
  }
}

}  // namespace Host
