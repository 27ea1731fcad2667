// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Types.h"
#include "host/packets/Wire.h"

namespace Host::Packets {

/// The internet checksum, summed up piece by piece: the one's complement of the one's complement
/// sum of all 16-bit words. Every piece but the last must have an even length; an odd last byte
/// counts as the upper half of a word.
///
///   InternetChecksum().add(header).value()   // 0 when a checksum inside `header` is right
class InternetChecksum {
 public:
  InternetChecksum& add(Bytes bytes);
  InternetChecksum& addWord(Kiv::U16 word);

  /// As a number, to be stored big-endian.
  Kiv::U16 value() const;

 private:
  // One's complement sums do not depend on the byte order of the words, so words are added as the
  // machine loads them, and only the result is turned.
  Kiv::U64 sum_ = 0;
};

}  // namespace Host::Packets
