// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "framework/driver/TableDriver.h"

// What every driver has to do, whatever chip it is for. A driver's own suite instantiates it:
//
//   INSTANTIATE_TYPED_TEST_SUITE_P(MyChip, DriverConformance, MyChipUnderTest);
//
// with a class that has
//
//   explicit MyChipUnderTest(size_t capacity);  // a chip whose tables are empty and so large
//   BfnDriver::TableDriver& driver();
//   static constexpr bool kCountsHits;               // whether the chip counts at all
//   void packet(BfnTest::DriverKey const& key);      // looks a packet up that the row matches
//
// and, when its chip is not there on every machine,
//
//   static std::optional<std::string> whyNot();      // why its tests are skipped, if they are
//
// Rows are those of the rewrite table: keys and actions of 8 bytes.
namespace BfnTest {

using DriverKey = std::array<Kiv::U8, 8>;
using DriverAction = std::array<Kiv::U8, 8>;

/// The n-th of many keys, all different: match type 5, VLAN, source address, valid 1.
inline DriverKey driverKey(Kiv::U32 n) {
  Kiv::U32 const vlan = 1 + n % 4094;
  return {5,
          static_cast<Kiv::U8>(vlan),
          static_cast<Kiv::U8>(vlan >> 8),
          10,
          static_cast<Kiv::U8>(n >> 16),
          static_cast<Kiv::U8>(n >> 8),
          static_cast<Kiv::U8>(n),
          1};
}
/// An action that says what it was made from.
inline DriverAction driverAction(Kiv::U32 n) {
  return {static_cast<Kiv::U8>(n),
          static_cast<Kiv::U8>(n >> 8),
          2,
          0,
          static_cast<Kiv::U8>(n >> 16),
          0x44,
          0x33,
          0};
}

using DriverRows = std::map<DriverKey, DriverAction>;

template <class Chip>
class DriverConformance : public ::testing::Test {
 protected:
  using Status = BfnDriver::Status;
  using WriteResult = BfnDriver::WriteResult;
  using EraseResult = BfnDriver::EraseResult;
  using TableHandle = BfnDriver::TableHandle;
  using TableDriver = BfnDriver::TableDriver;
  using Change = BfnDriver::Change;

  static constexpr char const* kTable = "overlaySrcMacRewrite";

  void SetUp() override {
    if constexpr (requires { Chip::whyNot(); }) {
      if (auto const why = Chip::whyNot()) GTEST_SKIP() << *why;
    }
  }

  static TableHandle open(Chip& chip, Kiv::U32 session = 1, Kiv::U8 device = 0) {
    auto const handle =
        chip.driver().open({session, device, BfnId::BfnPipeId(0), "profile", kTable});
    EXPECT_TRUE(handle.has_value());
    return handle.value_or(TableHandle{0});
  }

  /// A chip and its table on device 0.
  struct Opened {
    explicit Opened(size_t capacity) : chip(capacity), table(open(chip)) {}

    WriteResult write(Kiv::U32 n, Kiv::U32 action) {
      return driver.write(table, driverKey(n), driverAction(action));
    }
    EraseResult erase(Kiv::U32 n) { return driver.erase(table, driverKey(n)); }
    Status read(Kiv::U32 n, DriverAction& action) const {
      return driver.readRow(table, driverKey(n), action);
    }
    void fill(Kiv::U32 count) {
      for (Kiv::U32 n = 0; n < count; ++n) ASSERT_EQ(write(n, n), WriteResult::Ok) << n;
    }
    size_t count() const { return driver.entryCount(table); }
    /// All rows, by a walk with room for that many at a time; a key that comes twice is a failure.
    DriverRows rows(size_t room = TableDriver::kWalkRoom) const {
      return walked(driver, table, room, [] {});
    }

    Chip chip;
    TableDriver& driver = chip.driver();
    TableHandle table;
  };

  template <class Between>
  static DriverRows walked(TableDriver const& driver, TableHandle table, size_t room,
                           Between const& between) {
    std::vector<Kiv::U8> keys(room * 8);
    std::vector<Kiv::U8> actions(room * 8);
    DriverRows found;
    BfnDriver::WalkCursor cursor;
    for (size_t batches = 0; !cursor.ended; ++batches) {
      size_t rows = ~size_t{0};
      EXPECT_EQ(driver.walk(table, cursor, keys, actions, rows), Status::Ok);
      if (::testing::Test::HasFailure() || batches > 1'000'000 || rows > room) {
        ADD_FAILURE() << "batch " << batches << ", rows " << rows;
        return found;
      }
      for (size_t i = 0; i < rows; ++i) {
        DriverKey key;
        DriverAction action;
        std::copy_n(keys.data() + 8 * i, 8, key.data());
        std::copy_n(actions.data() + 8 * i, 8, action.data());
        EXPECT_TRUE(found.emplace(key, action).second) << "row twice";
      }
      between();
    }
    return found;
  }

  static DriverRows rowsOf(Kiv::U32 from, Kiv::U32 to) {
    DriverRows rows;
    for (Kiv::U32 n = from; n < to; ++n) rows.emplace(driverKey(n), driverAction(n));
    return rows;
  }
};

TYPED_TEST_SUITE_P(DriverConformance);

TYPED_TEST_P(DriverConformance, CapacityIsExact) {
  using Suite = DriverConformance<TypeParam>;
  for (Kiv::U32 const capacity : {0u, 1u, 2u, 20u, 65'536u}) {
    SCOPED_TRACE(capacity);
    typename Suite::Opened at(capacity);
    EXPECT_EQ(at.driver.capacity(at.table), capacity);
    EXPECT_EQ(at.count(), 0u);
    at.fill(capacity);
    EXPECT_EQ(at.count(), capacity);
    for (Kiv::U32 more = 0; more < 3; ++more)
      EXPECT_EQ(at.write(capacity + more, 1), BfnDriver::WriteResult::TableFull);
    EXPECT_EQ(at.count(), capacity);
    EXPECT_EQ(at.rows(4096), Suite::rowsOf(0, capacity));
  }
}

TYPED_TEST_P(DriverConformance, AFullTableTakesAnOverwrite) {
  typename DriverConformance<TypeParam>::Opened at(20);
  at.fill(20);
  for (Kiv::U32 n = 0; n < 20; ++n) {
    EXPECT_EQ(at.write(n, 100 + n), BfnDriver::WriteResult::Ok);
    DriverAction action{};
    EXPECT_EQ(at.read(n, action), BfnDriver::Status::Ok);
    EXPECT_EQ(action, driverAction(100 + n));
  }
  EXPECT_EQ(at.count(), 20u);
}

TYPED_TEST_P(DriverConformance, AnEraseMakesRoomForOneRow) {
  using Suite = DriverConformance<TypeParam>;
  typename Suite::Opened at(20);
  at.fill(20);
  for (Kiv::U32 n = 0; n < 1000; ++n) {
    ASSERT_EQ(at.erase(n), BfnDriver::EraseResult::Ok) << n;
    EXPECT_EQ(at.count(), 19u);
    ASSERT_EQ(at.write(n + 20, n + 20), BfnDriver::WriteResult::Ok) << n;
    ASSERT_EQ(at.write(n + 21, 0), BfnDriver::WriteResult::TableFull) << n;
  }
  EXPECT_EQ(at.rows(), Suite::rowsOf(1000, 1020));
}

TYPED_TEST_P(DriverConformance, AnEraseOfNothingSaysSo) {
  typename DriverConformance<TypeParam>::Opened at(2);
  EXPECT_EQ(at.erase(1), BfnDriver::EraseResult::NotFound);
  at.write(1, 1);
  EXPECT_EQ(at.erase(2), BfnDriver::EraseResult::NotFound);
  EXPECT_EQ(at.erase(1), BfnDriver::EraseResult::Ok);
  EXPECT_EQ(at.erase(1), BfnDriver::EraseResult::NotFound);
  EXPECT_EQ(at.count(), 0u);
}

TYPED_TEST_P(DriverConformance, ARowIsReadAsItWasWrittenAndAnAbsentOneIsNotFound) {
  typename DriverConformance<TypeParam>::Opened at(2);
  DriverAction action = driverAction(77);
  EXPECT_EQ(at.read(1, action), BfnDriver::Status::NotFound);
  EXPECT_FALSE(at.driver.read(at.table, driverKey(1), action));
  EXPECT_EQ(action, driverAction(77)) << "untouched";
  at.write(1, 5);
  at.driver.prefetch(at.table, driverKey(1));
  EXPECT_EQ(at.read(1, action), BfnDriver::Status::Ok);
  EXPECT_EQ(action, driverAction(5));
  at.write(1, 6);
  EXPECT_TRUE(at.driver.read(at.table, driverKey(1), action));
  EXPECT_EQ(action, driverAction(6));
  at.erase(1);
  EXPECT_EQ(at.read(1, action), BfnDriver::Status::NotFound);
}

TYPED_TEST_P(DriverConformance, AWalkGivesEveryRowOnceWhateverTheRoom) {
  using Suite = DriverConformance<TypeParam>;
  for (Kiv::U32 const count : {0u, 1u, 63u, 64u, 65u, 5000u}) {
    typename Suite::Opened at(10'000);
    at.fill(count);
    for (size_t const room : {64u, 100u, 4096u, 10'000u})
      EXPECT_EQ(at.rows(room), Suite::rowsOf(0, count)) << count << " rows, room for " << room;
  }
}

TYPED_TEST_P(DriverConformance, AWalkGoesOnFromACopyOfItsCursor) {
  using Suite = DriverConformance<TypeParam>;
  typename Suite::Opened at(1000);
  at.fill(1000);
  constexpr size_t kRoom = BfnDriver::TableDriver::kWalkRoom;
  std::vector<Kiv::U8> keys(8 * kRoom);
  std::vector<Kiv::U8> actions(8 * kRoom);
  BfnDriver::WalkCursor cursor;
  size_t rows = 0;
  size_t total = 0;
  while (!cursor.ended) {
    BfnDriver::WalkCursor again = cursor;
    ASSERT_EQ(at.driver.walk(at.table, cursor, keys, actions, rows), BfnDriver::Status::Ok);
    std::vector<Kiv::U8> const first(keys.begin(),
                                     keys.begin() + static_cast<std::ptrdiff_t>(8 * rows));
    size_t rowsAgain = 0;
    ASSERT_EQ(at.driver.walk(at.table, again, keys, actions, rowsAgain), BfnDriver::Status::Ok);
    EXPECT_EQ(rowsAgain, rows);
    EXPECT_TRUE(std::equal(first.begin(), first.end(), keys.begin()));
    total += rows;
  }
  EXPECT_EQ(total, 1000u);
  EXPECT_EQ(at.driver.walk(at.table, cursor, keys, actions, rows), BfnDriver::Status::Ok);
  EXPECT_EQ(rows, 0u) << "a walk that has ended";
}

TYPED_TEST_P(DriverConformance, RowsThatStayComeOnceWhateverChangesWithinTheWalk) {
  using Suite = DriverConformance<TypeParam>;
  auto const seed = static_cast<unsigned>(::testing::UnitTest::GetInstance()->random_seed());
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 5; ++round) {
    typename Suite::Opened at(20'000);
    at.fill(3000);  // the even ones stay
    auto const change = [&] {
      for (int i = 0; i < 40; ++i) {
        auto const n = static_cast<Kiv::U32>(random() % 6000 * 2 + 1);
        if (random() % 2 == 0) {
          at.erase(n);
        } else {
          at.write(n, n);
        }
      }
      at.write(static_cast<Kiv::U32>(random() % 1500 * 2), 7'000'000);
    };
    // A row that goes and comes again may come twice: the walk is checked by hand.
    std::vector<Kiv::U8> keys(64 * 8);
    std::vector<Kiv::U8> actions(64 * 8);
    std::map<DriverKey, unsigned> seen;
    BfnDriver::WalkCursor cursor;
    while (!cursor.ended) {
      size_t rows = 0;
      ASSERT_EQ(at.driver.walk(at.table, cursor, keys, actions, rows), BfnDriver::Status::Ok);
      for (size_t i = 0; i < rows; ++i) {
        DriverKey key;
        std::copy_n(keys.data() + 8 * i, 8, key.data());
        ++seen[key];
      }
      change();
    }
    for (Kiv::U32 n = 0; n < 3000; n += 2) ASSERT_EQ(seen[driverKey(n)], 1u) << n;
  }
}

TYPED_TEST_P(DriverConformance, ChangesOfABatchAreMadeInOrderPastFailures) {
  using Suite = DriverConformance<TypeParam>;
  using Kind = BfnDriver::Change::Kind;
  using BfnDriver::Status;
  typename Suite::Opened at(2);
  std::array<DriverKey, 4> const keys{driverKey(0), driverKey(1), driverKey(2), driverKey(3)};
  std::array<DriverAction, 2> const actions{driverAction(8), driverAction(9)};
  BfnDriver::ByteView const narrow = BfnDriver::ByteView(keys[0]).first(7);
  std::vector<BfnDriver::Change> const changes{
      {Kind::Write, keys[0], actions[0]},  // Ok
      {Kind::Write, keys[1], actions[0]},  // Ok
      {Kind::Write, keys[2], actions[0]},  // full
      {Kind::Write, keys[1], actions[1]},  // an overwrite
      {Kind::Write, narrow, actions[0]},   // an error
      {Kind::Erase, keys[3], {}},          // nothing to erase
      {Kind::Erase, keys[0], {}},          // Ok, and makes room
      {Kind::Write, keys[2], actions[1]},  // Ok
      {Kind::Erase, narrow, {}},           // an error
      {Kind::Write, keys[3], actions[0]},  // full
      {Kind::Write, keys[2], narrow},      // an error
  };
  std::vector<Status> results(changes.size(), Status::NotSupported);
  at.driver.apply(at.table, changes, results);
  EXPECT_THAT(results,
              ::testing::ElementsAre(Status::Ok, Status::Ok, Status::TableFull, Status::Ok,
                                     Status::Error, Status::NotFound, Status::Ok, Status::Ok,
                                     Status::Error, Status::TableFull, Status::Error));
  EXPECT_EQ(at.rows(), (DriverRows{{keys[1], actions[1]}, {keys[2], actions[1]}}));
  at.driver.apply(at.table, {}, {});
  EXPECT_EQ(at.count(), 2u);
}

TYPED_TEST_P(DriverConformance, ABatchDoesWhatItsChangesDoOneByOne) {
  using Suite = DriverConformance<TypeParam>;
  using Kind = BfnDriver::Change::Kind;
  using BfnDriver::Status;
  auto const seed = static_cast<unsigned>(::testing::UnitTest::GetInstance()->random_seed());
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  constexpr size_t kCapacity = 100;
  typename Suite::Opened at(kCapacity);
  DriverRows model;
  for (int round = 0; round < 100; ++round) {
    size_t const size = random() % 300;
    std::vector<DriverKey> keys;
    std::vector<DriverAction> actions;
    for (size_t i = 0; i < size; ++i) {
      keys.push_back(driverKey(static_cast<Kiv::U32>(random() % 200)));
      actions.push_back(driverAction(static_cast<Kiv::U32>(random() % 1000)));
    }
    std::vector<BfnDriver::Change> changes;
    std::vector<Status> expected;
    for (size_t i = 0; i < size; ++i) {
      if (random() % 3 == 0) {
        changes.push_back({Kind::Erase, keys[i], {}});
        expected.push_back(model.erase(keys[i]) == 1 ? Status::Ok : Status::NotFound);
      } else {
        changes.push_back({Kind::Write, keys[i], actions[i]});
        bool const fits = model.size() < kCapacity || model.contains(keys[i]);
        if (fits) model[keys[i]] = actions[i];
        expected.push_back(fits ? Status::Ok : Status::TableFull);
      }
    }
    std::vector<Status> results(size, Status::NotSupported);
    at.driver.apply(at.table, changes, results);
    ASSERT_EQ(results, expected) << round;
    ASSERT_EQ(at.count(), model.size()) << round;
  }
  EXPECT_EQ(at.rows(), model);
}

TYPED_TEST_P(DriverConformance, BytesOfAnotherWidthAreAnErrorAndChangeNothing) {
  using Suite = DriverConformance<TypeParam>;
  using BfnDriver::Status;
  typename Suite::Opened at(4);
  at.write(0, 0);
  std::array<Kiv::U8, 16> bytes{};
  std::ranges::copy(driverKey(0), bytes.begin());
  DriverAction const action = driverAction(1);
  std::array<Kiv::U8, 16> room;
  room.fill(0xEE);
  std::span<Kiv::U8> const right(room.data(), 8);
  for (size_t const width : {0u, 7u, 9u, 16u}) {
    SCOPED_TRACE(width);
    BfnDriver::ByteView const wrong(bytes.data(), width);
    EXPECT_EQ(at.driver.write(at.table, wrong, action), BfnDriver::WriteResult::Error);
    EXPECT_EQ(at.driver.write(at.table, driverKey(0), wrong), BfnDriver::WriteResult::Error);
    EXPECT_EQ(at.driver.erase(at.table, wrong), BfnDriver::EraseResult::Error);
    EXPECT_EQ(at.driver.readRow(at.table, wrong, right), Status::Error);
    EXPECT_EQ(at.driver.readRow(at.table, driverKey(0), {room.data(), width}), Status::Error);
    EXPECT_FALSE(at.driver.read(at.table, wrong, right));
    at.driver.prefetch(at.table, wrong);
    if (TypeParam::kCountsHits) {
      Kiv::U64 hits = 7;
      EXPECT_EQ(at.driver.rowHits(at.table, wrong, hits), Status::Error);
      EXPECT_EQ(hits, 7u);
    }
  }
  EXPECT_THAT(room, ::testing::Each(0xEE));
  EXPECT_EQ(at.rows(), Suite::rowsOf(0, 1));
}

TYPED_TEST_P(DriverConformance, AnUnknownHandleIsAnErrorInEveryCall) {
  using Suite = DriverConformance<TypeParam>;
  using BfnDriver::Status;
  typename Suite::Opened at(4);
  BfnDriver::TableHandle const unknown{0xFFFF'FFF0};
  DriverKey const key = driverKey(0);
  DriverAction action = driverAction(0);
  EXPECT_EQ(at.driver.write(unknown, key, action), BfnDriver::WriteResult::Error);
  EXPECT_EQ(at.driver.erase(unknown, key), BfnDriver::EraseResult::Error);
  EXPECT_EQ(at.driver.readRow(unknown, key, action), Status::Error);
  EXPECT_EQ(at.driver.clear(unknown), Status::Error);
  BfnDriver::Change const change{BfnDriver::Change::Kind::Write, key, action};
  Status result = Status::Ok;
  at.driver.apply(unknown, {&change, 1}, {&result, 1});
  EXPECT_EQ(result, Status::Error);
  BfnDriver::WalkCursor cursor;
  std::vector<Kiv::U8> bytes(8 * 64);
  std::vector<Kiv::U8> more(8 * 64);
  size_t rows = 7;
  EXPECT_EQ(at.driver.walk(unknown, cursor, bytes, more, rows), Status::Error);
  EXPECT_EQ(rows, 7u);
  EXPECT_FALSE(cursor.ended);
  EXPECT_EQ(at.driver.entryCount(unknown), 0u);
  EXPECT_EQ(at.driver.capacity(unknown), 0u);
  at.driver.prefetch(unknown, key);
  EXPECT_EQ(at.count(), 0u);
}

TYPED_TEST_P(DriverConformance, DeviceAndNameAreTheTableSessionPipeAndProfileAreNot) {
  using Suite = DriverConformance<TypeParam>;
  typename Suite::Opened at(4);
  auto const open = [&](Kiv::U32 session, Kiv::U8 device, Kiv::U16 pipe, char const* profile) {
    return at.driver.open({session, device, BfnId::BfnPipeId(pipe), profile, Suite::kTable})
        .value();
  };
  EXPECT_EQ(open(1, 0, 0, "profile"), at.table) << "the same address";
  EXPECT_EQ(at.driver.open({1, 0, BfnId::BfnPipeId(0), "profile", "noSuchTable"}), std::nullopt);
  at.write(0, 0);
  for (auto const other :
       {open(2, 0, 0, "profile"), open(1, 0, 3, "profile"), open(1, 0, 0, "p2")}) {
    DriverAction action{};
    EXPECT_EQ(at.driver.readRow(other, driverKey(0), action), BfnDriver::Status::Ok);
    EXPECT_EQ(at.driver.entryCount(other), 1u);
  }
}

TYPED_TEST_P(DriverConformance, TwoDevicesHaveTwoTables) {
  using Suite = DriverConformance<TypeParam>;
  typename Suite::Opened at(2);
  auto const second = Suite::open(at.chip, 1, 1);
  EXPECT_NE(second, at.table);
  EXPECT_EQ(at.driver.capacity(second), 2u);
  at.fill(2);
  DriverAction action{};
  EXPECT_EQ(at.driver.readRow(second, driverKey(0), action), BfnDriver::Status::NotFound);
  EXPECT_EQ(at.driver.write(second, driverKey(0), driverAction(50)), BfnDriver::WriteResult::Ok);
  EXPECT_EQ(at.driver.erase(second, driverKey(1)), BfnDriver::EraseResult::NotFound);
  EXPECT_EQ(at.driver.entryCount(second), 1u);
  EXPECT_EQ(Suite::walked(at.driver, second, 64, [] {}),
            (DriverRows{{driverKey(0), driverAction(50)}}));
  EXPECT_EQ(at.rows(), Suite::rowsOf(0, 2));
  EXPECT_EQ(at.driver.clear(second), BfnDriver::Status::Ok);
  EXPECT_EQ(at.count(), 2u);
}

TYPED_TEST_P(DriverConformance, AClosedSessionsHandlesAreUnknownAndItsRowsStay) {
  using Suite = DriverConformance<TypeParam>;
  typename Suite::Opened at(4);
  at.write(0, 0);
  auto const other = Suite::open(at.chip, 2);
  at.driver.closeSession(99);
  EXPECT_EQ(at.count(), 1u);
  at.driver.closeSession(1);
  DriverAction action{};
  EXPECT_EQ(at.driver.write(at.table, driverKey(1), driverAction(1)),
            BfnDriver::WriteResult::Error);
  EXPECT_EQ(at.driver.readRow(at.table, driverKey(0), action), BfnDriver::Status::Error);
  EXPECT_EQ(at.count(), 0u);
  EXPECT_EQ(at.driver.readRow(other, driverKey(0), action), BfnDriver::Status::Ok);
  auto const again = Suite::open(at.chip);
  EXPECT_EQ(at.driver.entryCount(again), 1u);
  EXPECT_EQ(at.driver.entryCount(at.table), again == at.table ? 1u : 0u);
}

TYPED_TEST_P(DriverConformance, AClearedTableIsEmptyAndTakesRowsAgain) {
  using Suite = DriverConformance<TypeParam>;
  typename Suite::Opened at(500);
  EXPECT_EQ(at.driver.clear(at.table), BfnDriver::Status::Ok);
  at.fill(500);
  EXPECT_EQ(at.driver.clear(at.table), BfnDriver::Status::Ok);
  EXPECT_EQ(at.count(), 0u);
  EXPECT_EQ(at.rows(), DriverRows());
  at.fill(500);
  EXPECT_EQ(at.rows(), Suite::rowsOf(0, 500));
}

TYPED_TEST_P(DriverConformance, HitsOfARowOutliveAnOverwriteAndGoWithTheRow) {
  using BfnDriver::Status;
  typename DriverConformance<TypeParam>::Opened at(4);
  Kiv::U64 hits = 7;
  BfnDriver::TableHits all{7, 7};
  if (!TypeParam::kCountsHits) {
    at.write(1, 1);
    EXPECT_EQ(at.driver.rowHits(at.table, driverKey(1), hits), Status::NotSupported);
    EXPECT_EQ(at.driver.tableHits(at.table, all), Status::NotSupported);
    EXPECT_EQ(at.driver.tableHitsClear(at.table), Status::NotSupported);
    return;
  }
  EXPECT_EQ(at.driver.rowHits(at.table, driverKey(1), hits), Status::NotFound);
  EXPECT_EQ(hits, 7u);
  at.chip.packet(driverKey(1));
  at.write(1, 1);
  at.write(2, 2);
  at.chip.packet(driverKey(1));
  at.chip.packet(driverKey(1));
  at.write(1, 3);
  at.chip.packet(driverKey(1));
  EXPECT_EQ(at.driver.rowHits(at.table, driverKey(1), hits), Status::Ok);
  EXPECT_EQ(hits, 3u);
  EXPECT_EQ(at.driver.rowHits(at.table, driverKey(2), hits), Status::Ok);
  EXPECT_EQ(hits, 0u);
  at.erase(1);
  EXPECT_EQ(at.driver.rowHits(at.table, driverKey(1), hits), Status::NotFound);
  at.write(1, 1);
  EXPECT_EQ(at.driver.rowHits(at.table, driverKey(1), hits), Status::Ok);
  EXPECT_EQ(hits, 0u);
  EXPECT_EQ(at.driver.tableHits(at.table, all), Status::Ok);
  EXPECT_EQ(all, (BfnDriver::TableHits{3, 1})) << "the erased row's count, too";
  at.chip.packet(driverKey(2));
  EXPECT_EQ(at.driver.tableHitsClear(at.table), Status::Ok);
  EXPECT_EQ(at.driver.rowHits(at.table, driverKey(2), hits), Status::Ok);
  EXPECT_EQ(hits, 0u);
  EXPECT_EQ(at.driver.tableHits(at.table, all), Status::Ok);
  EXPECT_EQ(all, BfnDriver::TableHits());
}

REGISTER_TYPED_TEST_SUITE_P(
    DriverConformance, CapacityIsExact, AFullTableTakesAnOverwrite, AnEraseMakesRoomForOneRow,
    AnEraseOfNothingSaysSo, ARowIsReadAsItWasWrittenAndAnAbsentOneIsNotFound,
    AWalkGivesEveryRowOnceWhateverTheRoom, AWalkGoesOnFromACopyOfItsCursor,
    RowsThatStayComeOnceWhateverChangesWithinTheWalk, ChangesOfABatchAreMadeInOrderPastFailures,
    ABatchDoesWhatItsChangesDoOneByOne, BytesOfAnotherWidthAreAnErrorAndChangeNothing,
    AnUnknownHandleIsAnErrorInEveryCall, DeviceAndNameAreTheTableSessionPipeAndProfileAreNot,
    TwoDevicesHaveTwoTables, AClosedSessionsHandlesAreUnknownAndItsRowsStay,
    AClearedTableIsEmptyAndTakesRowsAgain, HitsOfARowOutliveAnOverwriteAndGoWithTheRow);

}  // namespace BfnTest
