// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Clock.h"

#include <gtest/gtest.h>

namespace {

using namespace Kiv;

TEST(ManualClock, ShowsWhatItWasSetTo) {
  Ptr<ManualClock> const clock = make<ManualClock>(3.5);
  EXPECT_EQ(clock->now(), 3.5);
  clock->advance(0.25);
  EXPECT_EQ(clock->now(), 3.75);
  clock->nowIs(10);
  EXPECT_EQ(clock->now(), 10);
  EXPECT_FALSE(clock->advancesByItself());
}

TEST(SteadyClock, NeverGoesBackAndAdvancesByItself) {
  Ptr<Clock const> const clock = make<SteadyClock>();
  double const start = clock->now();
  double last = start;
  while (last == start) {
    double const next = clock->now();
    ASSERT_GE(next, last);
    last = next;
  }
  EXPECT_TRUE(clock->advancesByItself());
}

}  // namespace
