// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

#include "framework/core/Types.h"

namespace Duolog {

using Kiv::U32;
using Kiv::U64;

/// The pieces of a trace that are string literals, as a mask: bit n for piece n. They are part of
/// the format; every other piece is an argument, recorded each time.
struct Literals {
  U64 mask = 0;
  size_t pieces = 0;
};

/// Reads the source text of a trace's pieces. A piece is a literal when it consists of nothing but
/// string literals: its type does not say so, `up ? "up" : "no "` being an array, too. Commas
/// inside parentheses, brackets, braces and quotes are not separators. Not for raw or prefixed
/// literals, nor for a comma between template arguments outside of parentheses: the number of
/// pieces is then wrong, which does not compile.
// One scanner, at compile time: cut in pieces it would be longer.
// NOLINTNEXTLINE(readability-function-cognitive-complexity)
consteval Literals literalsOf(std::string_view source) {
  // After one of these, a quote separates the digits of a number.
  auto const isAlphanumeric = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  };
  Literals found;
  int depth = 0;
  bool hasText = false;
  bool hasOther = false;
  auto const endPiece = [&] {
    if (hasText && !hasOther && found.pieces < 64) found.mask |= U64{1} << found.pieces;
    ++found.pieces;
    hasText = hasOther = false;
  };
  for (size_t at = 0; at < source.size(); ++at) {
    char const c = source[at];
    bool const opensCharacter = c == '\'' && (at == 0 || !isAlphanumeric(source[at - 1]));
    if (c == '"' || opensCharacter) {
      hasText = true;
      if (opensCharacter) hasOther = true;
      for (++at; at < source.size() && source[at] != c; ++at) {
        if (source[at] == '\\') ++at;
      }
    } else if (c == ',' && depth == 0) {
      endPiece();
    } else if (c != ' ') {
      hasOther = true;
      if (c == '(' || c == '[' || c == '{') ++depth;
      if (c == ')' || c == ']' || c == '}') --depth;
    }
  }
  if (hasText || hasOther) endPiece();
  return found;
}

}  // namespace Duolog
