// SPDX-License-Identifier: Apache-2.0
#include "chip/JournalingDriver.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

#include "chip/ChipModel.h"
#include "framework/core/Clock.h"

namespace {

using BfnChip::ActionBytes;
using BfnChip::ChipModel;
using BfnChip::Fault;
using BfnChip::JournalEntry;
using BfnChip::JournalingDriver;
using BfnChip::KeyBytes;
using BfnChip::Operation;
using BfnChip::Outcome;
using BfnDriver::Change;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::TableHandle;
using BfnDriver::WriteResult;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr KeyBytes kKey{5, 1, 0, 10, 0, 0, 1, 1};
constexpr KeyBytes kOther{5, 2, 0, 10, 0, 0, 1, 1};
constexpr ActionBytes kAction{0x22, 0x11, 0x02, 0, 0x55, 0x44, 0x33, 0};

JournalEntry written(KeyBytes const& key, Outcome outcome) {
  return {key, kAction, {}, 0, Operation::Write, outcome};
}
JournalEntry erased(KeyBytes const& key, Outcome outcome) {
  return {key, {}, {}, 0, Operation::Erase, outcome};
}

class JournalingDriverTest : public ::testing::Test {
 protected:
  ChipModel chip{1};
  JournalingDriver driver{chip};
  TableHandle const table = *driver.open({0, 0, {}, "", ChipModel::kRewriteTable});
};

TEST_F(JournalingDriverTest, RecordsWritesAndErasesWithTheirResults) {
  EXPECT_EQ(driver.write(table, kKey, kAction), WriteResult::Ok);
  EXPECT_EQ(driver.write(table, kOther, kAction), WriteResult::TableFull);
  EXPECT_EQ(driver.erase(table, kOther), EraseResult::NotFound);
  EXPECT_EQ(driver.erase(table, kKey), EraseResult::Ok);
  chip.resourcesIs(0);
  EXPECT_EQ(driver.write(table, kKey, kAction), WriteResult::NoSysResources);
  EXPECT_THAT(driver.journal().take(),
              ElementsAre(written(kKey, Outcome::Ok), written(kOther, Outcome::TableFull),
                          erased(kOther, Outcome::NotFound), erased(kKey, Outcome::Ok),
                          written(kKey, Outcome::NoSysResources)));
}

TEST_F(JournalingDriverTest, RecordsFailuresAndPassesExceptionsOn) {
  chip.faults().failNext(1, {Fault::Kind::Error, nullptr});
  chip.faults().failNext(1, {Fault::Kind::Exception, nullptr});
  chip.eraseFaults().failNext(1, {Fault::Kind::Error, nullptr});
  chip.eraseFaults().failNext(1, {Fault::Kind::Exception, nullptr});
  EXPECT_EQ(driver.write(table, kKey, kAction), WriteResult::Error);
  EXPECT_THROW(driver.write(table, kKey, kAction), std::runtime_error);
  EXPECT_EQ(driver.erase(table, kKey), EraseResult::Error);
  EXPECT_THROW(driver.erase(table, kKey), std::runtime_error);
  EXPECT_THAT(driver.journal().take(),
              ElementsAre(written(kKey, Outcome::Error), written(kKey, Outcome::Exception),
                          erased(kKey, Outcome::Error), erased(kKey, Outcome::Exception)));
}

TEST_F(JournalingDriverTest, RecordsSeveralChangesOneByOne) {
  std::array const changes{Change{Change::Kind::Write, kKey, kAction},
                           Change{Change::Kind::Write, kOther, kAction},
                           Change{Change::Kind::Erase, kKey, {}}};
  std::array<Status, 3> results{};
  driver.apply(table, changes, results);
  EXPECT_THAT(results, ElementsAre(Status::Ok, Status::TableFull, Status::Ok));
  EXPECT_THAT(driver.journal().take(),
              ElementsAre(written(kKey, Outcome::Ok), written(kOther, Outcome::TableFull),
                          erased(kKey, Outcome::Ok)));
}

TEST_F(JournalingDriverTest, RecordsNothingOfBytesOfAnotherWidth) {
  EXPECT_EQ(driver.write(table, std::array<Kiv::U8, 4>{}, kAction), WriteResult::Error);
  EXPECT_EQ(driver.write(table, kKey, std::array<Kiv::U8, 4>{}), WriteResult::Error);
  EXPECT_EQ(driver.erase(table, std::array<Kiv::U8, 4>{}), EraseResult::Error);
  EXPECT_THAT(driver.journal().take(), IsEmpty());
}

TEST_F(JournalingDriverTest, RecordsThePipeThatOpenedTheTable) {
  BfnId::BfnPipeId const pipe(3);
  TableHandle const other = *driver.open({0, 0, pipe, "", ChipModel::kRewriteTable});
  driver.write(other, kKey, kAction);
  driver.write(table, kKey, kAction);
  auto const entries = driver.journal().take();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].pipe, pipe);
  EXPECT_EQ(entries[1].pipe, BfnId::BfnPipeId());
}

TEST_F(JournalingDriverTest, WithAClockItKnowsWhenARowWasLastWritten) {
  auto const clock = Kiv::makeActive<Kiv::ManualClock>();
  driver.write(table, kKey, kAction);
  EXPECT_EQ(driver.lastWrite(kKey), std::nullopt) << "without a clock";
  driver.clockIs(*clock);
  clock->advance(10);
  driver.write(table, kKey, kAction);
  EXPECT_EQ(driver.lastWrite(kKey), 10.0);
  clock->advance(5);
  driver.write(table, kOther, kAction);
  EXPECT_EQ(driver.lastWrite(kOther), std::nullopt) << "the table is full";
  std::array const changes{Change{Change::Kind::Write, kKey, kAction}};
  std::array<Status, 1> results{};
  driver.apply(table, changes, results);
  EXPECT_EQ(driver.lastWrite(kKey), 15.0);
  driver.erase(table, kKey);
  EXPECT_EQ(driver.lastWrite(kKey), std::nullopt);
  driver.write(table, kKey, kAction);
  EXPECT_EQ(driver.lastWrite(kKey), 15.0);
  chip.eraseFaults().failNext(1, {Fault::Kind::Error, nullptr});
  EXPECT_EQ(driver.clear(table), Status::Error);
  EXPECT_EQ(driver.lastWrite(kKey), 15.0);
  EXPECT_EQ(driver.clear(table), Status::Ok);
  EXPECT_EQ(driver.lastWrite(kKey), std::nullopt);
}

}  // namespace
