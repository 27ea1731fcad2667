// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <fstream>
#include <optional>

#include "host/commands/Commands.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/shell/Interrupt.h"
#include "host/shell/Shell.h"

namespace Host {

namespace {

// A file with more errors is not worth a longer list.
constexpr size_t kMostErrors = 100;

}  // namespace

std::filesystem::path Shell::inputPath(std::string const& name) const {
  std::filesystem::path const beside = place_.folder / name;
  std::error_code error;
  return std::filesystem::exists(beside, error) || !std::filesystem::exists(name, error)
             ? beside
             : std::filesystem::path(name);
}

std::span<std::string const> Shell::checkCommand(std::span<std::string const> words) const {
  Prepared const prepared = prepare(words);
  words = prepared.found.arguments.words;
  auto const& pattern = prepared.found.command->pattern;
  if (words[0] == "expect" && pattern.text().ends_with("<JSON>")) {
    readingFrom(words.size() - 1, [&] { return expectedJson(words.back()); });
  }
  auto const inner = pattern.innerCommand(words);
  if (inner.empty()) return words;
  return readingFrom(static_cast<size_t>(inner.data() - words.data()),
                     [&] { return checkCommand(inner); });
}

void Shell::checkLine(std::string_view line, bool missing, Checked& found) {
  auto const known = wordsOf(line);
  // A line with a value that is not known yet is looked at when it is carried out.
  if (!known || known->empty()) {
    if (!known) ++found.commands;
    found.top.operatorOnly = found.top.operatorOnly && known;
    return;
  }
  std::span<std::string const> const words(*known);
  auto const command = checkCommand(words);
  ++found.commands;
  bool const operators = command.size() == words.size() && isOperatorLine(words);
  found.top.operatorOnly = found.top.operatorOnly && operators;
  // Only a removal that gives its MAC may be refused.
  if (operators && words[0] == "no" && operatorLineOf(words).mac) found.top.mayBeRefused = true;
  if (command[0] == "exit") found.exits = true;
  if (words[0] == "set" && words.size() > 3) {
    variables_.set(words[1], words[2] == "=" ? Variables::Value(words[3]) : std::nullopt);
  }
  if (command[0] == "load" && command.size() == 2) {
    checkNested(inputPath(command[1]), missing, found);
  }
}

void Shell::checkNested(std::filesystem::path const& file, bool missing, Checked& found) {
  if (std::ranges::find(found.open, file) != found.open.end()) {
    throw InputError("files are loaded within each other too deep");
  }
  std::error_code error;
  if (found.files.contains(file)) return;
  // One that cannot be read may be written before it is loaded, and a pipe is read only once.
  if (!missing && !std::filesystem::is_regular_file(file, error)) return;
  FileLines lines(file, false);
  check(file, lines, missing, found);
}

void Shell::check(std::filesystem::path const& file, FileLines& lines, bool missing,
                  Checked& found) {
  std::error_code error;
  CheckedFile const outerFacts = std::exchange(found.top, {});
  found.top.written = std::filesystem::last_write_time(file, error);
  found.open.push_back(file);
  Inside const inside(*this, {file.string(), file.parent_path(), 0});
  std::string line;
  while (!found.exits && lines.next(line)) {
    ++place_.line;
    if (Interrupt::requested()) throw Failure(BadInput, errorHere("interrupted before this line"));
    try {
      checkLine(line, missing, found);
    } catch (InputError const& wrong) {
      if (++found.wrong <= kMostErrors) {
        found.errors.emplace_back(place_.name, place_.line, line, wrong);
      }
    }
  }
  found.open.pop_back();
  found.files[file] = found.top;
  if (!found.open.empty()) found.top = outerFacts;
}

void Shell::throwErrors(Checked& found) {
  if (found.errors.empty()) return;
  if (found.wrong > found.errors.size()) {
    found.errors.emplace_back("... and " + counted(found.wrong - found.errors.size(), "more line") +
                              " with errors");
  }
  throw Failure(BadInput, std::move(found.errors));
}

void Shell::checkOperatorLines(FileLines& lines, std::string const& name) {
  Configuration configuration = changes_.current();
  lines.rewind();
  std::string line;
  for (size_t number = 1; lines.next(line); ++number) {
    auto const words = wordsOf(line).value();
    if (words.empty()) continue;
    auto const why = applyLine(operatorLineOf(words), configuration);
    if (!why.empty()) throw Failure(BadInput, LineError(name, number, line, InputError(why)));
  }
}

Answer Shell::load(Arguments const& given) {
  if (depth_ >= kMaxDepth) throw InputError("files are loaded within each other too deep");
  std::string const name = given.text("load");
  std::filesystem::path const file = inputPath(name);
  size_t commands = 0;
  try {
    FileLines lines(file, !options_.keepGoing);
    Place const place{file.string(), file.parent_path(), 0};
    if (options_.keepGoing) {
      readLines(lines, place, commands);
    } else {
      readChecked(lines, place, commands);
    }
  } catch (InputError const& error) {
    throw InputError(excerpt(name) + ": " + error.what());
  }
  return {commands, name + ": " + counted(commands, "line") + " accepted"};
}

void Shell::readChecked(FileLines& lines, Place const& place, size_t& commands) {
  std::filesystem::path const file(place.name);
  // What was checked with the file that loads this one is not checked again, unless it was written
  // since.
  auto known = checked_.find(file);
  std::error_code error;
  if (known == checked_.end() ||
      known->second.written != std::filesystem::last_write_time(file, error)) {
    Checked found;
    check(file, lines, false, found);
    throwErrors(found);
    lines.rewind();
    checked_.merge(found.files);
    known = checked_.insert_or_assign(file, found.top).first;
  }
  CheckedFile const facts = known->second;
  struct Loading {
    explicit Loading(Shell& in) : shell(in) { ++shell.loads_; }
    ~Loading() {
      if (--shell.loads_ == 0) shell.checked_.clear();
    }
    Shell& shell;
  } const loading(*this);
  if (facts.operatorOnly) {
    readAllOrNothing(lines, place, facts, commands);
  } else {
    readLines(lines, place, commands);
  }
}

void Shell::readAllOrNothing(FileLines& lines, Place const& place, CheckedFile const& facts,
                             size_t& commands) {
  if (facts.mayBeRefused) {
    checkOperatorLines(lines, place.name);
    lines.rewind();
  }
  Configuration const before = changes_.current();
  try {
    readLines(lines, place, commands);
  } catch (Failure const&) {
    changes_.become(before);
    host_.turnEnds();
    for (; recorder_.refused && commands > 0; --commands) recorder_.refused();
    throw;
  }
}

Answer Shell::loadCheck(Arguments const& given) {
  std::string const name = given.text("--check");
  std::filesystem::path const file = inputPath(name);
  Checked found;
  try {
    FileLines lines(file, true);
    check(file, lines, true, found);
    throwErrors(found);
    if (found.top.operatorOnly && found.top.mayBeRefused) checkOperatorLines(lines, file.string());
  } catch (InputError const& error) {
    throw InputError(excerpt(name) + ": " + error.what());
  }
  return {found.commands, name + ": " + counted(found.commands, "line") + ", none wrong"};
}

Configuration Shell::readConfiguration(std::string const& name) {
  std::filesystem::path const file = inputPath(name);
  Configuration configuration;
  Checked found;
  try {
    FileLines lines(file, false);
    Inside const inside(*this, {file.string(), file.parent_path(), 0});
    std::string line;
    while (lines.next(line)) {
      ++place_.line;
      try {
        auto const words = splitWords(line);
        if (words.empty()) continue;
        if (checkCommand(words).size() < words.size() || !isOperatorLine(words)) {
          throw InputError("expected a line of the operator's, vxlan or no vxlan",
                           {0, std::nullopt, {"vxlan", "no vxlan"}, words[0]});
        }
        if (auto const why = applyLine(operatorLineOf(words), configuration); !why.empty()) {
          throw InputError(why);
        }
      } catch (InputError const& wrong) {
        if (++found.wrong <= kMostErrors) {
          found.errors.emplace_back(place_.name, place_.line, line, wrong);
        }
      }
    }
  } catch (InputError const& error) {
    throw InputError(excerpt(name) + ": " + error.what());
  }
  throwErrors(found);
  return configuration;
}

}  // namespace Host
