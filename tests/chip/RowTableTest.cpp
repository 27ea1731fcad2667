// SPDX-License-Identifier: Apache-2.0
#include "chip/RowTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>

#include "tests/support/Seed.h"

namespace {

using BfnChip::ActionBytes;
using BfnChip::KeyBytes;
using BfnChip::packed;
using BfnChip::Row;
using BfnChip::RowTable;
using ::testing::ElementsAre;
using ::testing::Field;

KeyBytes key(unsigned n) {
  return {5,
          static_cast<Kiv::U8>(n),
          static_cast<Kiv::U8>(n >> 8),
          10,
          static_cast<Kiv::U8>(n >> 16),
          0,
          1,
          1};
}

ActionBytes action(unsigned n) {
  return {static_cast<Kiv::U8>(n), 1, 2, 3, 4, 5, 6, 7};
}

TEST(PackedBytes, FirstByteIsLowestAndAllComeBack) {
  KeyBytes const bytes = {1, 2, 3, 4, 5, 6, 7, 0xF8};
  EXPECT_EQ(packed(bytes), 0xF807060504030201u);
  EXPECT_EQ(BfnChip::unpacked(packed(bytes)), bytes);
}

TEST(RowTable, FindsNothingWhenEmpty) {
  RowTable table;
  EXPECT_EQ(table.find(packed(key(1))), nullptr);
  EXPECT_FALSE(table.erase(packed(key(1))));
  EXPECT_EQ(table.size(), 0u);
}

TEST(RowTable, InsertedRowIsFoundWithItsActionAndNoHits) {
  RowTable table;
  table.insert(packed(key(1)), packed(action(9)));
  ASSERT_NE(table.find(packed(key(1))), nullptr);
  EXPECT_EQ(table.find(packed(key(1)))->action, packed(action(9)));
  EXPECT_EQ(table.find(packed(key(1)))->word, 0u);
  EXPECT_EQ(table.find(packed(key(2))), nullptr);
}

TEST(RowTable, ReusedSlotStartsWithNoHits) {
  RowTable table;
  table.insert(packed(key(1)), packed(action(1))).word = 7;
  table.insert(packed(key(2)), packed(action(2)));
  EXPECT_TRUE(table.erase(packed(key(1))));
  EXPECT_EQ(table.insert(packed(key(3)), packed(action(3))).word, 0u);
  EXPECT_EQ(table.size(), 2u);
}

TEST(RowTable, SortedListsRowsByKeyBytesWhateverTheOrderOfInsertion) {
  RowTable table;
  for (unsigned n : {3u, 1u, 2u}) table.insert(packed(key(n)), packed(action(n)));
  table.erase(packed(key(2)));
  EXPECT_THAT(table.sorted(), ElementsAre(Field(&Row::key, key(1)), Field(&Row::key, key(3))));
}

TEST(RowTable, AgreesWithAnOrderedMapOverRandomInsertsAndErases) {
  unsigned const seed = BfnTest::testSeed(std::random_device{}());
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  RowTable table;
  std::map<KeyBytes, ActionBytes> model;
  for (unsigned step = 0; step < 300'000; ++step) {
    // The range of keys breathes, so that the table fills and empties by turns.
    unsigned const range = (step / 30'000) % 2 == 0 ? 20'000 : 500;
    KeyBytes const k = key(static_cast<unsigned>(random()) % range);
    ActionBytes const a = action(static_cast<unsigned>(random()));
    if (random() % 2 == 0) {
      RowTable::Slot* row = table.find(packed(k));
      ASSERT_EQ(row != nullptr, model.contains(k)) << "step " << step;
      if (row == nullptr) table.insert(packed(k), packed(a)).word = 1;
      if (row != nullptr) row->action = packed(a);
      model[k] = a;
    } else {
      ASSERT_EQ(table.erase(packed(k)), model.erase(k) == 1) << "step " << step;
    }
    ASSERT_EQ(table.size(), model.size());
  }
  auto const rows = table.sorted();
  ASSERT_EQ(rows.size(), model.size());
  auto expected = model.begin();
  for (Row const& row : rows) {
    EXPECT_EQ(row.key, expected->first);
    EXPECT_EQ(row.action, expected->second);
    ASSERT_NE(table.find(packed(row.key)), nullptr);
    ++expected;
  }
}

// Small tables, filled to their limit: in some of them rows are displaced past the last home.
TEST(RowTable, RowsPushedPastTheEndAreFoundAndErased) {
  for (unsigned first = 0; first < 20'000; first += 9) {
    RowTable table;
    for (unsigned n = first; n < first + 9; ++n) table.insert(packed(key(n)), n);
    for (unsigned n = first; n < first + 9; ++n) {
      ASSERT_NE(table.find(packed(key(n))), nullptr) << n;
      ASSERT_EQ(table.find(packed(key(n)))->action, n);
    }
    for (unsigned n = first; n < first + 9; ++n) {
      ASSERT_TRUE(table.erase(packed(key(n)))) << n;
      ASSERT_EQ(table.find(packed(key(n))), nullptr) << n;
    }
    ASSERT_EQ(table.size(), 0u);
  }
}

TEST(RowTable, HitsClearTouchesRowsOnly) {
  RowTable table;
  table.insert(packed(key(1)), 1).word = 5;
  table.hitsClear();
  EXPECT_EQ(table.find(packed(key(1)))->word, 0u);
  EXPECT_EQ(table.sorted().size(), 1u);
}

}  // namespace
