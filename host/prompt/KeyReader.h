// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace Host {

/// Reads characters from a terminal: UTF-8, one at a time, and as a whole what the terminal marks
/// as pasted.
class KeyReader {
 public:
  enum class Result { Character, End, Interrupted };

  struct Hooks {
    /// Asked before each wait and when a signal ends it.
    std::function<bool()> interrupted;
    /// Called whenever a signal ends a wait.
    std::function<void()> signalled;
    /// Does what is due, before each wait; gives the seconds after which it is to be called again,
    /// if it is.
    std::function<std::optional<double>()> due;
  };
  KeyReader(int file, Hooks hooks);

  /// Waits for the next character. A byte that belongs to no character is left out and remembered.
  Result next(wchar_t& character);

  /// Whether the last character was pasted: then no key has a meaning but the end of a line.
  bool pasted() const { return pasted_; }
  /// Drops what is left of a pasted block.
  void dropPasted() { block_.clear(); }
  /// Whether bytes were left out since the last call.
  bool takeDamaged();

  /// What makes a terminal mark what is pasted, and not do so any more.
  static constexpr char kMarkPasted[] = "\x1b[?2004h";
  static constexpr char kDoNotMark[] = "\x1b[?2004l";

 private:
  Result readByte(char& byte);
  /// A byte that comes at once with the one before it; false when none does.
  bool followingByte(char& byte);
  /// After an escape: whether a pasted block follows, which is read.
  bool readBlock();
  /// The character at the start of the block.
  bool takeFromBlock(wchar_t& character);

  int file_;
  Hooks hooks_;
  std::string ahead_;  ///< bytes read too far
  std::string block_;
  bool pasted_ = false;
  bool damaged_ = false;
};

}  // namespace Host
