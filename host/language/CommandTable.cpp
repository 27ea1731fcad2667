#include "host/language/CommandTable.h"

#include <algorithm>

#include "host/language/InputError.h"
#include "host/language/Lexer.h"

namespace Host {

namespace {

std::string sentence(Mismatch const& mismatch, std::span<std::string const> words) {
  std::string text = "expected ";
  std::size_t const count = mismatch.expected.size();
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) text += i + 1 == count ? " or " : ", ";
    text += mismatch.expected[i];
  }
  if (mismatch.at == words.size()) return text + ", found the end of the line";
  return text + ", found " + excerpt(words[mismatch.at]);
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
  if (auto const candidates = byFirstWord_.find(words[0]); candidates != byFirstWord_.end()) {
    for (Command const* const command : candidates->second) {
      Arguments arguments;
      if (command->pattern.match(words, arguments, mismatch)) return {command, arguments};
    }
  } else {
    for (auto const& [word, commands] : byFirstWord_) mismatch.add(0, word);
  }
  throw InputError(sentence(mismatch, words));
}

std::vector<std::string> CommandTable::completions(std::span<std::string const> words) const {
  std::vector<std::string> found;
  for (CommandGroup const& group : groups_) {
    for (Command const& command : group.commands) command.pattern.completions(words, found);
  }
  std::ranges::sort(found);
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
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
