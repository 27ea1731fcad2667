#pragma once

#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"

namespace Kiv {

/// Where a framework object gets the time from, so that a test can hand it another time. Seconds
/// since some fixed point of the clock's own; never going back.
class Clock : public PtrInterface {
 public:
  virtual double now() const = 0;

  /// Whether time passes between two readings without anybody's doing. Who reads such a clock in a
  /// tight loop may leave out readings; any other clock stands still unless it is set, and has to
  /// be read each time.
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
