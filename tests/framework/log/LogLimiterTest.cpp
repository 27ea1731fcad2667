// SPDX-License-Identifier: Apache-2.0
#include "framework/log/LogLimiter.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <vector>

namespace {

using Kiv::LogLimiter;
using Kiv::U64;
using ::testing::AllOf;
using ::testing::HasSubstr;

class OnePerMinute : public ::testing::Test {
 protected:
  LogLimiter limiter{60.0, 1.0};
};

TEST_F(OnePerMinute, LetsOneThroughPerInterval) {
  EXPECT_TRUE(limiter.ok(1, 1000.0));
  EXPECT_FALSE(limiter.ok(1, 1000.0));
  EXPECT_FALSE(limiter.ok(1, 1059.9));
  EXPECT_TRUE(limiter.ok(1, 1060.0));
  EXPECT_FALSE(limiter.ok(1, 1061.0));
}

TEST_F(OnePerMinute, LimitsEachHashByItself) {
  EXPECT_TRUE(limiter.ok(1, 0));
  EXPECT_TRUE(limiter.ok(2, 0));
  EXPECT_FALSE(limiter.ok(1, 1));
  EXPECT_FALSE(limiter.ok(2, 1));
}

TEST(LogLimiter, NeverExceedsTheBurstInAnyInterval) {
  LogLimiter limiter(10.0, 3.0);
  std::mt19937 random(7);
  std::vector<double> sent;
  double now = 0;
  for (int i = 0; i < 10000; ++i) {
    now += std::uniform_int_distribution<>(0, 16)(random) / 4.0;
    if (limiter.ok(1, now)) sent.push_back(now);
  }
  ASSERT_GT(sent.size(), 4U);
  for (size_t i = 3; i < sent.size(); ++i) ASSERT_GE(sent[i] - sent[i - 3], 10.0) << i;
}

TEST(LogLimiter, StretchesTheIntervalForABurstBelowOne) {
  LogLimiter limiter(60.0, 0.5);
  EXPECT_TRUE(limiter.ok(1, 0));
  EXPECT_FALSE(limiter.ok(1, 119));
  EXPECT_TRUE(limiter.ok(1, 120));
}

TEST(LogLimiter, SetsNoLimitForAnIntervalOfZero) {
  LogLimiter limiter(0, 1.0);
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(limiter.ok(1, 0));
}

TEST_F(OnePerMinute, StartsAnewWhenTimeStepsBack) {
  EXPECT_TRUE(limiter.ok(1, 1000));
  EXPECT_TRUE(limiter.ok(1, 10));
  EXPECT_FALSE(limiter.ok(1, 11));
}

TEST_F(OnePerMinute, ReportsWhatItHeldBackOnce) {
  ASSERT_TRUE(limiter.ok(1, 0));
  EXPECT_EQ(limiter.takeHeldBack(), 0U);
  for (int i = 0; i < 3; ++i) ASSERT_FALSE(limiter.ok(1, 1));
  ASSERT_TRUE(limiter.ok(2, 1));
  EXPECT_EQ(limiter.takeHeldBack(), 0U) << "held back under another hash";
  ASSERT_TRUE(limiter.ok(1, 60));
  EXPECT_EQ(limiter.takeHeldBack(), 3U);
  limiter.heldBackAdd(2);
  EXPECT_EQ(limiter.takeHeldBack(), 2U) << "given back";
  EXPECT_EQ(limiter.takeHeldBack(), 0U);
}

TEST_F(OnePerMinute, ForgetsTheHashAskedAboutLongestAgoWhenFull) {
  for (U64 hash = 0; hash < LogLimiter::kMaxHashes; ++hash) ASSERT_TRUE(limiter.ok(hash, 0));
  ASSERT_FALSE(limiter.ok(1, 1));
  ASSERT_FALSE(limiter.ok(0, 1));  // now 2 is the oldest
  ASSERT_TRUE(limiter.ok(5000, 1));
  EXPECT_EQ(limiter.hashes(), LogLimiter::kMaxHashes);
  EXPECT_FALSE(limiter.ok(0, 2));
  EXPECT_FALSE(limiter.ok(1, 2));
  EXPECT_TRUE(limiter.ok(2, 2)) << "forgotten, so its limit starts again";
  EXPECT_EQ(limiter.hashes(), LogLimiter::kMaxHashes);
}

TEST_F(OnePerMinute, ReportsWhatAForgottenHashHeldBackWithTheNextMessage) {
  ASSERT_TRUE(limiter.ok(7, 0));
  ASSERT_FALSE(limiter.ok(7, 0));
  ASSERT_FALSE(limiter.ok(7, 0));
  U64 reported = 0;
  for (U64 hash = 100; hash < 100 + LogLimiter::kMaxHashes; ++hash) {
    ASSERT_TRUE(limiter.ok(hash, 1));
    reported += limiter.takeHeldBack();
  }
  EXPECT_EQ(reported, 2U);
}

// Every refusal is reported exactly once, whatever is forgotten in between.
TEST(LogLimiter, AccountsForEveryRefusal) {
  LogLimiter limiter(5.0, 2.0);
  std::mt19937 random(11);
  std::uniform_int_distribution<U64> anyHash(0, 3 * LogLimiter::kMaxHashes);
  U64 refused = 0;
  U64 reported = 0;
  double now = 0;
  for (int i = 0; i < 200000; ++i) {
    now += 0.0001;
    if (limiter.ok(anyHash(random) % (i % 2 == 0 ? 50 : 10000), now)) {
      reported += limiter.takeHeldBack();
    } else {
      ++refused;
    }
    ASSERT_LE(limiter.hashes(), LogLimiter::kMaxHashes);
  }
  ASSERT_GT(refused, 1000U);
  for (U64 hash = 0; hash <= 2 * LogLimiter::kMaxHashes; ++hash) {
    ASSERT_TRUE(limiter.ok(hash % (LogLimiter::kMaxHashes + 50), now + 100 * (1 + double(hash))));
    reported += limiter.takeHeldBack();
  }
  for (U64 hash = 0; hash < 10000; ++hash) {
    ASSERT_TRUE(limiter.ok(hash, now + 1e6 + 10 * double(hash)));
    reported += limiter.takeHeldBack();
  }
  EXPECT_EQ(reported, refused);
}

TEST(LogLimiterDeathTest, RefusesALimitThatMakesNoSense) {
  EXPECT_DEATH(LogLimiter(60.0, 0.0),
               AllOf(HasSubstr("Failed(interval >= 0 && burst > 0 && burst <= kMaxBurst) log rate "
                               "limit of 0 in 60 s"),
                     HasSubstr("\"interval >= 0 && burst > 0 && burst <= kMaxBurst\" == nullptr")));
  EXPECT_DEATH(LogLimiter(-1.0, 1.0), HasSubstr("log rate limit of 1 in -1 s"));
  EXPECT_DEATH(LogLimiter(60.0, 1e300), HasSubstr("log rate limit of 1e+300 in 60 s"));
  EXPECT_DEATH(LogLimiter(60.0, NAN), HasSubstr("log rate limit of nan in 60 s"));
}

}  // namespace
