// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/Counter.h"

#include <gtest/gtest.h>

namespace {

using Ringlog::EventScope;
using Ringlog::TimeLine;
using Ringlog::U64;
using std::chrono::milliseconds;
using std::chrono::seconds;

TimeLine::Wall wall(int s) {
  return TimeLine::Wall(seconds(s));
}
TimeLine::Steady steady(int s) {
  return TimeLine::Steady(seconds(s));
}

U64 nowIn() {
  U64 const stamp = EventScope::now();
  // The counter may tick slowly, so wait until it has moved.
  while (Ringlog::readCounter() == stamp) continue;
  return stamp;
}

TEST(EventScope, GivesEveryTraceOfOneEventTheSameStamp) {
  U64 first;
  {
    EventScope const event;
    first = nowIn();
    EXPECT_EQ(nowIn(), first);
  }
  EventScope const next;
  EXPECT_NE(nowIn(), first);
}

TEST(EventScope, IsTheOutermostOneWhenNested) {
  EventScope const outer;
  U64 inner;
  {
    EventScope const nested;
    inner = nowIn();
  }
  EXPECT_EQ(nowIn(), inner);
  {
    EventScope const nested;
    EXPECT_EQ(nowIn(), inner);
  }
}

TEST(EventScope, TakesAReadingThatIsKnown) {
  EventScope const event(123456);
  EXPECT_EQ(EventScope::now(), 123456U);
  EventScope const nested(777);
  EXPECT_EQ(EventScope::now(), 123456U) << "the outermost counts";
}

TEST(EventScope, TakesAFreshReadingAfterEach256Records) {
  EventScope const event;
  for (int stretch = 0; stretch < 3; ++stretch) {
    U64 const first = nowIn();
    for (int i = 1; i < 256; ++i) ASSERT_EQ(EventScope::now(), first) << i;
    ASSERT_NE(EventScope::now(), first);
    for (int i = 1; i < 256; ++i) EventScope::now();
  }
}

TEST(EventScope, CountsItsRecordsAnew) {
  {
    EventScope const event;
    for (int i = 0; i < 200; ++i) EventScope::now();
  }
  for (int i = 0; i < 1000; ++i) EventScope::now();
  EventScope const event;
  U64 const first = nowIn();
  for (int i = 1; i < 256; ++i) ASSERT_EQ(EventScope::now(), first) << i;
}

TEST(EventScope, EndsWhenAnExceptionUnwindsIt) {
  try {
    EventScope const event;
    nowIn();
    throw 1;
  } catch (int) {
  }
  U64 const first = nowIn();
  EXPECT_NE(nowIn(), first);
}

TEST(TimeLine, InterpolatesBetweenItsMoments) {
  TimeLine const line({1000, steady(510)}, {3000, steady(520)}, wall(20));
  EXPECT_EQ(line.at(1000), wall(10));
  EXPECT_EQ(line.at(2000), wall(15));
  EXPECT_EQ(line.at(3000), wall(20));
}

TEST(TimeLine, ContinuesAfterItsLastMomentAndBeforeItsFirst) {
  TimeLine const line({1000, steady(510)}, {3000, steady(520)}, wall(20));
  EXPECT_EQ(line.at(3200), wall(21));
  EXPECT_EQ(line.at(800), wall(9));
}

TEST(TimeLine, IsOneMomentWhenTheCounterHasNotMoved) {
  TimeLine const line({1000, steady(510)}, {1000, steady(510)}, wall(10));
  EXPECT_EQ(line.at(5000), wall(10));
}

// Between its moments the wall clock was set back by an hour.
TEST(TimeLine, RunsForwardAlsoWhenTheWallClockWasSetBack) {
  TimeLine const line({1000, steady(510)}, {3000, steady(520)}, wall(20 - 3600));
  EXPECT_EQ(line.at(1000), wall(10 - 3600));
  EXPECT_LT(line.at(1000), line.at(2000));
  EXPECT_LT(line.at(2000), line.at(3200));
}

TEST(TimeLine, FindsTheCurrentTime) {
  TimeLine::begin();
  auto const before = std::chrono::system_clock::now();
  U64 const counter = Ringlog::readCounter();
  TimeLine const line = TimeLine::current();
  EXPECT_LT(std::chrono::abs(line.at(counter) - before), seconds(1));
}

}  // namespace
