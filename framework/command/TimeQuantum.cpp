// SPDX-License-Identifier: Apache-2.0
#include "framework/command/TimeQuantum.h"

#include <algorithm>

namespace Agent {

void TimeQuantum::begin(double start, double length) {
  start_ = lastReading_ = start;
  length_ = length;
  skips_ = skipsLeft_ = 0;
  expired_ = false;
}

bool TimeQuantum::expiredNow(Kiv::Clock const& clock) {
  if (expired_) return true;
  double const now = clock.now();
  expired_ = !(now - start_ < length_);
  if (expired_) {
    skips_ = skipsLeft_ = 0;
    return true;
  }
  if (clock.advancesByItself()) {
    double const looks = skips_ - skipsLeft_ + 1;
    double const perLook = std::max(now - lastReading_, 0.0) / looks;
    double const allowed = length_ / 64;
    skips_ =
        perLook * kMaxSkipped <= allowed ? kMaxSkipped : static_cast<Kiv::U32>(allowed / perLook);
    skipsLeft_ = skips_;
  }
  lastReading_ = now;
  return false;
}

}  // namespace Agent
