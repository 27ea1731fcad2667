// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

namespace Host {

/// Reads characters from a terminal: UTF-8, one at a time, and as a whole what the terminal marks
/// as pasted.
class KeyReader {
 public:
  enum class Result { Character, End, Interrupted };

  /// `interrupted` is asked before each wait and when a signal ends it; `resized` is called
  /// whenever one does.
  KeyReader(int file, std::function<bool()> interrupted, std::function<void()> signalled);

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
  std::function<bool()> interrupted_;
  std::function<void()> signalled_;
  std::string ahead_;  ///< bytes read too far
  std::string block_;
  bool pasted_ = false;
  bool damaged_ = false;
};

}  // namespace Host
