// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Clock.h"
#include "framework/core/Types.h"

namespace Agent {

/// Says when a slice has used up its time, without reading the clock at every call.
///
/// A reading of a real clock costs as much as a step of a light walk. So where a clock advances by
/// itself and the steps so far were short, up to kMaxSkipped calls in a row answer from the last
/// reading: as many as are expected to take at most 1/64 of the quantum. A caller whose next step
/// may be of another kind than the last one asks for a reading. Clocks that are set are read at
/// every call.
class TimeQuantum {
 public:
  static constexpr Kiv::U32 kMaxSkipped = 16;

  /// A quantum of `length` seconds from `start` on. Zero, negative or not a number: used up at
  /// once.
  void begin(double start, double length);
  double start() const { return start_; }

  /// Whether the quantum is used up; once it is, it stays so.
  bool expired(Kiv::Clock const& clock, bool readClock) {
    if (skipsLeft_ > 0 && !readClock) {
      --skipsLeft_;
      return false;
    }
    return expiredNow(clock);
  }

 private:
  bool expiredNow(Kiv::Clock const& clock);

  double start_ = 0;
  double length_ = 0;
  double lastReading_ = 0;
  Kiv::U32 skips_ = 0;      // granted at the last reading
  Kiv::U32 skipsLeft_ = 0;  // not yet used of them
  bool expired_ = false;
};

}  // namespace Agent
