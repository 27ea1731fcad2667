// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"

namespace Kiv {

/// A source of time, replaceable by tests. Seconds since a fixed point of the clock's own; never
/// decreasing.
class Clock : public PtrInterface {
 public:
  virtual double now() const = 0;

  /// Whether time passes between two readings by itself. A tight loop may skip readings of such a
  /// clock; any other clock changes only when it is set, and has to be read each time.
  virtual bool advancesByItself() const { return false; }

 protected:
  Clock() = default;
  ~Clock() override;
};

/// The machine's steady clock.
class SteadyClock final : public Clock {
 public:
  double now() const override;
  bool advancesByItself() const override { return true; }
};

/// A clock that shows what it was set to.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(double seconds = 0) : seconds_(seconds) {}

  double now() const override { return seconds_; }
  void nowIs(double seconds) { seconds_ = seconds; }
  void advance(double seconds) { seconds_ += seconds; }

 private:
  double seconds_;
};

}  // namespace Kiv
