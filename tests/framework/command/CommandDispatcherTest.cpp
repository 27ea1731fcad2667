// SPDX-License-Identifier: Apache-2.0
#include "framework/command/CommandDispatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

#include "framework/core/AllocTrack.h"
#include "framework/core/Exceptions.h"
#include "framework/generic/Describe.h"
#include "tests/framework/command/ListCommandSm.h"

namespace {

using namespace Agent;

using BfnTest::Client;
using BfnTest::ListCommandSm;
using BfnTest::listed;
using testing::ElementsAre;

/// A framework type that can be made by name and is no command.
class NoCommand final : public Kiv::PtrInterface {
 public:
  static int made;
  NoCommand() { ++made; }
  static Kiv::Type const& _kivType() {
    static Kiv::Type const type("BfnTest::NoCommand", &Kiv::PtrInterface::_kivType(), {},
                                Kiv::describeDefault<NoCommand>());
    return type;
  }
};
int NoCommand::made = 0;

class CommandDispatcherTest : public testing::Test {
 protected:
  Kiv::Ptr<ListCommandSm> list(Client& client, char const* count, U32 socket = 7) {
    std::vector<Kiv::GenericValue> const arguments{Kiv::GenericValue(count)};
    return Kiv::ptrCast<ListCommandSm>(
        dispatcher_.commandIs(ListCommandSm::kTypeName, client.request(0, socket), arguments));
  }

  U64 const liveBefore_ = Kiv::AllocTrackTypeInfo::liveObjects();
  Kiv::TypeRegistration const types_{&ListCommandSm::_kivType, &NoCommand::_kivType};
  Kiv::Ptr<Kiv::ManualClock> clock_ = Kiv::make<Kiv::ManualClock>(1000);
  std::vector<std::string> ends_;
  CommandDispatcher dispatcher_{
      clock_, 0.005, [this](AgentAsyncCommandRequestSm& command, SliceResult result) {
        ends_.push_back(command.name().stdString() +
                        (result == SliceResult::Completed ? " ok" : " aborted"));
      }};
  Client one_;
  Client two_;
  static constexpr double kNever = std::numeric_limits<double>::infinity();
};

TEST_F(CommandDispatcherTest, MakesACommandByTheNameOfItsTypeFromAnArgumentArray) {
  auto const command = list(one_, "12", 9);
  ASSERT_NE(command, nullptr);
  EXPECT_EQ(command->name(), "BfnTest::ListCommandSm-1");
  EXPECT_EQ(command->request()->socket(), 9u);
  EXPECT_EQ(command->maxRunTime(), 0.005);
  EXPECT_EQ(command->clock(), clock_);
  EXPECT_TRUE(command->hasNotificationActive());
  EXPECT_EQ(dispatcher_.runSlices(), kNever);
  EXPECT_EQ(one_.received, listed(12));
  EXPECT_THAT(ends_, ElementsAre("BfnTest::ListCommandSm-1 ok"));
  EXPECT_EQ(dispatcher_.commands(), 0u);
}

TEST_F(CommandDispatcherTest, WrongNamesAndArgumentsMakeNoCommand) {
  auto const request = one_.request();
  std::vector<Kiv::GenericValue> const good{Kiv::GenericValue("12")};
  std::vector<Kiv::GenericValue> const many{Kiv::GenericValue("1"), Kiv::GenericValue("2")};
  std::vector<Kiv::GenericValue> const bad{Kiv::GenericValue("twelve")};
  EXPECT_THROW(dispatcher_.commandIs("BfnTest::Unknown", request, good), Kiv::RangeException);
  EXPECT_THROW(dispatcher_.commandIs("BfnTest::NoCommand", request, {}), Kiv::RangeException);
  EXPECT_EQ(NoCommand::made, 0);
  EXPECT_THROW(dispatcher_.commandIs(ListCommandSm::kTypeName, request, {}), Kiv::RangeException);
  EXPECT_THROW(dispatcher_.commandIs(ListCommandSm::kTypeName, request, many), Kiv::RangeException);
  EXPECT_THROW(dispatcher_.commandIs(ListCommandSm::kTypeName, request, bad), Kiv::RangeException);
  EXPECT_EQ(dispatcher_.commands(), 0u);
  EXPECT_EQ(dispatcher_.runSlices(), kNever);
}

TEST_F(CommandDispatcherTest, CommandsHaveTheirSlicesInTurn) {
  auto const first = list(one_, "4");
  auto const second = list(two_, "2");
  std::string order;
  first->onStep = [&] { order += '1', clock_->advance(1); };
  second->onStep = [&] { order += '2', clock_->advance(1); };
  while (dispatcher_.runSlices() == 0) order += '|';
  EXPECT_EQ(order, "12|12|1|1");
  EXPECT_EQ(one_.received, listed(4));
  EXPECT_EQ(two_.received, listed(2));
  EXPECT_THAT(ends_, ElementsAre("BfnTest::ListCommandSm-2 ok", "BfnTest::ListCommandSm-1 ok"));
}

TEST_F(CommandDispatcherTest, SaysWhenTheNextCommandIsDue) {
  EXPECT_EQ(dispatcher_.runSlices(), kNever);
  one_.perCall = 0;
  auto const command = list(one_, "10");
  EXPECT_DOUBLE_EQ(dispatcher_.runSlices(), 1000.010);
  clock_->nowIs(1000.010);
  EXPECT_DOUBLE_EQ(dispatcher_.runSlices(), 1000.020);
  clock_->nowIs(1000.020);
  EXPECT_DOUBLE_EQ(dispatcher_.runSlices(), 1000.040);
  one_.perCall = std::string::npos;
  dispatcher_.wake(8);
  EXPECT_DOUBLE_EQ(dispatcher_.runSlices(), 1000.040) << "another socket";
  dispatcher_.wake(7);
  EXPECT_EQ(dispatcher_.runSlices(), kNever);
  EXPECT_EQ(one_.received, listed(10));
}

TEST_F(CommandDispatcherTest, AnAbortedCommandIsReportedAndReleased) {
  one_.perCall = 0;
  (void)list(one_, "10");
  for (double next = 0; next != kNever; next = dispatcher_.runSlices()) {
    clock_->nowIs(std::max(clock_->now(), next));
  }
  EXPECT_THAT(ends_, ElementsAre("BfnTest::ListCommandSm-1 aborted"));
  EXPECT_EQ(dispatcher_.commands(), 0u);
}

TEST_F(CommandDispatcherTest, AClosedSocketEndsItsCommandsOnly) {
  (void)list(one_, "10", 1);
  (void)list(two_, "10", 2);
  dispatcher_.socketClosed(1);
  EXPECT_EQ(dispatcher_.runSlices(), kNever);
  EXPECT_EQ(one_.received, "");
  EXPECT_EQ(two_.received, listed(10));
  EXPECT_THAT(ends_,
              ElementsAre("BfnTest::ListCommandSm-1 aborted", "BfnTest::ListCommandSm-2 ok"));
}

TEST_F(CommandDispatcherTest, ACommandMadeWithinASliceHasItsFirstOneInTheNextRound) {
  auto const first = list(one_, "1");
  first->onStep = [&] { (void)list(two_, "3"); };
  EXPECT_EQ(dispatcher_.runSlices(), 0);
  EXPECT_EQ(two_.received, "");
  EXPECT_EQ(dispatcher_.runSlices(), kNever);
  EXPECT_EQ(two_.received, listed(3));
  first->onStep = nullptr;
}

TEST_F(CommandDispatcherTest, AnExceptionEndsItsCommandAndNoOther) {
  list(one_, "10")->onSlice = [] { Kiv::throwRangeException("too long"); };
  (void)list(two_, "10");
  EXPECT_THROW(dispatcher_.runSlices(), Kiv::RangeException);
  EXPECT_EQ(two_.received, listed(10));
  EXPECT_EQ(dispatcher_.commands(), 0u);
  EXPECT_THAT(ends_,
              ElementsAre("BfnTest::ListCommandSm-1 aborted", "BfnTest::ListCommandSm-2 ok"));
  EXPECT_EQ(dispatcher_.runSlices(), kNever);
}

TEST_F(CommandDispatcherTest, HoldsNoCommandAfterItsEnd) {
  (void)list(one_, "10");
  (void)dispatcher_.runSlices();
  U64 const live = Kiv::AllocTrackTypeInfo::liveObjects();
  EXPECT_EQ(live, liveBefore_ + 1) << "the clock";
}

using CommandDispatcherDeathTest = CommandDispatcherTest;

TEST_F(CommandDispatcherDeathTest, RunningSlicesWithinASliceIsFatal) {
  list(one_, "10")->onSlice = [this] { (void)dispatcher_.runSlices(); };
  EXPECT_DEATH((void)dispatcher_.runSlices(), R"(Failed\(!running\(\)\))");
}

}  // namespace
