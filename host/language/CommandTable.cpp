// SPDX-License-Identifier: Apache-2.0
#include "host/language/CommandTable.h"

#include <algorithm>
#include <utility>

#include "host/language/InputError.h"
#include "host/language/Lexer.h"

namespace Host {

namespace {

// What begins the filters of a command's answer.
constexpr std::string_view kFilter = "|";

InputError errorOf(Mismatch const& mismatch, std::span<std::string const> words) {
  std::string text = "expected ";
  size_t const count = mismatch.expected.size();
  for (size_t i = 0; i < count; ++i) {
    if (i > 0) text += i + 1 == count ? " or " : ", ";
    text += mismatch.expected[i];
  }
  InputFault fault{mismatch.at, std::nullopt, mismatch.expected, std::nullopt};
  if (mismatch.at == words.size()) {
    return {text + ", found the end of the line", std::move(fault)};
  }
  fault.found = words[mismatch.at];
  return {text + ", found " + excerpt(words[mismatch.at]), std::move(fault)};
}

/// One word that may come next, and the commands that have it there.
struct Origin {
  void add(Command const& command, std::string const& title) {
    commands.push_back(&command);
    if (titles.empty() || titles.back() != title) titles.push_back(title);
  }
  std::string help() const {
    if (!completion.isKeyword()) return describeSlot(completion.slot, completion.limits);
    if (commands.size() == 1) return commands[0]->help;
    std::string text;
    for (std::string const& title : titles) text += (text.empty() ? "" : "; ") + title;
    return text;
  }

  Completion completion;
  std::vector<Command const*> commands;
  std::vector<std::string> titles;
};

bool isText(CommandTable::Next const& next) {
  return next.completion.slot == "TEXT";
}

/// The keyword in full, or the word itself when it is one, a value or nothing that is known. Throws
/// InputError when several keywords begin so.
std::string keywordOf(std::string const& word, std::vector<CommandTable::Next> const& following) {
  std::vector<std::string> matches;
  for (auto const& [completion, help] : following) {
    if (completion.text == CommandTable::kEndOfLine) continue;
    bool const exact = completion.isKeyword() ? completion.text == word
                                              : accepts(completion.slot, completion.limits, word);
    if (exact || word.empty()) return word;
    if (completion.isKeyword() && completion.text.starts_with(word)) {
      matches.push_back(completion.text);
    }
  }
  if (matches.size() == 1) return matches[0];
  if (matches.empty()) return word;
  std::string names;
  for (std::string const& match : matches) names += (names.empty() ? "" : ", ") + match;
  throw InputError(excerpt(word) + " is short for more than one word: " + names,
                   {0, std::nullopt, matches, word});
}

bool beginsWith(std::string_view text, std::span<std::string const> words) {
  std::string start;
  for (std::string const& word : words) start += (start.empty() ? "" : " ") + word;
  return text.starts_with(start);
}

}  // namespace

void CommandTable::add(CommandGroup group) {
  groups_.push_back(std::move(group));
  // The groups may have moved.
  byFirstWord_.clear();
  for (CommandGroup const& each : groups_) {
    for (Command const& command : each.commands) {
      byFirstWord_[command.pattern.firstWord()].push_back(&command);
    }
  }
}

CommandTable::Found CommandTable::find(std::span<std::string const> words) const {
  Mismatch mismatch;
  auto const candidates = words.empty() ? byFirstWord_.end() : byFirstWord_.find(words[0]);
  if (candidates != byFirstWord_.end()) {
    for (Command const* const command : candidates->second) {
      Arguments arguments;
      if (command->pattern.match(words, arguments, mismatch)) {
        return {command, std::move(arguments)};
      }
    }
  } else {
    for (auto const& [word, commands] : byFirstWord_) mismatch.add(0, word);
  }
  throwRefusal(words);
  throw errorOf(mismatch, words);
}

void CommandTable::throwRefusal(std::span<std::string const> words) const {
  auto const command =
      words.first(static_cast<size_t>(std::ranges::find(words, kFilter) - words.begin()));
  Mismatch mismatch;
  for (CommandGroup const& group : groups_) {
    for (Refusal const& each : group.refused) {
      Arguments arguments;
      if (each.pattern.match(command, arguments, mismatch)) throw InputError(each.why);
    }
  }
}

std::vector<CommandTable::Next> CommandTable::next(std::span<std::string const> words) const {
  std::map<std::string, Origin> origins;
  std::vector<Next> found;
  for (CommandGroup const& group : groups_) {
    for (Command const& command : group.commands) {
      std::vector<Completion> completions;
      if (command.pattern.completions(words, completions) && found.empty()) {
        found.push_back({{std::string(kEndOfLine), "", {}, ""}, command.help});
      }
      for (Completion& each : completions) {
        Origin& origin = origins[each.text];
        origin.completion = std::move(each);
        origin.add(command, group.title);
      }
    }
  }
  for (auto& [text, origin] : origins) {
    std::string help = origin.help();
    found.push_back({std::move(origin.completion), std::move(help)});
  }
  return found;
}

std::span<std::string const> CommandTable::innermost(std::span<std::string const> words) const {
  while (words.size() > 1) {
    auto const following = next(words.subspan(0, 1));
    bool const takesCommand = std::ranges::any_of(
        following, [](Next const& each) { return each.completion.slot == "COMMAND"; });
    if (!takesCommand) break;
    words = words.subspan(1);
  }
  return words;
}

std::vector<std::string> CommandTable::expanded(std::span<std::string const> words) const {
  std::vector<std::string> full;
  for (std::string const& word : words) {
    full.push_back(word);
    if (word == "==") break;
    // With a word in its place, so that a command that takes another one is left out.
    auto const command = innermost(full);
    auto const following = next(command.subspan(0, command.size() - 1));
    if (std::ranges::any_of(following, isText)) break;
    full.back() = readingFrom(full.size() - 1, [&] { return keywordOf(word, following); });
  }
  full.insert(full.end(), words.begin() + static_cast<std::ptrdiff_t>(full.size()), words.end());
  return full;
}

std::string CommandTable::help(std::span<std::string const> words) const {
  std::string text;
  for (CommandGroup const& group : groups_) {
    std::string lines;
    for (Command const& command : group.commands) {
      if (!beginsWith(command.pattern.text(), words)) continue;
      lines += "  " + command.pattern.text() + "\n      " + command.help + '\n';
    }
    if (lines.empty()) continue;
    if (!text.empty()) text += '\n';
    text += group.title + '\n' + lines;
  }
  if (text.empty()) throw InputError("there is no command that begins so; try help");
  text.pop_back();
  return text;
}

}  // namespace Host
