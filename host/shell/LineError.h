// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "host/language/InputError.h"

namespace Host {

/// The line, or a part of a long one, and below it a caret under the word with that number, or
/// after the last one; empty when the line has no such word. Ends with a line end.
std::string caretAt(std::string_view line, size_t word);

/// Why a line failed, for people and for programs.
struct LineError {
  /// An error that has no place in a line.
  explicit LineError(std::string words) : text(std::move(words)) {}
  /// The line with that number is wrong.
  LineError(std::string const& name, size_t number, std::string_view source,
            InputError const& error);

  /// {"error", "file", "line", "column", "expected", "found"}; what is not known is null.
  nlohmann::json json() const;

  /// In one line, or more.
  std::string text;
  /// The line, or a part of a long one, and a caret under what is wrong; empty when that is not a
  /// part of the line. Ends with a line end.
  std::string caret;
  nlohmann::json file;
  nlohmann::json line;
  /// In characters, from 1.
  nlohmann::json column;
  nlohmann::json expected;
  nlohmann::json found;
};

}  // namespace Host
