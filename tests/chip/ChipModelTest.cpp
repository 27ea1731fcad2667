// SPDX-License-Identifier: Apache-2.0
#include "chip/ChipModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <vector>

#include "tests/support/AllocationCount.h"

namespace {

using BfnChip::ActionBytes;
using BfnChip::ChipModel;
using BfnChip::Fault;
using BfnChip::JournalEntry;
using BfnChip::KeyBytes;
using BfnChip::MacBytes;
using BfnChip::Operation;
using BfnChip::Outcome;
using BfnChip::Row;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::TableHandle;
using BfnDriver::WriteResult;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::Optional;

// (5, VLAN 0x0203, 10.1.2.n, 1) and a MAC of 02:11:22:33:44:55.
KeyBytes key(Kiv::U8 n) {
  return {5, 0x03, 0x02, 10, 1, 2, n, 1};
}
constexpr ActionBytes kAction = {0x22, 0x11, 0x02, 0, 0x55, 0x44, 0x33, 0};
constexpr ActionBytes kOtherAction = {0xCC, 0xBB, 0xAA, 0, 0xFF, 0xEE, 0xDD, 0};

struct ChipModelTest : ::testing::Test {
  ChipModel chip{2};
  TableHandle table = *chip.open({7, 0, BfnId::BfnPipeId(3), "l3", ChipModel::kRewriteTable});

  WriteResult write(Kiv::U8 n, ActionBytes const& action = kAction) {
    return chip.write(table, key(n), action);
  }
  std::vector<Outcome> outcomes() {
    std::vector<Outcome> result;
    for (JournalEntry const& entry : chip.journal().take()) result.push_back(entry.outcome);
    return result;
  }
};

TEST_F(ChipModelTest, UnknownTableCannotBeOpened) {
  EXPECT_EQ(chip.open({7, 0, BfnId::BfnPipeId(3), "l3", "noSuchTable"}), std::nullopt);
}

TEST_F(ChipModelTest, SameAddressOpensToTheSameHandle) {
  EXPECT_EQ(chip.open({7, 0, BfnId::BfnPipeId(3), "l3", ChipModel::kRewriteTable}), table);
  EXPECT_NE(chip.open({8, 0, BfnId::BfnPipeId(3), "l3", ChipModel::kRewriteTable}), table);
  EXPECT_NE(chip.open({7, 1, BfnId::BfnPipeId(3), "l3", ChipModel::kRewriteTable}), table);
  EXPECT_NE(chip.open({7, 0, BfnId::BfnPipeId(4), "l3", ChipModel::kRewriteTable}), table);
  EXPECT_NE(chip.open({7, 0, BfnId::BfnPipeId(3), "l2", ChipModel::kRewriteTable}), table);
}

TEST_F(ChipModelTest, OpaqueHandleLeadsBackToTheDriver) {
  EXPECT_EQ(BfnDriver::TableDriver::fromOpaque(chip.opaque()), &chip);
}

TEST_F(ChipModelTest, WrittenActionIsReadBack) {
  EXPECT_EQ(write(1), WriteResult::Ok);
  ActionBytes action{};
  EXPECT_TRUE(chip.read(table, key(1), action));
  EXPECT_EQ(action, kAction);
  EXPECT_FALSE(chip.read(table, key(2), action));
  EXPECT_EQ(chip.entryCount(table), 1u);
  EXPECT_EQ(chip.capacity(table), 2u);
}

TEST_F(ChipModelTest, FullTableRefusesANewKeyButTakesAnOverwrite) {
  write(1);
  write(2);
  EXPECT_EQ(write(3), WriteResult::TableFull);
  EXPECT_EQ(write(2, kOtherAction), WriteResult::Ok);
  EXPECT_EQ(chip.erase(table, key(1)), EraseResult::Ok);
  EXPECT_EQ(write(3), WriteResult::Ok);
}

TEST_F(ChipModelTest, CapacityBelowTheFillKeepsRowsAndRefusesNewOnes) {
  write(1);
  write(2);
  chip.tableIs(ChipModel::kRewriteTable, 1);
  EXPECT_EQ(chip.rowCount(), 2u);
  EXPECT_EQ(chip.erase(table, key(1)), EraseResult::Ok);
  EXPECT_EQ(write(3), WriteResult::TableFull);
  EXPECT_EQ(chip.erase(table, key(2)), EraseResult::Ok);
  EXPECT_EQ(write(3), WriteResult::Ok);
}

TEST_F(ChipModelTest, TablesShareOnePoolOfResources) {
  chip.tableIs("other", 10);
  TableHandle const other = *chip.open({7, 0, BfnId::BfnPipeId(3), "l3", "other"});
  chip.resourcesIs(2);
  EXPECT_EQ(write(1), WriteResult::Ok);
  EXPECT_EQ(chip.write(other, key(1), kAction), WriteResult::Ok);
  EXPECT_EQ(write(2), WriteResult::NoSysResources);
  EXPECT_EQ(chip.write(other, key(1), kOtherAction), WriteResult::Ok);
  EXPECT_EQ(chip.erase(other, key(1)), EraseResult::Ok);
  EXPECT_EQ(write(2), WriteResult::Ok);
  EXPECT_EQ(chip.resourcesInUse(), 2u);
  EXPECT_EQ(chip.rowCount("other"), 0u);
}

TEST_F(ChipModelTest, FullTableWithAnEmptyPoolReportsTheTable) {
  write(1);
  write(2);
  chip.resourcesIs(0);
  EXPECT_EQ(write(3), WriteResult::TableFull);
}

TEST_F(ChipModelTest, EraseOfAnAbsentRowSaysSo) {
  EXPECT_EQ(chip.erase(table, key(1)), EraseResult::NotFound);
  EXPECT_EQ(chip.resourcesInUse(), 0u);
}

TEST_F(ChipModelTest, WrongWidthsAndHandlesAreErrorsThatLeaveNoTrace) {
  KeyBytes const k = key(1);
  auto const shortKey = BfnDriver::ByteView(k).first(7);
  EXPECT_EQ(chip.write(table, shortKey, kAction), WriteResult::Error);
  EXPECT_EQ(chip.write(table, k, BfnDriver::ByteView(kAction).first(6)), WriteResult::Error);
  EXPECT_EQ(chip.erase(table, shortKey), EraseResult::Error);
  EXPECT_EQ(chip.write(TableHandle{99}, k, kAction), WriteResult::Error);
  EXPECT_EQ(chip.erase(TableHandle{99}, k), EraseResult::Error);
  ActionBytes action{};
  EXPECT_FALSE(chip.read(TableHandle{99}, k, action));
  EXPECT_FALSE(chip.read(table, shortKey, action));
  EXPECT_EQ(chip.entryCount(TableHandle{99}), 0u);
  EXPECT_EQ(chip.capacity(TableHandle{99}), 0u);
  EXPECT_EQ(chip.journal().size(), 0u);
  EXPECT_EQ(chip.faults().calls(), 0u);
}

TEST_F(ChipModelTest, RunOfFaultsFailsTheNextWritesAndChangesNoRow) {
  chip.faults().failNext(2, {Fault::Kind::TableFull, {}});
  chip.faults().failNext(1, {Fault::Kind::NoSysResources, {}});
  EXPECT_EQ(write(1), WriteResult::TableFull);
  EXPECT_EQ(write(1), WriteResult::TableFull);
  EXPECT_EQ(write(1), WriteResult::NoSysResources);
  EXPECT_EQ(chip.rowCount(), 0u);
  EXPECT_EQ(write(1), WriteResult::Ok);
}

TEST_F(ChipModelTest, PlannedFaultFailsTheNthWriteAlsoAnOverwrite) {
  chip.faults().failNth(2, {Fault::Kind::Error, {}});
  EXPECT_EQ(write(1), WriteResult::Ok);
  EXPECT_EQ(chip.erase(table, key(2)), EraseResult::NotFound);
  EXPECT_EQ(write(1, kOtherAction), WriteResult::Error);
  EXPECT_EQ(chip.rows().front().action, kAction);
  EXPECT_EQ(write(1, kOtherAction), WriteResult::Ok);
}

TEST_F(ChipModelTest, PlannedFaultDoesNotShortenARun) {
  chip.faults().failNext(1, {Fault::Kind::TableFull, {}});
  chip.faults().failNth(1, {Fault::Kind::Error, {}});
  EXPECT_EQ(write(1), WriteResult::Error);
  EXPECT_EQ(write(1), WriteResult::TableFull);
  EXPECT_EQ(write(1), WriteResult::Ok);
}

TEST_F(ChipModelTest, ClearedPlanFailsNothing) {
  chip.faults().failNext(1, {Fault::Kind::TableFull, {}});
  chip.faults().failNth(1, {Fault::Kind::Error, {}});
  chip.faults().clear();
  EXPECT_EQ(write(1), WriteResult::Ok);
}

TEST_F(ChipModelTest, ExceptionFaultThrowsTheGivenExceptionOrARuntimeError) {
  chip.faults().failNext(
      1, {Fault::Kind::Exception, std::make_exception_ptr(std::out_of_range("bus"))});
  chip.faults().failNext(1, {Fault::Kind::Exception, {}});
  EXPECT_THROW(write(1), std::out_of_range);
  EXPECT_THROW(write(1), std::runtime_error);
  EXPECT_THAT(outcomes(), ElementsAre(Outcome::Exception, Outcome::Exception));
  EXPECT_EQ(chip.rowCount(), 0u);
}

TEST_F(ChipModelTest, ErasesAndReadsFailByPlansOfTheirOwn) {
  write(1);
  chip.eraseFaults().failNext(1, {Fault::Kind::Error, {}});
  chip.eraseFaults().failNext(1, {Fault::Kind::Exception, {}});
  chip.readFaults().failNth(2, {Fault::Kind::Exception, {}});
  chip.readFaults().failNth(3, {Fault::Kind::TableFull, {}});
  EXPECT_EQ(write(2), WriteResult::Ok);
  EXPECT_EQ(chip.erase(table, key(1)), EraseResult::Error);
  EXPECT_THROW(chip.erase(table, key(1)), std::runtime_error);
  EXPECT_EQ(chip.rowCount(), 2u);
  ActionBytes action{};
  EXPECT_EQ(chip.readRow(table, key(1), action), Status::Ok);
  EXPECT_EQ(action, kAction);
  action = {};
  EXPECT_THROW((void)chip.readRow(table, key(1), action), std::runtime_error);
  EXPECT_EQ(chip.readRow(table, key(1), action), Status::Error);
  EXPECT_EQ(action, ActionBytes{});
  EXPECT_EQ(chip.lastError(), "");
  EXPECT_EQ(chip.readRow(table, key(1), action), Status::Ok);
  EXPECT_EQ(chip.erase(table, key(1)), EraseResult::Ok);
  EXPECT_EQ(chip.faults().calls(), 2u);
  EXPECT_EQ(chip.eraseFaults().calls(), 3u);
  EXPECT_EQ(chip.readFaults().calls(), 4u);
  EXPECT_THAT(outcomes(), ElementsAre(Outcome::Ok, Outcome::Ok, Outcome::Error, Outcome::Exception,
                                      Outcome::Ok));
}

TEST_F(ChipModelTest, AClearThatAnEraseFailsInIsAnErrorAndCanBeRepeated) {
  write(1);
  write(2);
  chip.eraseFaults().failNth(2, {Fault::Kind::Error, {}});
  EXPECT_EQ(chip.clear(table), Status::Error);
  EXPECT_EQ(chip.rowCount(), 1u);
  EXPECT_EQ(chip.clear(table), Status::Ok);
  EXPECT_EQ(chip.rowCount(), 0u);
  EXPECT_EQ(chip.resourcesInUse(), 0u);
}

TEST_F(ChipModelTest, ADevicesTableIsThereOnceItIsOpenedWithTheCapacityOfThatName) {
  chip.tableIs(ChipModel::kRewriteTable, 1);
  write(1);
  EXPECT_EQ(chip.rowCount(ChipModel::kRewriteTable, 1), 0u);
  EXPECT_EQ(chip.lookup(0x0203, {10, 1, 2, 1}, 1), std::nullopt);
  TableHandle const second =
      *chip.open({7, 1, BfnId::BfnPipeId(3), "l3", ChipModel::kRewriteTable});
  EXPECT_EQ(chip.capacity(second), 1u);
  EXPECT_EQ(chip.write(second, key(1), kOtherAction), WriteResult::Ok);
  EXPECT_THAT(chip.rows(ChipModel::kRewriteTable, 1),
              ElementsAre(Field(&Row::action, kOtherAction)));
  EXPECT_THAT(chip.lookup(0x0203, {10, 1, 2, 1}, 1),
              Optional(MacBytes{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}));
  EXPECT_THAT(chip.rows(), ElementsAre(Field(&Row::action, kAction)));
  chip.tableIs(ChipModel::kRewriteTable, 2);
  EXPECT_EQ(chip.capacity(second), 2u);
  EXPECT_EQ(chip.capacity(table), 2u);
}

// The n-th allocation of a call fails, for every n.
TEST_F(ChipModelTest, AWriteWithoutMemoryChangesNothingAndCanBeRepeated) {
  chip.tableIs(ChipModel::kRewriteTable, 1000);
  size_t failures = 0;
  for (Kiv::U8 n = 0; n < 250; ++n) {
    failures += BfnTest::failEachAllocation([&] { EXPECT_EQ(write(n), WriteResult::Ok); },
                                            [&](size_t) {
                                              EXPECT_EQ(chip.rowCount(), n);
                                              EXPECT_EQ(chip.resourcesInUse(), n);
                                              EXPECT_EQ(chip.journal().size(), n);
                                            });
    ASSERT_EQ(chip.rowCount(), n + 1u);
    ASSERT_EQ(chip.journal().size(), n + 1u);
  }
  EXPECT_GT(failures, 5u);
  std::vector<Row> const rows = chip.rows();
  for (Kiv::U8 n = 0; n < 250; ++n) EXPECT_EQ(rows[n].key, key(n));
}

TEST_F(ChipModelTest, AnEraseWithoutMemoryChangesNothingAndCanBeRepeated) {
  chip.tableIs(ChipModel::kRewriteTable, 1000);
  for (Kiv::U8 n = 0; n < 100; ++n) write(n);
  (void)chip.journal().take();
  size_t failures = 0;
  for (Kiv::U8 n = 0; n < 100; ++n) {
    failures +=
        BfnTest::failEachAllocation([&] { EXPECT_EQ(chip.erase(table, key(n)), EraseResult::Ok); },
                                    [&](size_t) { EXPECT_EQ(chip.rowCount(), 100u - n); });
  }
  EXPECT_GT(failures, 1u);
  EXPECT_EQ(chip.journal().size(), 100u);
}

TEST_F(ChipModelTest, JournalHoldsEveryWriteAndEraseWithBytesAndOutcome) {
  write(1);
  write(1, kOtherAction);
  write(2);
  write(3);
  chip.erase(table, key(1));
  chip.erase(table, key(1));
  BfnId::BfnPipeId const pipe(3);
  EXPECT_THAT(
      chip.journal().take(),
      ElementsAre(JournalEntry{key(1), kAction, pipe, 0, Operation::Write, Outcome::Ok},
                  JournalEntry{key(1), kOtherAction, pipe, 0, Operation::Write, Outcome::Ok},
                  JournalEntry{key(2), kAction, pipe, 0, Operation::Write, Outcome::Ok},
                  JournalEntry{key(3), kAction, pipe, 0, Operation::Write, Outcome::TableFull},
                  JournalEntry{key(1), kOtherAction, pipe, 0, Operation::Erase, Outcome::Ok},
                  JournalEntry{key(1), {}, pipe, 0, Operation::Erase, Outcome::NotFound}));
}

TEST_F(ChipModelTest, PacketOfTheRowsVlanAndAddressLeavesWithItsMac) {
  write(9);
  MacBytes const mac = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
  EXPECT_THAT(chip.lookup(0x0203, {10, 1, 2, 9}), Optional(mac));
  EXPECT_EQ(chip.lookup(0x0302, {10, 1, 2, 9}), std::nullopt);
  EXPECT_EQ(chip.lookup(0x0203, {9, 2, 1, 10}), std::nullopt);
}

TEST_F(ChipModelTest, RowWithOtherConstantsMatchesNoPacket) {
  chip.write(table, KeyBytes{4, 0x03, 0x02, 10, 1, 2, 1, 1}, kAction);
  chip.write(table, KeyBytes{5, 0x03, 0x02, 10, 1, 2, 1, 0}, kAction);
  EXPECT_EQ(chip.lookup(0x0203, {10, 1, 2, 1}), std::nullopt);
}

TEST_F(ChipModelTest, HitsCountPerRowOverOverwritesUntilErasedOrCleared) {
  write(1);
  write(2);
  chip.lookup(0x0203, {10, 1, 2, 1});
  write(1, kOtherAction);
  chip.lookup(0x0203, {10, 1, 2, 1});
  EXPECT_THAT(chip.rows(), ElementsAre(Field(&Row::hits, 2u), Field(&Row::hits, 0u)));
  chip.erase(table, key(1));
  write(1);
  EXPECT_EQ(chip.rows().front().hits, 0u);
  chip.lookup(0x0203, {10, 1, 2, 1});
  chip.hitsClear();
  EXPECT_EQ(chip.rows().front().hits, 0u);
}

TEST_F(ChipModelTest, RowsAreListedByVlanThenAddress) {
  chip.tableIs(ChipModel::kRewriteTable, 4);
  KeyBytes const vlan256 = {5, 0, 1, 10, 0, 0, 1, 1};
  KeyBytes const vlan2High = {5, 2, 0, 10, 0, 1, 0, 1};
  KeyBytes const vlan2Low = {5, 2, 0, 10, 0, 0, 9, 1};
  for (KeyBytes const& k : {vlan256, vlan2High, vlan2Low}) chip.write(table, k, kAction);
  EXPECT_THAT(chip.rows(), ElementsAre(Field(&Row::key, vlan2Low), Field(&Row::key, vlan2High),
                                       Field(&Row::key, vlan256)));
  EXPECT_THAT(chip.rows("noSuchTable"), IsEmpty());
}

}  // namespace
