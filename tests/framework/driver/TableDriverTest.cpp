// SPDX-License-Identifier: Apache-2.0
#include "framework/driver/TableDriver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <stdexcept>
#include <vector>

#include "framework/driver/ForwardingDriver.h"

namespace {

using BfnDriver::ByteView;
using BfnDriver::Change;
using BfnDriver::EraseResult;
using BfnDriver::ForwardingDriver;
using BfnDriver::Status;
using BfnDriver::TableDriver;
using BfnDriver::TableHandle;
using BfnDriver::WriteResult;
using Kiv::U8;
using ::testing::ElementsAre;

constexpr TableHandle kTable{0};

/// Overrides what is pure and nothing else: one table of rows with a key and an action of a byte.
/// Key 13 is refused as full, key 14 for lack of resources, key 15 throws.
class PlainDriver final : public TableDriver {
 public:
  std::optional<TableHandle> open(BfnDriver::TableAddress const&) override { return kTable; }
  WriteResult write(TableHandle, ByteView key, ByteView action) override {
    if (key.size() != 1) return WriteResult::Error;
    if (key[0] == 13) return WriteResult::TableFull;
    if (key[0] == 14) return WriteResult::NoSysResources;
    if (key[0] == 15) throw std::runtime_error("bus error");
    rows[key[0]] = action[0];
    return WriteResult::Ok;
  }
  EraseResult erase(TableHandle, ByteView key) override {
    if (key.size() != 1) return EraseResult::Error;
    if (key[0] == 15) throw 15;
    return rows.erase(key[0]) == 1 ? EraseResult::Ok : EraseResult::NotFound;
  }
  bool read(TableHandle, ByteView key, std::span<U8> action) const override {
    auto const row = rows.find(key[0]);
    if (row == rows.end()) return false;
    action[0] = row->second;
    return true;
  }
  size_t entryCount(TableHandle) const override { return rows.size(); }
  size_t capacity(TableHandle) const override { return 100; }

  std::map<U8, U8> rows;
};

TEST(TableDriver, ReadRowOfADriverWithoutItAsksRead) {
  PlainDriver driver;
  driver.rows[1] = 11;
  U8 const present[] = {1};
  U8 const absent[] = {2};
  U8 action[] = {0};
  EXPECT_EQ(driver.readRow(kTable, absent, action), Status::NotFound);
  EXPECT_EQ(action[0], 0);
  EXPECT_EQ(driver.readRow(kTable, present, action), Status::Ok);
  EXPECT_EQ(action[0], 11);
}

TEST(TableDriver, AStatusWithoutAWordInAResultIsItsError) {
  for (WriteResult const result :
       {WriteResult::Ok, WriteResult::TableFull, WriteResult::NoSysResources, WriteResult::Error})
    EXPECT_EQ(BfnDriver::writeResultOf(BfnDriver::statusOf(result)), result);
  for (EraseResult const result : {EraseResult::Ok, EraseResult::NotFound, EraseResult::Error})
    EXPECT_EQ(BfnDriver::eraseResultOf(BfnDriver::statusOf(result)), result);
  EXPECT_EQ(BfnDriver::writeResultOf(Status::NotFound), WriteResult::Error);
  EXPECT_EQ(BfnDriver::writeResultOf(Status::NotSupported), WriteResult::Error);
  EXPECT_EQ(BfnDriver::eraseResultOf(Status::TableFull), EraseResult::Error);
}

TEST(TableDriver, WhatADriverHasNothingForIsNotSupported) {
  PlainDriver driver;
  U8 const key[] = {1};
  BfnDriver::WalkCursor cursor;
  std::vector<U8> keys(TableDriver::kWalkRoom);
  std::vector<U8> actions(TableDriver::kWalkRoom);
  size_t rows = 7;
  Kiv::U64 hits = 7;
  BfnDriver::TableHits all{7, 7};
  EXPECT_EQ(driver.walk(kTable, cursor, keys, actions, rows), Status::NotSupported);
  EXPECT_EQ(driver.rowHits(kTable, key, hits), Status::NotSupported);
  EXPECT_EQ(driver.tableHits(kTable, all), Status::NotSupported);
  EXPECT_EQ(driver.tableHitsClear(kTable), Status::NotSupported);
  EXPECT_EQ(driver.clear(kTable), Status::NotSupported);
  EXPECT_EQ(rows, 7u);
  EXPECT_FALSE(cursor.ended);
  EXPECT_EQ(hits, 7u);
  EXPECT_EQ(all, (BfnDriver::TableHits{7, 7}));
}

std::vector<Change> changesOfEveryOutcome() {
  static constexpr U8 kKeys[] = {1, 2, 13, 14, 15};
  static constexpr U8 kActions[] = {11, 12};
  auto const key = [](size_t i) { return ByteView(&kKeys[i], 1); };
  ByteView const action(&kActions[0], 1);
  using enum Change::Kind;
  return {{Write, key(0), action},
          {Write, key(2), action},
          {Write, key(3), action},
          {Write, key(4), action},
          {Erase, key(4), {}},
          {Erase, key(0), {}},
          {Erase, key(0), {}},
          {Write, ByteView(&kKeys[0], 2), action},
          {Write, key(1), ByteView(&kActions[1], 1)}};
}

TEST(TableDriver, ChangesOfADriverWithoutBatchesAreMadeOneByOnePastFailures) {
  PlainDriver driver;
  auto const changes = changesOfEveryOutcome();
  std::vector<Status> results(changes.size(), Status::NotSupported);
  driver.apply(kTable, changes, results);
  EXPECT_THAT(results,
              ElementsAre(Status::Ok, Status::TableFull, Status::NoSysResources, Status::Error,
                          Status::Error, Status::Ok, Status::NotFound, Status::Error, Status::Ok));
  EXPECT_THAT(driver.rows, ElementsAre(std::pair<U8 const, U8>(2, 12)));
}

TEST(TableDriver, ExceptionOfAChangeBecomesItsErrorAndItsText) {
  PlainDriver driver;
  U8 const key[] = {15};
  U8 const action[] = {1};
  Status result = Status::Ok;
  Change const write{Change::Kind::Write, key, action};
  driver.apply(kTable, {&write, 1}, {&result, 1});
  EXPECT_EQ(result, Status::Error);
  EXPECT_EQ(driver.lastError(), "bus error");
  Change const erase{Change::Kind::Erase, key, {}};
  driver.apply(kTable, {&erase, 1}, {&result, 1});
  EXPECT_EQ(result, Status::Error);
  EXPECT_EQ(driver.lastError(), "");
}

TEST(TableDriverDeathTest, ResultsOfAnotherNumberThanChangesAreFatal) {
  PlainDriver driver;
  auto const changes = changesOfEveryOutcome();
  std::vector<Status> results(changes.size() - 1);
  EXPECT_DEATH(driver.apply(kTable, changes, results), "changes: 9, results: 8");
}

TEST(ForwardingDriver, PassesTextOfTheOtherDriversErrorOn) {
  PlainDriver plain;
  struct Front final : ForwardingDriver {
    using ForwardingDriver::ForwardingDriver;
  } front(plain);
  U8 const key[] = {15};
  U8 const action[] = {1};
  Status result = Status::Ok;
  Change const write{Change::Kind::Write, key, action};
  front.apply(kTable, {&write, 1}, {&result, 1});
  EXPECT_EQ(result, Status::Error);
  EXPECT_EQ(front.lastError(), "bus error");
}

TEST(ForwardingDriver, PassesTheEndOfATurnOn) {
  struct Counting final : ForwardingDriver {
    using ForwardingDriver::ForwardingDriver;
    void turnEnded() override { ++turns; }
    int turns = 0;
  };
  PlainDriver plain;
  Counting counting(plain);
  struct Front final : ForwardingDriver {
    using ForwardingDriver::ForwardingDriver;
  } front(counting);
  plain.turnEnded();
  front.turnEnded();
  EXPECT_EQ(counting.turns, 1);
}

}  // namespace
