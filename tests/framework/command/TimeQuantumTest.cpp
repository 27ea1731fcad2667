// SPDX-License-Identifier: Apache-2.0
#include "framework/command/TimeQuantum.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

using namespace Agent;

/// A clock that advances by a fixed amount for each step of the work, and counts its readings.
class WorkClock final : public Kiv::Clock {
 public:
  explicit WorkClock(bool advancesByItself) : advancesByItself_(advancesByItself) {}

  double now() const override {
    ++readings_;
    return now_;
  }
  bool advancesByItself() const override { return advancesByItself_; }
  void work(double seconds) { now_ += seconds; }
  int readings() const { return readings_; }

 private:
  bool advancesByItself_;
  double now_ = 100;
  mutable int readings_ = 0;
};

/// Steps of the given length until the quantum is used up; how long that took.
double runUntilExpired(TimeQuantum& quantum, WorkClock& clock, double step,
                       bool readClock = false) {
  double worked = 0;
  do {
    clock.work(step);
    worked += step;
  } while (!quantum.expired(clock, readClock));
  return worked;
}

TEST(TimeQuantum, AClockThatIsSetIsReadAtEveryLook) {
  auto const clock = Kiv::make<WorkClock>(false);
  TimeQuantum quantum;
  quantum.begin(100, 0.25);
  for (int i = 0; i < 1000; ++i) EXPECT_FALSE(quantum.expired(*clock, false));
  EXPECT_EQ(clock->readings(), 1000);
  clock->work(0.25);
  EXPECT_TRUE(quantum.expired(*clock, false));
}

TEST(TimeQuantum, ShortStepsReadARunningClockOnceInSeventeenLooks) {
  auto const clock = Kiv::make<WorkClock>(true);
  TimeQuantum quantum;
  quantum.begin(100, 0.005);
  double const worked = runUntilExpired(quantum, *clock, 200e-9);
  EXPECT_LE(clock->readings(), 25000 / 17 + 3);
  EXPECT_GE(worked, 0.005 - 1e-9);
  EXPECT_LE(worked, 0.005 + 17 * 200e-9);
}

TEST(TimeQuantum, LongStepsReadARunningClockAtEveryLook) {
  auto const clock = Kiv::make<WorkClock>(true);
  TimeQuantum quantum;
  quantum.begin(100, 0.005);
  EXPECT_LE(runUntilExpired(quantum, *clock, 150e-6), 0.005 + 2 * 150e-6);
  EXPECT_EQ(clock->readings(), 34);
}

TEST(TimeQuantum, OverrunsByLittleWhateverTheLengthOfEvenSteps) {
  for (double step = 10e-9; step < 1e-3; step *= 1.7) {
    auto const clock = Kiv::make<WorkClock>(true);
    TimeQuantum quantum;
    quantum.begin(100, 0.005);
    EXPECT_LE(runUntilExpired(quantum, *clock, step), 0.005 * (1 + 1 / 64.0) + 2 * step) << step;
  }
}

TEST(TimeQuantum, StepsThatBecomeAHundredTimesLongerOverrunByTheSkippedLooksOnly) {
  auto const clock = Kiv::make<WorkClock>(true);
  TimeQuantum quantum;
  quantum.begin(100, 0.005);
  double worked = 0;
  while (worked < 0.0049) {
    clock->work(300e-9);
    worked += 300e-9;
    ASSERT_FALSE(quantum.expired(*clock, false));
  }
  worked += runUntilExpired(quantum, *clock, 30e-6);
  EXPECT_LE(worked, 0.006);
}

TEST(TimeQuantum, AskedForAReadingItLeavesNoneOut) {
  auto const clock = Kiv::make<WorkClock>(true);
  TimeQuantum quantum;
  quantum.begin(100, 0.005);
  for (int i = 0; i < 100; ++i) EXPECT_FALSE(quantum.expired(*clock, true));
  EXPECT_EQ(clock->readings(), 100);
  clock->work(1);
  EXPECT_TRUE(quantum.expired(*clock, true));
}

TEST(TimeQuantum, OnceUsedUpItStaysSoUntilTheNextBegin) {
  auto const clock = Kiv::make<WorkClock>(true);
  TimeQuantum quantum;
  quantum.begin(99, 0.5);
  EXPECT_TRUE(quantum.expired(*clock, false));
  clock->work(-10);
  EXPECT_TRUE(quantum.expired(*clock, false));
  quantum.begin(clock->now(), 0.5);
  EXPECT_FALSE(quantum.expired(*clock, false));
}

TEST(TimeQuantum, WithoutAPositiveLengthItIsUsedUpAtOnce) {
  auto const clock = Kiv::make<WorkClock>(true);
  for (double const length : {0.0, -1.0, std::nan("")}) {
    TimeQuantum quantum;
    quantum.begin(100, length);
    EXPECT_TRUE(quantum.expired(*clock, false)) << length;
  }
}

TEST(TimeQuantum, AClockThatWentBackExpiresNothing) {
  auto const clock = Kiv::make<WorkClock>(true);
  TimeQuantum quantum;
  quantum.begin(200, 0.005);
  for (int i = 0; i < 100; ++i) EXPECT_FALSE(quantum.expired(*clock, false));
}

}  // namespace
