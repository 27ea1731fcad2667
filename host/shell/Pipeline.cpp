// SPDX-License-Identifier: Apache-2.0
#include "host/shell/Pipeline.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <regex.h>
#include <string_view>

#include "host/commands/Commands.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"

namespace Host {

namespace {

constexpr std::string_view kPipe = "|";

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    size_t const end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

Answer answerOf(std::vector<std::string> const& lines) {
  std::string text;
  for (std::string const& line : lines) text += (&line == lines.data() ? "" : "\n") + line;
  return {lines, text};
}

/// A POSIX extended regular expression. Throws InputError for one that is wrong.
class Expression {
 public:
  explicit Expression(std::string const& text) {
    if (int const error = ::regcomp(&regex_, text.c_str(), REG_EXTENDED | REG_NOSUB); error != 0) {
      char why[200];
      ::regerror(error, &regex_, why, sizeof why);
      throw InputError("wrong expression " + excerpt(text) + ": " + why);
    }
  }
  Expression(Expression const&) = delete;
  Expression& operator=(Expression const&) = delete;
  ~Expression() { ::regfree(&regex_); }

  bool matches(std::string const& line) const {
    return ::regexec(&regex_, line.c_str(), 0, nullptr, 0) == 0;
  }

 private:
  regex_t regex_{};
};

// The words after the filter's name.
std::string textOf(Arguments const& given) {
  std::string text;
  for (std::string const& word : given.words.subspan(1)) text += (text.empty() ? "" : " ") + word;
  return text;
}

}  // namespace

Answer savedTo(std::string const& file, Answer const& answer) {
  makeFolderOf(file);
  std::ofstream out(file);
  if (!answer.text.empty()) out << answer.text << '\n';
  if (!out.flush()) throw InputError(excerpt(file) + " cannot be written");
  size_t const count = linesOf(answer.text).size();
  return {count,
          file + ": " + std::to_string(count) + (count == 1 ? " line" : " lines") + " saved"};
}

Pipeline::Pipeline(CommandTable const& commands) : commands_(commands) {
  addFilters();
}

void Pipeline::addFilters() {
  CommandGroup group{"filters of an answer", {}};
  auto const lines = [this] { return linesOf(current_.text); };
  auto const selected = [lines](Arguments const& given, bool matching) {
    Expression const expression(textOf(given));
    auto kept = lines();
    std::erase_if(kept, [&](auto const& line) { return expression.matches(line) != matching; });
    return answerOf(kept);
  };
  auto& add = group.commands;
  add.emplace_back("include <EXPRESSION> [<TEXT>]", "the lines that match a regular expression",
                   "include Ethernet1",
                   [selected](Arguments const& given) { return selected(given, true); });
  add.emplace_back("exclude <EXPRESSION> [<TEXT>]", "the lines that do not match", "exclude red",
                   [selected](Arguments const& given) { return selected(given, false); });
  add.emplace_back("begin <EXPRESSION> [<TEXT>]", "the lines from the first that matches on",
                   "begin VRF", [lines](Arguments const& given) {
                     Expression const expression(textOf(given));
                     auto all = lines();
                     auto const first = std::ranges::find_if(
                         all, [&](auto const& line) { return expression.matches(line); });
                     all.erase(all.begin(), first);
                     return answerOf(all);
                   });
  add.emplace_back("count", "the number of lines", "count",
                   [lines](Arguments const&) { return Answer(lines().size()); });
  add.emplace_back("json", "the answer as JSON, in one line", "json",
                   [this](Arguments const&) { return Answer(current_.json); });
  add.emplace_back(
      "save <FILE>", "write the answer to a file", "save rows.txt",
      [this](Arguments const& given) { return savedTo(given.text("save"), current_); });
  filters_.add(std::move(group));
}

bool Pipeline::isCommand(std::span<std::string const> words) const {
  try {
    commands_.find(words);
  } catch (InputError const&) {
    return false;
  }
  // The words of help are those of a command, of which none has a filter.
  return words[0] != "help" || std::ranges::find(words, kPipe) == words.end();
}

size_t Pipeline::commandWords(std::span<std::string const> words) const {
  if (std::ranges::find(words, kPipe) == words.end() || isCommand(words)) return words.size();
  for (size_t at = words.size() - 1; at > 0; --at) {
    if (words[at] == kPipe && isCommand(words.subspan(0, at))) return at;
  }
  return words.size();
}

Pipeline::Stages Pipeline::stages(std::span<std::string const> words) const {
  Stages all;
  for (size_t at = 0; at < words.size();) {
    size_t const begin = ++at;
    while (at < words.size() && words[at] != kPipe) ++at;
    auto const stage = words.subspan(begin, at - begin);
    readingFrom(begin, [&] { return filters_.find(stage); });
    all.emplace_back(stage.begin(), stage.end());
  }
  return all;
}

Answer Pipeline::apply(Stages const& stages, Answer answer) {
  current_ = std::move(answer);
  for (auto const& stage : stages) {
    auto const [filter, arguments] = filters_.find(stage);
    current_ = filter->handler(arguments);
  }
  return std::move(current_);
}

Answer Pipeline::answerTo(std::span<std::string const> words) {
  size_t const count = commandWords(words);
  auto const filters = readingFrom(count, [&] { return stages(words.subspan(count)); });
  auto const [command, arguments] = commands_.find(words.first(count));
  Answer answer = command->handler(arguments);
  return filters.empty() ? answer : apply(filters, std::move(answer));
}

std::vector<std::string> Pipeline::expanded(std::span<std::string const> words) const {
  size_t const count = commandWords(words);
  // The command may be one only once its words are in full.
  auto full = commands_.expanded(words.subspan(0, count));
  size_t const end = commandWords(full);
  auto const filterStart = full.begin() + static_cast<std::ptrdiff_t>(end);
  std::vector<std::string> rest(filterStart, full.end());
  full.erase(filterStart, full.end());
  rest.insert(rest.end(), words.begin() + static_cast<std::ptrdiff_t>(count), words.end());
  for (size_t at = 0; at < rest.size();) {
    full.push_back(rest[at++]);
    size_t const begin = at;
    while (at < rest.size() && rest[at] != kPipe) ++at;
    auto const filter = readingFrom(
        full.size(), [&] { return filters_.expanded(std::span(rest).subspan(begin, at - begin)); });
    full.insert(full.end(), filter.begin(), filter.end());
  }
  return full;
}

std::vector<CommandTable::Next> Pipeline::next(std::span<std::string const> words) const {
  size_t const end = commandWords(words);
  if (end == words.size()) {
    auto found = commands_.next(commands_.innermost(words));
    if (!words.empty() && !found.empty() && found[0].completion.text == CommandTable::kEndOfLine) {
      found.push_back({{std::string(kPipe), "", {}, ""}, "filter, count or save the answer"});
    }
    return found;
  }
  auto filter = words.subspan(end + 1);
  while (true) {
    auto const pipe = std::ranges::find(filter, kPipe);
    if (pipe == filter.end()) break;
    filter = filter.subspan(static_cast<size_t>(pipe - filter.begin()) + 1);
  }
  return filters_.next(filter);
}

}  // namespace Host
