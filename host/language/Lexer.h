// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

/// The words of one line.
///
/// Words are separated by blanks. A `#` at the start of a word begins a comment. A word that begins
/// with a double quote ends with the next one and may hold blanks, and \" \\ and \xHH. After a word
/// `==` the rest of the line is one verbatim word, without the blanks at its ends.
///
/// Throws InputError for an open quote and a wrong escape.
std::vector<std::string> splitWords(std::string_view line);

/// The same with where each word is.
struct PlacedWord {
  std::string text;
  /// Bytes of the line, with the quotes.
  size_t begin;
  size_t end;
  bool quoted;
};
std::vector<PlacedWord> placedWords(std::string_view line);

/// The same for a line of the command language: in one that begins with "expect" and has no "==",
/// the rest is one verbatim word after "contains" and after "one of", too.
std::vector<PlacedWord> lineWords(std::string_view line);

/// The word as splitWords() reads it back, in quotes when it needs them.
std::string quotedWord(std::string_view word);

/// The same, in quotes only when splitWords() would make something else of it.
std::string typedWord(std::string_view word);

/// A line that splitWords() makes these words of.
std::string lineOf(std::span<std::string const> words);

/// The word as an error text shows it: quotedWord() of its first 60 characters, with "..." after
/// them when there are more. A character is a UTF-8 sequence, or a byte that belongs to none.
std::string excerpt(std::string_view word);

}  // namespace Host
