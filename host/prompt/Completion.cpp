// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/prompt/Prompt.h"

namespace Host {

namespace {

// The files and folders that begin as the typed path does, folders with a slash.
void collectFiles(std::string_view typed, std::set<std::string>& found) {
  size_t const slash = typed.rfind('/') + 1;
  std::string const folder(typed.substr(0, slash));
  std::error_code error;
  std::filesystem::directory_iterator const all(folder.empty() ? "." : folder, error);
  if (error) return;
  for (auto const& entry : all) {
    std::string name = entry.path().filename().string();
    if (name.starts_with('.') && !typed.substr(slash).starts_with('.')) continue;
    if (entry.is_directory(error)) name += '/';
    found.insert(folder + name);
  }
}

/// What is known of the values that a place takes.
Selection valuesOf(Completion const& place, std::string_view typed, PromptTarget& target) {
  if (auto const kind = kindOf(place); !kind.empty()) return target.known(kind, typed);
  std::set<std::string> found;
  if (place.slot == "LEVEL") {
    // Those that the plug-in and the framework use.
    found.insert({"0", "4", "9", "off"});
  } else if (place.slot == "FILE" || place.slot == "DIR" || place.slot.ends_with(".pcap")) {
    collectFiles(typed, found);
  }
  return beginningWith(typed, std::move(found));
}

/// An unfinished line: its complete words, in full, and what is typed of the last one.
struct Unfinished {
  std::vector<std::string> words;
  std::string_view typed;
};

size_t lastWordBegin(std::string_view line) {
  bool quoted = false;
  bool escaped = false;
  size_t begin = 0;
  for (size_t at = 0; at < line.size(); ++at) {
    char const c = line[at];
    bool const blank = c == ' ' || c == '\t';
    if (!quoted && blank) {
      begin = at + 1;
    } else if (c == '"' && !escaped && (quoted || at == begin)) {
      quoted = !quoted;
    }
    escaped = quoted && c == '\\' && !escaped;
  }
  return begin;
}

/// Throws InputError.
Unfinished unfinished(std::string_view line, PromptTarget& target) {
  size_t const begin = lastWordBegin(line);
  return {target.pipeline().expanded(splitWords(line.substr(0, begin))), line.substr(begin)};
}

}  // namespace

std::vector<std::string> completionsOf(std::string_view line, PromptTarget& target) {
  std::set<std::string> found;
  try {
    auto const [words, typed] = unfinished(line, target);
    for (auto const& [place, help] : target.pipeline().next(words)) {
      if (!place.isKeyword()) {
        found.merge(valuesOf(place, typed, target).values);
      } else if (place.text != CommandTable::kEndOfLine && place.text.starts_with(typed)) {
        found.insert(place.text);
      }
    }
  } catch (InputError const&) {
    return {};
  }
  std::vector<std::string> fitting;
  fitting.reserve(found.size());
  for (std::string const& each : found) fitting.push_back(typedWord(each));
  return fitting;
}

std::vector<std::string> explanationOf(std::string_view line, PromptTarget& target) {
  std::vector<CommandTable::Next> fitting;
  Selection known;
  size_t width = 0;
  try {
    auto const [words, typed] = unfinished(line, target);
    for (auto& each : target.pipeline().next(words)) {
      bool const keyword = each.completion.isKeyword();
      bool const end = each.completion.text == CommandTable::kEndOfLine;
      if (end ? !typed.empty() : keyword && !each.completion.text.starts_with(typed)) continue;
      if (!keyword) {
        Selection found = valuesOf(each.completion, typed, target);
        known.values.merge(found.values);
        known.more = known.more || found.more;
      }
      width = std::max(width, each.completion.text.size());
      fitting.push_back(std::move(each));
    }
  } catch (InputError const& error) {
    return {std::string("error: ") + error.what()};
  }
  std::vector<std::string> lines;
  for (auto const& [completion, help] : fitting) {
    std::string text = "  " + completion.text;
    text.append(width + 4 - text.size(), ' ');
    lines.push_back(text + help);
  }
  std::string values;
  for (std::string const& value : known.values) {
    values += "  ";
    values += typedWord(value);
  }
  if (known.more) values += "  and more";
  if (!values.empty()) lines.push_back("  known:" + values);
  if (lines.empty()) lines.emplace_back("  nothing can come next");
  return lines;
}

bool endsInQuotes(std::string_view line) {
  std::string_view const last = line.substr(lastWordBegin(line));
  if (!last.starts_with('"')) return false;
  try {
    splitWords(last);
  } catch (InputError const&) {
    return true;
  }
  return false;
}

}  // namespace Host
