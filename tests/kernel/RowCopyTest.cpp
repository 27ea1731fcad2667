// SPDX-License-Identifier: Apache-2.0
#include "kernel/RowCopy.h"

#include <array>
#include <gtest/gtest.h>
#include <map>
#include <random>

#include "tests/support/Seed.h"

namespace {

using BfnKernel::RowCopy;
using Kiv::U64;

RowCopy copyOf(std::vector<U64> const& keys) {
  RowCopy copy;
  copy.roomIs(keys.size());
  std::vector<U64> actions;
  for (U64 const key : keys) actions.push_back(~key);
  EXPECT_TRUE(copy.add(keys, actions));
  return copy;
}

TEST(RowCopy, ARowIsGivenOnceForEachHint) {
  RowCopy copy = copyOf({1, 2, 3});
  EXPECT_EQ(copy.take(2), std::nullopt) << "not announced";
  copy.hint(2);
  EXPECT_EQ(copy.take(2), ~U64{2});
  EXPECT_EQ(copy.take(2), std::nullopt) << "once";
  copy.hint(4);
  EXPECT_EQ(copy.take(4), std::nullopt) << "not there";
  EXPECT_EQ(copy.taken(), 1u);
}

TEST(RowCopy, OneThatIsReadEndsTheHintsBeforeIt) {
  RowCopy copy = copyOf({1, 2, 3});
  for (U64 const key : {1u, 2u, 3u}) copy.hint(key);
  EXPECT_EQ(copy.take(2), ~U64{2});
  EXPECT_EQ(copy.take(1), std::nullopt);
  EXPECT_EQ(copy.take(3), ~U64{3});
}

TEST(RowCopy, OnlyTheLastHintsHold) {
  RowCopy copy = copyOf({1, 2});
  copy.hint(1);
  for (size_t i = 0; i < RowCopy::kAhead; ++i) copy.hint(2);
  EXPECT_EQ(copy.take(1), std::nullopt);
  EXPECT_EQ(copy.take(2), ~U64{2});
}

TEST(RowCopy, MoreRowsThanThereIsRoomForAreRefused) {
  RowCopy copy;
  EXPECT_TRUE(copy.empty());
  EXPECT_EQ(copy.take(1), std::nullopt);
  copy.roomIs(2);
  EXPECT_FALSE(copy.empty());
  std::array<U64, 3> const three{1, 2, 3};
  EXPECT_FALSE(copy.add(three, three));
  copy.clear();
  EXPECT_TRUE(copy.empty());
}

TEST(RowCopy, TheRowOfKeyZeroIsLeftOut) {
  RowCopy copy = copyOf({0, 1});
  copy.hint(0);
  EXPECT_EQ(copy.take(0), std::nullopt);
}

TEST(RowCopy, HoldsWhatAMapHolds) {
  std::mt19937_64 random(BfnTest::testSeed());
  std::map<U64, U64> rows;
  // Keys of few bits, which collide, and of many.
  for (int i = 0; i < 5000; ++i) rows[random() & (i % 2 == 0 ? 0x0fff'0000u : ~U64{0})] = random();
  RowCopy copy;
  copy.roomIs(rows.size());
  for (auto const& [key, action] : rows) ASSERT_TRUE(copy.add({&key, 1}, {&action, 1}));
  rows.erase(0);
  for (auto const& [key, action] : rows) {
    copy.hint(key);
    ASSERT_EQ(copy.take(key), action);
    copy.hint(key + 1);
    ASSERT_EQ(copy.take(key + 1).has_value(), rows.contains(key + 1));
  }
}

}  // namespace
