// SPDX-License-Identifier: Apache-2.0
#include "host/language/Lexer.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#include "framework/core/HexDigits.h"
#include "host/language/InputError.h"

namespace Host {

namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

[[noreturn]] void failAt(std::string const& text, size_t byte) {
  throw InputError(text, {std::nullopt, byte, {}, std::nullopt});
}

// The character that an escape denotes; `rest` begins after the backslash and ends with the line.
char escaped(std::string_view& rest, size_t lineSize) {
  char const kind = rest.empty() ? '\0' : rest[0];
  if (kind == '"' || kind == '\\') {
    rest.remove_prefix(1);
    return kind;
  }
  if (kind == 'x' && rest.size() >= 3) {
    int const high = Kiv::hexDigitValue(rest[1]);
    int const low = Kiv::hexDigitValue(rest[2]);
    if (high >= 0 && low >= 0) {
      rest.remove_prefix(3);
      return static_cast<char>(high << 4 | low);
    }
  }
  failAt("wrong escape in a quoted word: expected \\\", \\\\ or \\xHH", lineSize - rest.size() - 1);
}

std::string quoted(std::string_view& rest, size_t lineSize) {
  std::string word;
  rest.remove_prefix(1);
  while (!rest.empty()) {
    char const c = rest[0];
    rest.remove_prefix(1);
    if (c == '"') {
      if (!rest.empty() && !isBlank(rest[0])) {
        failAt("expected a blank after the closing quote", lineSize - rest.size());
      }
      return word;
    }
    word += c == '\\' ? escaped(rest, lineSize) : c;
  }
  failAt("expected a closing quote before the end of the line", lineSize);
}

bool isEquals(std::string_view word, std::string_view /*before*/) {
  return word == "==";
}

bool isComparison(std::string_view word, std::string_view before) {
  return word == "==" || word == "contains" || (word == "of" && before == "one");
}

/// Calls `add(word, begin, end, quoted)` for each word; after one for which `beforeVerbatim(word,
/// theWordBefore)` is true, the rest is one.
template <class Add>
void forEachWord(std::string_view line, Add const& add,
                 bool (&beforeVerbatim)(std::string_view, std::string_view) = isEquals) {
  std::string_view rest = line;
  std::string_view before;
  bool verbatim = false;
  while (!verbatim) {
    while (!rest.empty() && isBlank(rest[0])) rest.remove_prefix(1);
    if (rest.empty() || rest[0] == '#') return;
    size_t const begin = line.size() - rest.size();
    if (rest[0] == '"') {
      std::string word = quoted(rest, line.size());
      add(std::move(word), begin, line.size() - rest.size(), true);
      continue;
    }
    auto const* const end = std::ranges::find_if(rest, isBlank);
    std::string_view const word = rest.substr(0, static_cast<size_t>(end - rest.begin()));
    rest.remove_prefix(word.size());
    verbatim = beforeVerbatim(word, before);
    before = word;
    add(std::string(word), begin, begin + word.size(), false);
  }
  if (std::string_view const raw = trimmed(rest); !raw.empty()) {
    auto const begin = static_cast<size_t>(raw.data() - line.data());
    add(std::string(raw), begin, begin + raw.size(), false);
  }
}

}  // namespace

std::vector<std::string> splitWords(std::string_view line) {
  // Most lines have fewer.
  constexpr size_t kWords = 12;
  std::vector<std::string> words;
  words.reserve(kWords);
  forEachWord(line,
              [&](std::string word, size_t, size_t, bool) { words.push_back(std::move(word)); });
  return words;
}

std::vector<PlacedWord> placedWords(std::string_view line) {
  std::vector<PlacedWord> words;
  forEachWord(line, [&](std::string word, size_t begin, size_t end, bool isQuoted) {
    words.push_back({std::move(word), begin, end, isQuoted});
  });
  return words;
}

std::vector<PlacedWord> lineWords(std::string_view line) {
  constexpr std::string_view kExpect = "expect";
  size_t const begin = line.find_first_not_of(" \t\r");
  bool const expects = begin != std::string_view::npos && line.substr(begin).starts_with(kExpect);
  if (!expects) return placedWords(line);
  auto const isPlain = [](PlacedWord const& word) { return !word.quoted && word.text == "=="; };
  std::exception_ptr wrong;
  std::vector<PlacedWord> words;
  try {
    words = placedWords(line);
    if (words[0].text != kExpect || std::ranges::any_of(words, isPlain)) return words;
  } catch (InputError const&) {
    // JSON may be no words.
    wrong = std::current_exception();
  }
  std::vector<PlacedWord> compared;
  bool found = false;
  try {
    std::string before;
    forEachWord(
        line,
        [&](std::string word, size_t from, size_t end, bool isQuoted) {
          found = found || (!isQuoted && isComparison(word, before));
          before = word;
          compared.push_back({std::move(word), from, end, isQuoted});
        },
        isComparison);
  } catch (InputError const&) {
    found = false;
  }
  if (found) return compared;
  if (wrong) std::rethrow_exception(wrong);
  return words;
}

std::string quotedWord(std::string_view word) {
  bool plain = !word.empty() && word[0] != '"' && word[0] != '#' && word != "==";
  for (char const c : word) plain = plain && c > ' ' && c != '\x7f';
  if (plain) return std::string(word);
  std::string text = "\"";
  for (char const c : word) {
    auto const byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      text += '\\';
      text += c;
    } else if (byte < ' ' || byte == 0x7f) {
      text += "\\x";
      text += Kiv::kHexDigits[byte >> 4];
      text += Kiv::kHexDigits[byte & 15];
    } else {
      text += c;
    }
  }
  return text + '"';
}

std::string typedWord(std::string_view word) {
  bool const text = std::ranges::all_of(
      word, [](char c) { return static_cast<unsigned char>(c) > ' ' && c != '\x7f'; });
  bool const plain = text && !word.empty() && word[0] != '"' && word[0] != '#' && word != "==";
  return plain ? std::string(word) : quotedWord(word);
}

std::string lineOf(std::span<std::string const> words) {
  bool const compares =
      !words.empty() && words[0] == "expect" && std::ranges::find(words, "==") == words.end();
  auto& beforeVerbatim = compares ? isComparison : isEquals;
  std::string line;
  std::string_view before;
  bool verbatim = false;
  for (std::string const& word : words) {
    line += line.empty() ? "" : " ";
    bool const operates = beforeVerbatim(word, before);
    line += verbatim || operates ? word : typedWord(word);
    verbatim = verbatim || operates;
    before = word;
  }
  return line;
}

std::string excerpt(std::string_view word) {
  constexpr size_t kMaxCharacters = 60;
  auto const continues = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; };
  size_t end = 0;
  for (size_t shown = 0; shown < kMaxCharacters && end < word.size(); ++shown) {
    size_t const start = end++;
    // A character has at most three bytes after its first.
    while (end < word.size() && end - start < 4 && continues(word[end])) ++end;
  }
  std::string text = quotedWord(word.substr(0, end));
  if (end < word.size()) text += "...";
  return text;
}

}  // namespace Host
