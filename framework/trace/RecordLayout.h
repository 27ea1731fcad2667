// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Types.h"

namespace Ringlog {

using Kiv::U32;
using Kiv::U64;

/// Number of a message within its trace file; 0 before the statement's first run.
using MsgId = U32;

/// The most bytes of one argument that are recorded; a longer text is cut there, and the record
/// says how long it was.
inline constexpr U32 kMaxArgBytes = 200;

/// The layout of a record: three words of header, then the arguments, each in whole words.
///
///   word 0  check over the record's position in the history of the ring and all words after this
///   word 1  time stamp
///   word 2  sequence number of the record (32 bits), size in words (10), file (10), message (12)
struct RecordLayout {
  static constexpr U32 kHeaderWords = 3;
  static constexpr U32 kMaxWords = (1U << 10) - 1;
  static constexpr U32 kMaxFiles = 1U << 10;
  static constexpr U32 kMaxMsgs = 1U << 12;

  struct Identity {
    U32 sequence;
    U32 words;
    U32 file;
    MsgId msg;
  };

  static constexpr U64 pack(Identity const& id) {
    return U64{id.sequence} << 32 | U64{id.words} << 22 | U64{id.file} << 12 | U64{id.msg};
  }
  static constexpr Identity unpack(U64 word) {
    return {static_cast<U32>(word >> 32), static_cast<U32>(word >> 22) & (kMaxWords),
            static_cast<U32>(word >> 12) & (kMaxFiles - 1),
            static_cast<U32>(word) & (kMaxMsgs - 1)};
  }

  /// One step of the check: one-to-one in each operand, so that a change within one word is always
  /// found, and several changes except for one chance in 2^64.
  static constexpr U64 mix(U64 check, U64 word) {
    check += word;
    check ^= check >> 32;
    return check * 0x9E3779B97F4A7C15U;
  }

  /// The check of a record at that position with that time stamp, before its other words. The
  /// position is scattered first: a record left over from an earlier round is off by some rounds,
  /// which a few wrong bits of its time must not make up for. A record that the text of an argument
  /// contains is right only if the text was made for its position, and that is a secret of the
  /// ring.
  static constexpr U64 start(U64 position, U64 time) { return mix(mix(0, position), time); }
};

}  // namespace Ringlog
