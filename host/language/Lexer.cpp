// SPDX-License-Identifier: Apache-2.0
#include "host/language/Lexer.h"

#include <algorithm>

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

// The character that an escape denotes; `rest` begins after the backslash.
char escaped(std::string_view& rest) {
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
  throw InputError("wrong escape in a quoted word: expected \\\", \\\\ or \\xHH");
}

std::string quoted(std::string_view& rest) {
  std::string word;
  rest.remove_prefix(1);
  while (!rest.empty()) {
    char const c = rest[0];
    rest.remove_prefix(1);
    if (c == '"') {
      if (!rest.empty() && !isBlank(rest[0])) {
        throw InputError("expected a blank after the closing quote");
      }
      return word;
    }
    word += c == '\\' ? escaped(rest) : c;
  }
  throw InputError("expected a closing quote before the end of the line");
}

}  // namespace

std::vector<std::string> splitWords(std::string_view line) {
  std::vector<std::string> words;
  std::string_view rest = line;
  for (;;) {
    while (!rest.empty() && isBlank(rest[0])) rest.remove_prefix(1);
    if (rest.empty() || rest[0] == '#') return words;
    if (rest[0] == '"') {
      words.push_back(quoted(rest));
      continue;
    }
    size_t const end = rest.find_first_of(" \t\r");
    words.emplace_back(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end);
    if (words.back() == "==") {
      if (std::string_view const raw = trimmed(rest); !raw.empty()) words.emplace_back(raw);
      return words;
    }
  }
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
  std::string line;
  bool verbatim = false;
  for (std::string const& word : words) {
    line += line.empty() ? "" : " ";
    line += verbatim ? word : word == "==" ? word : typedWord(word);
    verbatim = word == "==";
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
