// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

#include "framework/core/EventScope.h"
#include "framework/core/Types.h"

namespace Ringlog {
/// Turns counter readings into wall time. The length of a tick is measured by the steady clock; the
/// wall clock is read once, when the records are decoded. So times of one decoding never run
/// backwards, also when the wall clock was set in between: all of them then use the new setting.
class TimeLine {
 public:
  using Wall = std::chrono::system_clock::time_point;
  using Steady = std::chrono::steady_clock::time_point;
  struct Moment {
    U64 counter;
    Steady steady;
  };

  /// From the process's first trace to now.
  static TimeLine current();
  /// Notes the moment of the first trace; later calls do nothing.
  static void begin();

  /// `wall` is the wall time of the last moment.
  TimeLine(Moment first, Moment last, Wall wall);
  Wall at(U64 counter) const;

 private:
  U64 lastCounter_;
  Wall lastWall_;
  double nanosecondsPerTick_;
};

}  // namespace Ringlog
