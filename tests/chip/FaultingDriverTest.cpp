// SPDX-License-Identifier: Apache-2.0
#include "chip/FaultingDriver.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

#include "chip/ChipModel.h"

namespace {

using BfnChip::ActionBytes;
using BfnChip::ChipModel;
using BfnChip::Fault;
using BfnChip::FaultingDriver;
using BfnChip::KeyBytes;
using BfnDriver::Change;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::TableHandle;
using BfnDriver::WriteResult;
using ::testing::Each;
using ::testing::ElementsAre;

constexpr ActionBytes kAction{0x22, 0x11, 0x02, 0, 0x55, 0x44, 0x33, 0};

KeyBytes key(Kiv::U8 n) {
  return {5, n, 0, 10, 0, 0, 1, 1};
}

class FaultingDriverTest : public ::testing::Test {
 protected:
  TableHandle open(Kiv::U32 session, Kiv::U8 device = 0) {
    return *driver.open({session, device, {}, "", ChipModel::kRewriteTable});
  }
  WriteResult write(Kiv::U8 n) { return driver.write(table, key(n), kAction); }
  Status read(Kiv::U8 n) {
    ActionBytes action{};
    return driver.readRow(table, key(n), action);
  }
  std::array<Status, 3> applyThree() {
    std::array const keys{key(1), key(2), key(3)};
    std::array<Change, 3> changes;
    for (size_t i = 0; i < 3; ++i) changes[i] = {Change::Kind::Write, keys[i], kAction};
    std::array<Status, 3> results{};
    driver.apply(table, changes, results);
    return results;
  }

  ChipModel chip{4};
  FaultingDriver driver{chip};
  TableHandle const table = open(0);
};

TEST_F(FaultingDriverTest, ALowerCapacityRefusesNewRowsAndKeepsThoseThatAreThere) {
  write(1);
  write(2);
  driver.capacityIs(1);
  EXPECT_EQ(driver.capacity(table), 1u);
  EXPECT_EQ(driver.entryCount(table), 2u);
  EXPECT_EQ(write(3), WriteResult::TableFull);
  EXPECT_EQ(write(2), WriteResult::Ok);
  driver.capacityIs(3);
  EXPECT_EQ(write(3), WriteResult::Ok);
}

TEST_F(FaultingDriverTest, ACapacityAboveTheChipsChangesNothing) {
  driver.capacityIs(5);
  EXPECT_EQ(driver.capacity(table), 4u);
  for (Kiv::U8 n = 1; n <= 4; ++n) EXPECT_EQ(write(n), WriteResult::Ok);
  EXPECT_EQ(write(5), WriteResult::TableFull);
}

TEST_F(FaultingDriverTest, EachRowTakesAUnitOfThePoolAndGivesItBack) {
  driver.resourcesIs(1);
  EXPECT_EQ(write(1), WriteResult::Ok);
  EXPECT_EQ(write(2), WriteResult::NoSysResources);
  EXPECT_EQ(write(1), WriteResult::Ok);
  EXPECT_EQ(driver.erase(table, key(1)), EraseResult::Ok);
  EXPECT_EQ(write(2), WriteResult::Ok);
}

TEST_F(FaultingDriverTest, TablesOfTwoDevicesShareThePoolAndTwoSessionsCountOnce) {
  TableHandle const second = open(0, 1);
  open(1);
  driver.resourcesIs(2);
  EXPECT_EQ(write(1), WriteResult::Ok);
  EXPECT_EQ(driver.write(second, key(1), kAction), WriteResult::Ok);
  EXPECT_EQ(write(2), WriteResult::NoSysResources);
  EXPECT_EQ(driver.write(second, key(2), kAction), WriteResult::NoSysResources);
}

TEST_F(FaultingDriverTest, AFullTableIsFullAlsoWhenThePoolIsEmpty) {
  driver.capacityIs(1);
  driver.resourcesIs(1);
  write(1);
  EXPECT_EQ(write(2), WriteResult::TableFull);
  driver.capacityIs(FaultingDriver::kUnlimited);
  driver.resourcesIs(4);
  for (Kiv::U8 n = 2; n <= 4; ++n) write(n);
  EXPECT_EQ(write(5), WriteResult::TableFull);
}

TEST_F(FaultingDriverTest, PlannedWritesFailInsteadOfReachingTheChip) {
  using Kind = Fault::Kind;
  for (Kind const kind : {Kind::TableFull, Kind::NoSysResources, Kind::Error, Kind::Exception}) {
    driver.faults().failNext(1, {kind, nullptr});
  }
  EXPECT_EQ(write(1), WriteResult::TableFull);
  EXPECT_EQ(write(1), WriteResult::NoSysResources);
  EXPECT_EQ(write(1), WriteResult::Error);
  EXPECT_THROW(write(1), std::runtime_error);
  EXPECT_EQ(chip.rowCount(), 0u);
  EXPECT_EQ(write(1), WriteResult::Ok);
}

TEST_F(FaultingDriverTest, ErasesAndReadsFailByPlansOfTheirOwn) {
  write(1);
  driver.eraseFaults().failNext(1, {Fault::Kind::Error, nullptr});
  driver.eraseFaults().failNext(1, {Fault::Kind::Exception, nullptr});
  driver.eraseFaults().failNext(1, {Fault::Kind::Error, nullptr});
  driver.readFaults().failNext(1, {Fault::Kind::Error, nullptr});
  driver.readFaults().failNext(1, {Fault::Kind::Exception, nullptr});
  EXPECT_EQ(write(2), WriteResult::Ok);
  EXPECT_EQ(read(1), Status::Error);
  EXPECT_THROW(read(1), std::runtime_error);
  EXPECT_EQ(read(1), Status::Ok);
  EXPECT_EQ(driver.erase(table, key(1)), EraseResult::Error);
  EXPECT_THROW(driver.erase(table, key(1)), std::runtime_error);
  EXPECT_EQ(driver.clear(table), Status::Error);
  EXPECT_EQ(driver.entryCount(table), 2u);
  EXPECT_EQ(driver.clear(table), Status::Ok);
  EXPECT_EQ(driver.entryCount(table), 0u);
}

TEST_F(FaultingDriverTest, AChangeAmongSeveralFailsAloneWithItsReason) {
  driver.faults().failNth(2, {Fault::Kind::Exception, nullptr});
  EXPECT_THAT(applyThree(), ElementsAre(Status::Ok, Status::Error, Status::Ok));
  driver.faults().failNth(3, {Fault::Kind::Exception, nullptr});
  applyThree();
  EXPECT_EQ(driver.lastError(), "injected fault of the chip model");
}

TEST_F(FaultingDriverTest, SeveralChangesMeetTheLimits) {
  driver.capacityIs(2);
  EXPECT_THAT(applyThree(), ElementsAre(Status::Ok, Status::Ok, Status::TableFull));
}

TEST_F(FaultingDriverTest, SeveralChangesGoOnAsOneCallWithoutLimitsAndPlans) {
  struct Counting final : BfnDriver::ForwardingDriver {
    using ForwardingDriver::ForwardingDriver;
    void apply(TableHandle handle, std::span<Change const> changes,
               std::span<Status> results) override {
      ++calls;
      ForwardingDriver::apply(handle, changes, results);
    }
    int calls = 0;
  };
  Counting counting(chip);
  FaultingDriver front(counting);
  TableHandle const handle = *front.open({0, 0, {}, "", ChipModel::kRewriteTable});
  std::array<Change, 2> changes;
  KeyBytes const one = key(1);
  changes.fill({Change::Kind::Write, one, kAction});
  std::array<Status, 2> results{};
  front.apply(handle, changes, results);
  EXPECT_EQ(counting.calls, 1);
  EXPECT_THAT(results, Each(Status::Ok));
}

TEST_F(FaultingDriverTest, APlannedFailureHasNoReasonAndTheChipsHasItsOwn) {
  EXPECT_EQ(driver.write(table, std::array<Kiv::U8, 4>{}, kAction), WriteResult::Error);
  EXPECT_EQ(driver.lastError(), chip.lastError());
  EXPECT_NE(driver.lastError(), "");
  driver.faults().failNext(1, {Fault::Kind::Error, nullptr});
  EXPECT_EQ(write(1), WriteResult::Error);
  EXPECT_EQ(driver.lastError(), "");
}

TEST_F(FaultingDriverTest, ASessionThatIsClosedTakesNoUnits) {
  TableHandle const second = open(7, 1);
  driver.write(second, key(1), kAction);
  driver.resourcesIs(1);
  EXPECT_EQ(write(1), WriteResult::NoSysResources);
  driver.closeSession(7);
  EXPECT_EQ(write(1), WriteResult::Ok);
}

}  // namespace
