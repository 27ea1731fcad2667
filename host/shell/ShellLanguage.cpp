// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <malloc.h>

#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/shell/Shell.h"

namespace Host {

namespace {

constexpr size_t kBriefLines = 6;

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

nlohmann::json formsOf(CommandTable const& table) {
  nlohmann::json groups = nlohmann::json::array();
  for (CommandGroup const& group : table.groups()) {
    nlohmann::json commands = nlohmann::json::array();
    for (Command const& command : group.commands) {
      commands.push_back(
          {{"form", command.pattern.text()}, {"help", command.help}, {"example", command.example}});
    }
    groups.push_back({{"title", group.title}, {"commands", commands}});
  }
  return groups;
}

}  // namespace

void Shell::addLanguage() {
  CommandGroup group{"the language itself", {}};
  auto& add = group.commands;
  add.emplace_back("load <FILE>", "carry out the lines of a file", "load operator.cfg",
                   [this](Arguments const& given) { return load(given); });
  add.emplace_back(
      "load --check <FILE>", "carry out nothing, but report every line of the file that is wrong",
      "load --check operator.cfg", [this](Arguments const& given) { return loadCheck(given); });
  addExpectations(add);
  add.emplace_back(
      "measure <COMMAND>", "carry out the command; seconds, and bytes by which the heap has grown",
      "measure load operator.cfg", [this](Arguments const& given) { return measure(given); });
  add.emplace_back("brief <COMMAND>", "carry out the command; only the first and last lines",
                   "brief show chip", [this](Arguments const& given) {
                     Answer answer = answerToInner(given);
                     std::string brief = shortened(answer.text);
                     // The marks are those of all lines.
                     if (brief != answer.text) answer.marks.clear();
                     answer.text = std::move(brief);
                     return answer;
                   });
  addVariableCommands(add, variables_,
                      [this](Arguments const& given) { return answerToInner(given); });
  add.emplace_back("reset", "everything is as at the start, except for variables", "reset",
                   [this](Arguments const&) { return reset(); });
  add.emplace_back("clock advance <N>", "the lab's clock advances by that many seconds",
                   "clock advance 60", [this](Arguments const& given) {
                     advance(static_cast<double>(given.number("advance")));
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
  add.emplace_back("dump language", "the forms of all commands", "dump language",
                   [this](Arguments const&) { return Answer(formsOf(table_)); });
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

Answer Shell::reset() {
  changes_.reset();
  slicedShow_.reset();
  host_.reset();
  takeLog();
  return {};
}

void Shell::advance(double seconds) {
  double const end = host_.clock->now() + seconds;
  // What a window takes back is taken back at its own time.
  if (auto const deadline = changes_.deadline(); deadline && *deadline < end) {
    host_.clock->nowIs(*deadline);
    changes_.handleTime();
    host_.turnEnds();
  }
  host_.clock->nowIs(end);
}

Answer Shell::measure(Arguments const& given) {
  using Clock = std::chrono::steady_clock;
  std::int64_t const before = heapBytes();
  Clock::time_point const start = Clock::now();
  Answer answer = answerToInner(given);
  double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
  std::int64_t const bytes = heapBytes() - before;
  char text[64];
  std::snprintf(text, sizeof text, "%.3f s, %+lld bytes", seconds, static_cast<long long>(bytes));
  answer.text += (answer.text.empty() ? "" : "\n") + std::string("  ") + text;
  if (!answer.marks.empty()) answer.marks += ' ';
  return {
      {{"answer", answer.json}, {"bytes", bytes}, {"seconds", seconds}}, answer.text, answer.marks};
}

}  // namespace Host
