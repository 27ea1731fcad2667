// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <cstddef>
#include <stdexcept>

#include "framework/core/Types.h"
#include "host/packets/Wire.h"

namespace Host::Packets {

constexpr Kiv::U32 kNanosecondsPerSecond = 1'000'000'000;

/// A capture file cannot be read or written. The text names the file and what was expected of it.
class CaptureError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The unit of the time stamps in a capture file.
enum class TimeUnit : Kiv::U8 { Microseconds, Nanoseconds };

/// When a frame was captured, since 1970 in UTC.
struct Timestamp {
  Kiv::U64 seconds = 0;
  Kiv::U32 nanoseconds = 0;  ///< below kNanosecondsPerSecond

  friend auto operator<=>(Timestamp const&, Timestamp const&) = default;
};

/// One record of a capture.
struct CapturedFrame {
  Timestamp time;
  /// What was captured of the frame.
  Bytes bytes;
  /// The length of the frame as it was sent; more than `bytes` when the capture cut it.
  size_t wireLength = 0;
};

/// The most that is kept of a frame, in bytes; the largest that capture programs use.
inline constexpr size_t kMaxSnapLength = 262'144;

}  // namespace Host::Packets
