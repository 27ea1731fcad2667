// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>
#include <limits>
#include <string>
#include <vector>

#include "framework/trace/Counter.h"
#include "framework/trace/MsgDesc.h"
#include "framework/trace/RingBuf.h"

namespace Ringlog {

/// A record of the ring, readable.
struct Record {
  /// The statement that wrote it: facility, level, file, line, function, signature, format.
  MsgDesc const* statement;
  /// Numbers the records of a ring in the order of writing; a gap means that records were skipped.
  /// Wraps at 2^32.
  U32 sequence;
  /// The time stamp as it was read, and what it is in wall time.
  U64 counter;
  TimeLine::Wall time;
  /// The signature, ": " and the message with its arguments.
  std::string text;
};

inline constexpr size_t kAllRecords = std::numeric_limits<size_t>::max();

/// The last `last` records that are still whole, oldest first. Works on a copy of the ring, so
/// that it may be traced to meanwhile. A record that is torn, half-written or partly overwritten
/// is left out. Takes time linear in the size of the ring.
std::vector<Record> decode(RingBuf const& ring = defaultRinglogHandle, size_t last = kAllRecords);

/// Where the whole records are, oldest first: what decode() renders, without rendering it.
std::vector<U64> wholeRecords(RingBuf const& ring = defaultRinglogHandle);

/// The record in one line, without line end:
/// "2024-05-01T12:00:00.123456Z BfnMacRewriteSm:9 rewrite/BfnMacRewriteSm.cpp:42 <text>".
std::ostream& operator<<(std::ostream& stream, Record const& record);

/// Writes the last `last` records, a line each, and a line about each gap between them.
void print(std::ostream& stream, RingBuf const& ring = defaultRinglogHandle,
           size_t last = kAllRecords);

}  // namespace Ringlog
