// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Host {

/// What a line has where it is wrong.
struct InputFault {
  /// The number of the word, from 0; the number of all words for the end of the line.
  std::optional<size_t> word;
  /// In place of a word: the byte of the line.
  std::optional<size_t> byte;
  /// What could have been there.
  std::vector<std::string> expected;
  /// The word that is there; none at the end of the line.
  std::optional<std::string> found;
};

/// A line cannot be carried out, and nothing of it has been. The text says what was expected.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  InputError(std::string const& text, InputFault fault)
      : std::runtime_error(text), fault_(std::move(fault)) {}

  /// Empty where no single word is wrong.
  InputFault const& fault() const { return fault_; }
  /// The words that were read are part of a line, in which there are that many before them.
  void moveBy(size_t words) {
    if (fault_.word) *fault_.word += words;
  }

 private:
  InputFault fault_;
};

/// Calls `f`, which reads words of a line from the one with that number on.
template <class F>
auto readingFrom(size_t word, F const& f) {
  try {
    return f();
  } catch (InputError& error) {
    error.moveBy(word);
    throw;
  }
}

}  // namespace Host
