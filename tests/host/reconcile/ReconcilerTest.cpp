// SPDX-License-Identifier: Apache-2.0
#include "host/reconcile/Reconciler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "chip/ChipModel.h"
#include "framework/driver/ForwardingDriver.h"
#include "framework/log/LogService.h"
#include "host/reconcile/Audit.h"
#include "tests/driver/DriverConformance.h"

namespace BfnTest {

namespace {

using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::WriteResult;
using Host::Applied;
using Host::Audit;
using Host::Finding;
using Host::Reconciler;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// What reached the chip since the last call, as words: "write 3 <- 7", "erase 3".
class ReconcilerTest : public ::testing::Test {
 protected:
  explicit ReconcilerTest(size_t capacity = 65'536) : chip(capacity) {
    Kiv::LogService::reset();
    Kiv::LogService::clockIs([this] { return clock->now(); });
    open();
  }
  ~ReconcilerTest() override { Kiv::LogService::clockIs({}); }

  void open() {
    table = reconciler.open({1, 0, BfnId::BfnPipeId(0), "p", BfnChip::ChipModel::kRewriteTable})
                .value();
  }
  void running() { ASSERT_EQ(reconciler.commit().status, Status::Ok); }
  /// A row in the chip that the reconciler does not know of.
  void chipRow(Kiv::U32 n, Kiv::U32 action) {
    ASSERT_EQ(chip.write(direct(), driverKey(n), driverAction(action)), WriteResult::Ok);
  }
  void chipErase(Kiv::U32 n) { ASSERT_EQ(chip.erase(direct(), driverKey(n)), EraseResult::Ok); }
  BfnDriver::TableHandle direct() {
    return chip.open({2, 0, BfnId::BfnPipeId(0), "q", BfnChip::ChipModel::kRewriteTable}).value();
  }

  WriteResult write(Kiv::U32 n, Kiv::U32 action) {
    return reconciler.write(table, driverKey(n), driverAction(action));
  }
  EraseResult erase(Kiv::U32 n) { return reconciler.erase(table, driverKey(n)); }

  static Kiv::U32 numberOf(BfnChip::KeyBytes const& key) {
    return Kiv::U32{key[4]} << 16 | Kiv::U32{key[5]} << 8 | key[6];
  }
  static Kiv::U32 numberOfAction(BfnChip::ActionBytes const& action) {
    return Kiv::U32{action[0]} | Kiv::U32{action[1]} << 8 | Kiv::U32{action[4]} << 16;
  }
  std::vector<std::string> journal() {
    std::vector<std::string> lines;
    for (BfnChip::JournalEntry const& entry : chip.journal().take()) {
      std::string line = (entry.operation == BfnChip::Operation::Write ? "write " : "erase ") +
                         std::to_string(numberOf(entry.key));
      if (entry.operation == BfnChip::Operation::Write) {
        line += " <- " + std::to_string(numberOfAction(entry.action));
      }
      if (entry.outcome != BfnChip::Outcome::Ok) line += " failed";
      lines.push_back(line);
    }
    return lines;
  }
  std::vector<Kiv::U32> installed() {
    std::vector<Kiv::U32> numbers;
    for (BfnChip::Row const& row : chip.rows()) numbers.push_back(numberOf(row.key));
    std::ranges::sort(numbers);
    return numbers;
  }
  std::vector<Kiv::U32> waiting() {
    std::vector<Kiv::U32> numbers;
    for (auto const& each : reconciler.table(0).waiting()) numbers.push_back(numberOf(each.key));
    return numbers;
  }
  std::vector<std::string> warnings() {
    std::vector<std::string> counts;
    for (Kiv::LogMessage const& message : Kiv::LogService::recent()) {
      EXPECT_EQ(message.name, "BFN_VXLAN_MAC_REWRITE_ROWS_WAITING");
      std::string const& text = message.text;
      std::string const count = text.substr(text.rfind(' ') + 1);
      counts.push_back(count.substr(0, count.size() - 1));  // without the full stop
    }
    return counts;
  }
  std::vector<Finding> audit(size_t rows = Audit::kRowsPerStep) {
    Audit run(reconciler.table(0));
    while (!run.step(rows)) {
    }
    EXPECT_EQ(run.status(), Status::Ok);
    return run.findings();
  }

  BfnChip::ChipModel chip;
  Kiv::Ptr<Kiv::ManualClock> clock = Kiv::makeActive<Kiv::ManualClock>();
  Reconciler reconciler{chip, clock};
  BfnDriver::TableHandle table{};
};

TEST_F(ReconcilerTest, HeldNothingReachesTheChipWhichKeepsItsRows) {
  chipRow(9, 9);
  journal();
  EXPECT_EQ(write(1, 1), WriteResult::Ok);
  EXPECT_EQ(write(1, 2), WriteResult::Ok);
  EXPECT_EQ(erase(7), EraseResult::NotFound);
  reconciler.flush();
  EXPECT_THAT(journal(), IsEmpty());
  EXPECT_THAT(installed(), ElementsAre(9u));
  EXPECT_TRUE(reconciler.held());
  EXPECT_EQ(reconciler.wanted(), 1u);
}

TEST_F(ReconcilerTest, ACommitMakesTheDifferenceErasesBeforeInserts) {
  for (Kiv::U32 n = 1; n <= 4; ++n) chipRow(n, n);
  journal();
  write(5, 5);
  write(1, 0);
  write(1, 1);
  write(3, 30);
  write(6, 6);
  Applied const applied = reconciler.commit();
  EXPECT_EQ(applied.status, Status::Ok);
  EXPECT_EQ(applied.erased, 2u);
  EXPECT_EQ(applied.overwritten, 1u);
  EXPECT_EQ(applied.inserted, 2u);
  std::vector<std::string> const lines = journal();
  ASSERT_THAT(lines, SizeIs(5));
  EXPECT_EQ((std::set<std::string>{lines[0], lines[1]}),
            (std::set<std::string>{"erase 2", "erase 4"}));
  EXPECT_EQ(lines[2], "write 3 <- 30");
  EXPECT_EQ(lines[3], "write 5 <- 5") << "in the order in which they came";
  EXPECT_EQ(lines[4], "write 6 <- 6");
  EXPECT_FALSE(reconciler.held());
}

TEST_F(ReconcilerTest, RowsThatCameFarApartAreCommittedInTheirOrder) {
  write(9, 9);
  for (Kiv::U32 n = 100; n < 200; ++n) {
    write(n, n);
    erase(n);
  }
  write(3, 3);
  write(6, 6);
  running();
  EXPECT_THAT(journal(), ElementsAre("write 9 <- 9", "write 3 <- 3", "write 6 <- 6"));
}

TEST_F(ReconcilerTest, ACommitOverAnEqualChipWritesNothing) {
  for (Kiv::U32 n = 0; n < 5000; ++n) chipRow(n, n);
  journal();
  for (Kiv::U32 n = 5000; n-- > 0;) write(n, 0);
  for (Kiv::U32 n = 0; n < 5000; ++n) write(n, n);
  running();
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(ReconcilerTest, HoldForgetsWhatWasWantedAndTheChipKeepsIt) {
  running();
  write(1, 1);
  reconciler.hold();
  EXPECT_EQ(reconciler.wanted(), 0u);
  EXPECT_THAT(installed(), ElementsAre(1u));
  write(2, 2);
  running();
  EXPECT_THAT(installed(), ElementsAre(2u));
}

TEST_F(ReconcilerTest, RunningAChangeReachesTheChipAtOnce) {
  running();
  EXPECT_EQ(write(1, 1), WriteResult::Ok);
  EXPECT_EQ(write(1, 2), WriteResult::Ok);
  EXPECT_EQ(erase(1), EraseResult::Ok);
  EXPECT_EQ(erase(1), EraseResult::NotFound);
  EXPECT_THAT(journal(), ElementsAre("write 1 <- 1", "write 1 <- 2", "erase 1", "erase 1 failed"));
}

TEST_F(ReconcilerTest, AtTheEndOfATurnEachRowIsChangedOnceAndErasesComeFirst) {
  running();
  write(1, 1);
  write(2, 2);
  journal();
  reconciler.turnsIs(true);
  write(3, 3);
  write(3, 4);
  write(1, 10);
  erase(2);
  write(5, 5);
  erase(5);
  EXPECT_THAT(journal(), IsEmpty());
  EXPECT_EQ(reconciler.entryCount(table), 2u) << "two, one more, one less";
  reconciler.flush();
  EXPECT_THAT(journal(), ElementsAre("erase 2", "write 1 <- 10", "write 3 <- 4"));
  EXPECT_EQ(reconciler.entryCount(table), 2u);
}

TEST_F(ReconcilerTest, WhatATurnTakesBackIsNotWritten) {
  running();
  write(1, 1);
  journal();
  reconciler.turnsIs(true);
  write(1, 2);
  write(1, 1);
  erase(1);
  write(1, 1);
  EXPECT_EQ(reconciler.entryCount(table), 1u);
  reconciler.flush();
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(ReconcilerTest, AReadAndAWalkSeeThePendingChanges) {
  running();
  reconciler.turnsIs(true);
  write(1, 7);
  DriverAction action{};
  EXPECT_EQ(reconciler.readRow(table, driverKey(1), action), Status::Ok);
  EXPECT_EQ(action, driverAction(7));
  write(2, 8);
  std::vector<Kiv::U8> keys(64 * 8);
  std::vector<Kiv::U8> actions(64 * 8);
  BfnDriver::WalkCursor cursor;
  size_t rows = 0;
  EXPECT_EQ(reconciler.walk(table, cursor, keys, actions, rows), Status::Ok);
  EXPECT_EQ(rows, 2u);
}

class SmallChipTest : public ReconcilerTest {
 protected:
  SmallChipTest() : ReconcilerTest(2) {}
};

TEST_F(SmallChipTest, RowsThatFindNoRoomWaitAndGoInInTheirOrder) {
  running();
  for (Kiv::U32 n = 1; n <= 5; ++n) EXPECT_EQ(write(n, n), WriteResult::Ok);
  EXPECT_THAT(waiting(), ElementsAre(3u, 4u, 5u));
  DriverAction action{};
  EXPECT_EQ(reconciler.readRow(table, driverKey(3), action), Status::NotFound);
  EXPECT_EQ(reconciler.entryCount(table), 2u);
  write(3, 33);
  erase(4);
  EXPECT_THAT(waiting(), ElementsAre(3u, 5u));
  journal();
  EXPECT_EQ(erase(1), EraseResult::Ok);
  EXPECT_THAT(journal(), ElementsAre("erase 1", "write 3 <- 33"));
  chip.tableIs(BfnChip::ChipModel::kRewriteTable, 10);
  reconciler.flush();
  EXPECT_THAT(installed(), ElementsAre(2u, 3u, 5u));
  EXPECT_THAT(waiting(), IsEmpty());
}

TEST_F(SmallChipTest, ANewRowWaitsAfterThoseThatWait) {
  running();
  for (Kiv::U32 n = 1; n <= 3; ++n) write(n, n);
  chipErase(1);
  write(4, 4);
  EXPECT_THAT(installed(), ElementsAre(2u, 3u));
  EXPECT_THAT(waiting(), ElementsAre(4u));
}

TEST_F(SmallChipTest, ARestartOverAFullChipKeepsTheRowsThatWereThere) {
  chipRow(7, 7);
  chipRow(8, 8);
  journal();
  for (Kiv::U32 n = 1; n <= 8; ++n) write(n, n);
  running();
  EXPECT_THAT(journal(), IsEmpty());
  EXPECT_THAT(waiting(), ElementsAre(1u, 2u, 3u, 4u, 5u, 6u));
}

TEST_F(SmallChipTest, TheWarningComesFirstWhenDoubledAfterAMinuteAndWhenAllAreIn) {
  running();
  for (Kiv::U32 n = 1; n <= 2 + 5; ++n) write(n, n);
  EXPECT_THAT(warnings(), ElementsAre("1", "2", "4"));
  clock->advance(59);
  reconciler.flush();
  EXPECT_THAT(warnings(), SizeIs(3));
  clock->advance(1);
  reconciler.flush();
  EXPECT_EQ(warnings().back(), "5");
  chip.tableIs(BfnChip::ChipModel::kRewriteTable, 100);
  reconciler.flush();
  reconciler.flush();
  EXPECT_EQ(warnings().back(), "0");
  EXPECT_THAT(warnings(), SizeIs(5));
}

TEST_F(SmallChipTest, WithWaitingOffResultsAndExceptionsPassThrough) {
  reconciler.waitingIs(false);
  EXPECT_EQ(write(1, 1), WriteResult::Ok);
  EXPECT_EQ(write(2, 2), WriteResult::Ok);
  EXPECT_EQ(write(3, 3), WriteResult::TableFull) << "held, by the capacity";
  running();
  EXPECT_EQ(write(3, 3), WriteResult::TableFull);
  EXPECT_EQ(reconciler.wanted(), 2u);
  chip.faults().failNext(1, {BfnChip::Fault::Kind::Exception, nullptr});
  EXPECT_ANY_THROW(write(1, 5));
  chip.faults().failNext(1, {BfnChip::Fault::Kind::Error, nullptr});
  EXPECT_EQ(write(1, 5), WriteResult::Error);
  chip.eraseFaults().failNext(1, {BfnChip::Fault::Kind::Error, nullptr});
  EXPECT_EQ(erase(1), EraseResult::Error);
  EXPECT_EQ(reconciler.failed() + reconciler.waitingForRoom(), 0u);
  EXPECT_THAT(audit(), IsEmpty());
}

TEST_F(ReconcilerTest, LackOfResourcesIsRetriedWithGrowingPauses) {
  running();
  chip.resourcesIs(1);
  for (Kiv::U32 n = 1; n <= 3; ++n) EXPECT_EQ(write(n, n), WriteResult::Ok);
  EXPECT_THAT(waiting(), ElementsAre(2u, 3u));
  EXPECT_EQ(reconciler.table(0).waiting()[0].reason, Host::WaitReason::NoSysResources);
  journal();
  // Tries at 1, then after 2, 4, 8 seconds more.
  std::vector<int> tries;
  for (int second = 1; second <= 20; ++second) {
    clock->advance(1);
    reconciler.flush();
    if (!journal().empty()) tries.push_back(second);
  }
  EXPECT_THAT(tries, ElementsAre(1, 3, 7, 15));
  chip.resourcesIs(10);
  clock->advance(reconciler.nextRetry().value() - clock->now());
  reconciler.flush();
  EXPECT_THAT(installed(), ElementsAre(1u, 2u, 3u));
  EXPECT_FALSE(reconciler.nextRetry());
}

TEST_F(ReconcilerTest, AFailedWriteIsAnsweredOkListedAndRetried) {
  running();
  write(1, 1);
  chip.faults().failNext(2, {BfnChip::Fault::Kind::Exception, nullptr});
  EXPECT_EQ(write(1, 2), WriteResult::Ok);
  EXPECT_EQ(write(2, 2), WriteResult::Ok);
  auto const list = reconciler.table(0).waiting();
  ASSERT_THAT(list, SizeIs(2));
  EXPECT_EQ(list[0].reason, Host::WaitReason::Failed);
  EXPECT_NE(list[0].error, "");
  EXPECT_THAT(audit(), SizeIs(2)) << "one different, one missing";
  clock->advance(1);
  reconciler.flush();
  EXPECT_THAT(waiting(), IsEmpty());
  EXPECT_THAT(audit(), IsEmpty());
}

TEST_F(ReconcilerTest, AFailedRemovalIsAnsweredOkAndRetriedUnlessTheRowIsWantedAgain) {
  running();
  write(1, 1);
  write(2, 2);
  chip.eraseFaults().failNext(2, {BfnChip::Fault::Kind::Error, nullptr});
  EXPECT_EQ(erase(1), EraseResult::Ok);
  EXPECT_EQ(erase(2), EraseResult::Ok);
  EXPECT_THAT(waiting(), SizeIs(2));
  write(2, 20);
  EXPECT_THAT(waiting(), ElementsAre(1u));
  clock->advance(1);
  reconciler.flush();
  EXPECT_THAT(installed(), ElementsAre(2u));
  EXPECT_THAT(audit(), IsEmpty());
}

TEST_F(ReconcilerTest, AnAuditFindsAForeignChangeAndRepairUndoesIt) {
  running();
  for (Kiv::U32 n = 1; n <= 200; ++n) write(n, n);
  chipErase(3);
  chipRow(5, 50);
  chipRow(999, 1);
  journal();
  std::vector<Finding> const findings = audit(64);
  ASSERT_THAT(findings, SizeIs(3));
  EXPECT_THAT(journal(), IsEmpty()) << "an audit changes nothing";
  std::map<Kiv::U32, Finding> byNumber;
  for (Finding const& each : findings) byNumber[numberOf(each.key)] = each;
  EXPECT_EQ(byNumber[3].kind, Finding::Kind::Missing);
  EXPECT_EQ(byNumber[3].wanted, driverAction(3));
  EXPECT_EQ(byNumber[5].kind, Finding::Kind::Different);
  EXPECT_EQ(byNumber[5].installed, driverAction(50));
  EXPECT_EQ(byNumber[999].kind, Finding::Kind::Extra);
  Applied const applied = reconciler.table(0).repair(findings);
  EXPECT_EQ(applied.inserted + applied.overwritten + applied.erased, 3u);
  EXPECT_THAT(journal(), ElementsAre("erase 999", "write 5 <- 5", "write 3 <- 3"));
  EXPECT_THAT(audit(), IsEmpty());
}

TEST_F(ReconcilerTest, UnderConstantChangesAnEqualChipHasNoFinding) {
  running();
  reconciler.turnsIs(true);
  std::mt19937 random(1);
  for (Kiv::U32 n = 0; n < 2000; ++n) write(n, n);
  for (int round = 0; round < 300; ++round) {
    Audit run(reconciler.table(0));
    while (!run.step(64)) {
      for (int i = 0; i < 30; ++i) {
        Kiv::U32 const n = static_cast<Kiv::U32>(random() % 2000);
        random() % 3 == 0 ? static_cast<void>(erase(n))
                          : static_cast<void>(write(n, static_cast<Kiv::U32>(random() % 9)));
      }
    }
    ASSERT_THAT(run.findings(), IsEmpty()) << round;
  }
}

size_t heapInUse() {
  struct mallinfo2 const info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

TEST_F(ReconcilerTest, RowsCostAtMostFortyBytesEach) {
  size_t const empty = heapInUse();
  std::vector<char> const probe(size_t{1} << 20);
  if (heapInUse() < empty + probe.size()) GTEST_SKIP() << "this allocator does not count";
  size_t const rows = 65'536;
  size_t const before = heapInUse();
  for (Kiv::U32 n = 0; n < rows; ++n) write(n, n);
  EXPECT_GE(heapInUse() - before, rows * (8 + 8)) << "held";
  EXPECT_LE(heapInUse() - before, rows * 40) << "held";

  chip.journal().limitIs(0);
  BfnChip::ChipModel alone;
  alone.journal().limitIs(0);
  auto const handle =
      alone.open({1, 0, BfnId::BfnPipeId(0), "p", BfnChip::ChipModel::kRewriteTable}).value();
  size_t const beforeAlone = heapInUse();
  for (Kiv::U32 n = 0; n < rows; ++n) alone.write(handle, driverKey(n), driverAction(n));
  size_t const model = heapInUse() - beforeAlone;
  running();
  EXPECT_EQ(chip.rowCount(), rows);
  EXPECT_LE(heapInUse() - before, rows * 40 + 2 * model) << "running, the chip's rows apart";
}

TEST_F(ReconcilerTest, AClosedSessionLeavesTheTableToTheOthers) {
  running();
  auto const other =
      reconciler.open({5, 0, BfnId::BfnPipeId(0), "p", BfnChip::ChipModel::kRewriteTable}).value();
  reconciler.closeSession(5);
  EXPECT_EQ(reconciler.write(other, driverKey(1), driverAction(1)), WriteResult::Error);
  EXPECT_EQ(write(1, 1), WriteResult::Ok);
  EXPECT_EQ(reconciler.tables(), 1u);
}

TEST_F(ReconcilerTest, ATableWhoseSessionsAreClosedTakesNoChangeAndHasNothingToRetry) {
  running();
  chip.faults().failNext(1, {BfnChip::Fault::Kind::Error, nullptr});
  write(1, 1);
  ASSERT_TRUE(reconciler.nextRetry());
  reconciler.closeSession(1);
  EXPECT_FALSE(reconciler.nextRetry()) << "flush() could not";
  clock->advance(10);
  reconciler.flush();
  Host::ReconciledTable& rows = reconciler.table(0);
  EXPECT_EQ(rows.entryCount(), 0u);
  EXPECT_EQ(rows.compare(BfnChip::packed(driverKey(1))), std::nullopt);
  EXPECT_EQ(rows.write(BfnChip::packed(driverKey(2)), 0), WriteResult::Error);
  EXPECT_EQ(rows.erase(BfnChip::packed(driverKey(1))), EraseResult::Error);
  EXPECT_EQ(rows.clear(), Status::Error);
  EXPECT_EQ(rows.repair({}).status, Status::NotFound);
  EXPECT_EQ(rows.waiting().size(), 1u);
  open();
  ASSERT_TRUE(reconciler.nextRetry());
  reconciler.flush();
  EXPECT_THAT(installed(), ElementsAre(1u));
}

// The key whose place in a table of rows is the last one.
TEST_F(ReconcilerTest, ARowAtTheEndOfTheOrderIsCommittedAndAudited) {
  BfnChip::KeyBytes const last = BfnChip::unpacked(BfnChip::RowTable::keyOf({~Kiv::U64{0}, 0, 0}));
  reconciler.write(table, last, driverAction(1));
  write(1, 1);
  running();
  EXPECT_EQ(chip.rowCount(), 2u);
  ASSERT_EQ(chip.erase(direct(), last), EraseResult::Ok);
  std::vector<Finding> const findings = audit();
  ASSERT_THAT(findings, SizeIs(1));
  EXPECT_EQ(findings[0].key, last);
}

TEST_F(ReconcilerTest, TheEndOfATurnReachesTheChipAfterItsChanges) {
  struct Counting final : BfnDriver::ForwardingDriver {
    explicit Counting(BfnChip::ChipModel& model) : ForwardingDriver(model), chip(model) {}
    void turnEnded() override { rows.push_back(chip.rowCount()); }
    BfnChip::ChipModel& chip;
    std::vector<size_t> rows;
  } counting(chip);
  Reconciler front(counting, clock);
  auto const handle =
      front.open({1, 0, BfnId::BfnPipeId(0), "p", BfnChip::ChipModel::kRewriteTable}).value();
  front.commit();
  front.turnsIs(true);
  counting.rows.clear();
  front.write(handle, driverKey(1), driverAction(1));
  front.flush();
  front.turnEnded();
  EXPECT_THAT(counting.rows, ElementsAre(1u, 1u));
}

TEST_F(ReconcilerTest, ATableThatCannotBeWalkedIsStillHeld) {
  struct Blind final : BfnDriver::ForwardingDriver {
    using ForwardingDriver::ForwardingDriver;
    Status walk(BfnDriver::TableHandle, BfnDriver::WalkCursor&, std::span<Kiv::U8>,
                std::span<Kiv::U8>, size_t&) const override {
      return Status::Error;
    }
  } blind(chip);
  Reconciler front(blind, clock);
  EXPECT_EQ(front.commit().status, Status::NotFound) << "no table has been opened";
  auto const handle =
      front.open({1, 0, BfnId::BfnPipeId(0), "p", BfnChip::ChipModel::kRewriteTable}).value();
  front.write(handle, driverKey(1), driverAction(1));
  EXPECT_EQ(front.commit().status, Status::Error);
  EXPECT_TRUE(front.held());
  EXPECT_THAT(installed(), IsEmpty());
}

/// The reconciler over the model, as a driver: committed, and with waiting off, so that the chip's
/// answers are the chip's.
class ReconcilerUnderTest {
 public:
  static constexpr bool kCountsHits = true;

  explicit ReconcilerUnderTest(size_t capacity) : chip_(capacity) {
    reconciler_.waitingIs(false);
    for (Kiv::U8 device = 0; device < 2; ++device) {
      reconciler_.open({99, device, BfnId::BfnPipeId(0), "", BfnChip::ChipModel::kRewriteTable});
    }
    reconciler_.commit();
  }

  BfnDriver::TableDriver& driver() { return reconciler_; }
  void packet(DriverKey const& key) {
    auto const fields = BfnChip::RewriteLayout::fields(key);
    chip_.lookup(fields.vlan, fields.source);
  }

 private:
  BfnChip::ChipModel chip_;
  Reconciler reconciler_{chip_, Kiv::makeActive<Kiv::ManualClock>()};
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(ReconcilerOverTheModel, DriverConformance, ReconcilerUnderTest);

}  // namespace BfnTest
