// SPDX-License-Identifier: Apache-2.0
#include "framework/command/AgentAsyncCommandRequestSm.h"

#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>

#include "framework/core/AllocTrack.h"
#include "framework/core/Exceptions.h"
#include "framework/generic/Type.h"
#include "tests/framework/command/ListCommandSm.h"

namespace {

using namespace Agent;

using BfnTest::Client;
using BfnTest::ListCommandSm;
using BfnTest::listed;

class AgentAsyncCommandRequestSmTest : public testing::Test {
 protected:
  Kiv::Ptr<ListCommandSm> make(U32 count, double maxRunTime = 1, U32 format = 0) {
    return Kiv::make<ListCommandSm>("list", client_.request(format), maxRunTime, clock_, count);
  }
  /// Runs what is due, moving the clock on over every wait, until the command has ended.
  SliceResult runToEnd(ListCommandSm& command) {
    for (int i = 0; i < 100000; ++i) {
      SliceResult const result = command.runSlice();
      if (result == SliceResult::Wait) clock_->nowIs(command.nextSliceTime());
      if (result != SliceResult::Wait && result != SliceResult::Again) return result;
    }
    ADD_FAILURE() << "the command does not end";
    return SliceResult::Wait;
  }

  U64 const liveBefore_ = Kiv::AllocTrackTypeInfo::liveObjects();
  Client client_;
  Kiv::Ptr<Kiv::ManualClock> clock_ = Kiv::make<Kiv::ManualClock>(1000);
};

TEST_F(AgentAsyncCommandRequestSmTest, ACommandThatNeverYieldsCompletesInOneSlice) {
  auto const command = make(10);
  EXPECT_EQ(command->runSlice(), SliceResult::Completed);
  EXPECT_EQ(client_.received, listed(10));
  EXPECT_EQ(command->slices, 1u);
  EXPECT_EQ(command->yieldCount(), 0u);
  EXPECT_EQ(command->startTime(), 1000);
  EXPECT_EQ(command->endTime(), 1000);
}

TEST_F(AgentAsyncCommandRequestSmTest, AnEndedCommandSaysTheSameAgainAndDoesNothing) {
  auto const command = make(10);
  EXPECT_EQ(command->runSlice(), SliceResult::Completed);
  EXPECT_EQ(command->runSlice(), SliceResult::Completed);
  command->abort();
  EXPECT_FALSE(command->aborted());
  EXPECT_EQ(command->runSlice(), SliceResult::Completed);
  EXPECT_EQ(command->slices, 1u);
  EXPECT_EQ(client_.received, listed(10));
}

TEST_F(AgentAsyncCommandRequestSmTest, TheDefaultsAreThese) {
  auto const command = make(10, 0.25);
  EXPECT_EQ(command->name(), "list");
  EXPECT_EQ(command->maxRunTime(), 0.25);
  EXPECT_EQ(command->clock(), clock_);
  EXPECT_EQ(command->originalRetryDelay(), 0.010);
  EXPECT_EQ(command->retryDelay(), 0.010);
  EXPECT_EQ(command->noProgressAbortTimeout(), 60);
  EXPECT_EQ(command->maxBufferSize(), 65536u);
  EXPECT_FALSE(command->executionCompleted());
  EXPECT_FALSE(command->continuation());
  EXPECT_FALSE(command->falseStart());
  EXPECT_FALSE(command->noProgress());
  EXPECT_EQ(command->prettyoutPrinter(), nullptr);
}

TEST_F(AgentAsyncCommandRequestSmTest, ASliceEndsWhenItsTimeOnTheClockIsUsedUp) {
  auto const command = make(10, 0.005);
  command->onStep = [this] { clock_->advance(0.002); };
  EXPECT_EQ(command->runSlice(), SliceResult::Again);
  EXPECT_EQ(command->at, 3u);
  EXPECT_TRUE(command->isTimeQuantaExpired());
  EXPECT_FALSE(command->isBufferFull());
  EXPECT_NEAR(command->endTime() - command->startTime(), 0.006, 1e-9);
  EXPECT_EQ(client_.received, listed(3));
  EXPECT_EQ(runToEnd(*command), SliceResult::Completed);
  EXPECT_EQ(client_.received, listed(10));
  EXPECT_EQ(command->slices, 4u);
  EXPECT_EQ(command->yieldCount(), 3u);
  EXPECT_EQ(command->timeYieldCount(), 3u);
  EXPECT_EQ(command->bufferYieldCount(), 0u);
}

TEST_F(AgentAsyncCommandRequestSmTest, WithoutRunTimeEveryLookYields) {
  auto const command = make(5, 0);
  EXPECT_EQ(runToEnd(*command), SliceResult::Completed);
  EXPECT_EQ(command->slices, 5u);
  EXPECT_EQ(client_.received, listed(5));
}

TEST_F(AgentAsyncCommandRequestSmTest, ContinuationIsFalseOnTheFirstSliceOnly) {
  auto const command = make(5, 0);
  std::string seen;
  command->onSlice = [&] { seen += command->continuation() ? 'c' : 'f'; };
  runToEnd(*command);
  EXPECT_EQ(seen, "fcccc");
  EXPECT_EQ(command->firstSlices, 1u);
}

TEST_F(AgentAsyncCommandRequestSmTest, ASliceThatReturnsForItsOwnReasonsCountsAsAPlainYield) {
  class OwnMind final : public AgentAsyncCommandRequestSm {
   public:
    explicit OwnMind(Kiv::Ptr<Kiv::Clock const> const& clock)
        : AgentAsyncCommandRequestSm("own", nullptr, 1, clock) {}
    void handleAsyncCommand(U32, U32) override { executionCompletedIs(yieldCount() == 2); }
  };
  auto const command = Kiv::make<OwnMind>(clock_);
  EXPECT_EQ(command->runSlice(), SliceResult::Again);
  EXPECT_EQ(command->runSlice(), SliceResult::Again);
  EXPECT_EQ(command->runSlice(), SliceResult::Completed);
  EXPECT_EQ(command->yieldCount(), 2u);
  EXPECT_EQ(command->timeYieldCount(), 0u);
  EXPECT_EQ(command->bufferYieldCount(), 0u);
}

TEST_F(AgentAsyncCommandRequestSmTest, AFullBufferEndsTheSliceAndPutsOffTheNextOne) {
  auto const command = make(100);
  command->maxBufferSizeIs(90);
  client_.perCall = 0;
  EXPECT_EQ(command->runSlice(), SliceResult::Wait);
  EXPECT_EQ(command->at, 10u);
  EXPECT_TRUE(command->isBufferFull());
  EXPECT_FALSE(command->isTimeQuantaExpired());
  EXPECT_EQ(command->bufferYieldCount(), 1u);
  EXPECT_EQ(command->bufferFullCount(), 1u);
  EXPECT_FALSE(command->noProgress()) << "the slice itself was progress";
  EXPECT_EQ(command->nextSliceTime(), 1000.010);

  EXPECT_EQ(command->runSlice(), SliceResult::Wait) << "not yet time";
  EXPECT_EQ(command->bufferFullCount(), 1u);
  clock_->nowIs(1000.010);
  EXPECT_EQ(command->runSlice(), SliceResult::Wait);
  EXPECT_EQ(command->slices, 1u);
  EXPECT_EQ(command->bufferFullCount(), 2u);
  EXPECT_TRUE(command->noProgress());

  client_.perCall = std::string::npos;
  clock_->nowIs(command->nextSliceTime());
  EXPECT_EQ(runToEnd(*command), SliceResult::Completed);
  EXPECT_EQ(client_.received, listed(100));
}

TEST_F(AgentAsyncCommandRequestSmTest, TheBufferHoldsTheLimitAndOneStepAtMostWhileTheSinkRefuses) {
  auto const command = make(100000);
  command->maxBufferSizeIs(900);
  client_.perCall = 0;
  for (int i = 0; i < 10; ++i) {
    command->wake();
    EXPECT_EQ(command->runSlice(), SliceResult::Wait);
    EXPECT_LE(command->prettyoutPrinter()->buffer().waiting(), 909u);
  }
}

TEST_F(AgentAsyncCommandRequestSmTest, RetriesBackOffWhileTheSinkTakesNothing) {
  auto const command = make(100);
  command->maxBufferSizeIs(90);
  client_.perCall = 0;
  command->runSlice();
  std::string waits;
  double last = clock_->now();
  for (int i = 0; i < 10; ++i) {
    clock_->nowIs(command->nextSliceTime());
    std::ostringstream wait;
    wait << clock_->now() - last << ' ';
    waits += wait.str();
    last = clock_->now();
    EXPECT_EQ(command->runSlice(), SliceResult::Wait);
  }
  EXPECT_EQ(waits, "0.01 0.01 0.02 0.04 0.08 0.16 0.32 0.64 1 1 ");
}

TEST_F(AgentAsyncCommandRequestSmTest, OneByteTakenIsProgressAndResetsTheBackOff) {
  auto const command = make(100);
  command->maxBufferSizeIs(90);
  client_.perCall = 0;
  for (int i = 0; i < 6; ++i) {
    command->runSlice();
    clock_->nowIs(command->nextSliceTime());
  }
  EXPECT_TRUE(command->noProgress());
  EXPECT_GT(command->retryDelay(), 0.1);
  client_.perCall = 1;
  command->prettyoutPrinter()->renderer().addFrills("%s", std::string(50, 'x'));
  EXPECT_EQ(command->runSlice(), SliceResult::Wait);
  EXPECT_FALSE(command->noProgress());
  EXPECT_EQ(command->retryDelay(), 0.010);
}

TEST_F(AgentAsyncCommandRequestSmTest, WakeMakesTheNextSliceDueAtOnce) {
  auto const command = make(100);
  command->maxBufferSizeIs(90);
  client_.perCall = 0;
  EXPECT_EQ(command->runSlice(), SliceResult::Wait);
  client_.perCall = std::string::npos;
  EXPECT_EQ(command->runSlice(), SliceResult::Wait);
  EXPECT_EQ(client_.received, "");
  command->wake();
  EXPECT_EQ(command->runSlice(), SliceResult::Again);
  EXPECT_EQ(client_.received, listed(20));
}

TEST_F(AgentAsyncCommandRequestSmTest, ASlowSinkGetsEveryByteInOrder) {
  for (size_t const perCall : {1u, 7u, 89u, 1000u}) {
    for (U32 const format : {0u, 1u}) {
      client_.received.clear();
      client_.perCall = std::string::npos;
      EXPECT_EQ(runToEnd(*make(500, 1, format)), SliceResult::Completed);
      std::string const whole = client_.received;
      client_.received.clear();
      client_.perCall = perCall;
      auto const command = make(500, 0.003, format);
      command->onStep = [this] { clock_->advance(0.0001); };
      command->maxBufferSizeIs(300);
      EXPECT_EQ(runToEnd(*command), SliceResult::Completed);
      EXPECT_EQ(client_.received, whole);
    }
  }
}

TEST_F(AgentAsyncCommandRequestSmTest, WhatWaitsAfterTheLastSliceIsStillDelivered) {
  auto const command = make(10);
  client_.perCall = 40;
  EXPECT_EQ(command->runSlice(), SliceResult::Wait);
  EXPECT_TRUE(command->executionCompleted());
  EXPECT_EQ(client_.received.size(), 40u);
  EXPECT_EQ(runToEnd(*command), SliceResult::Completed);
  EXPECT_EQ(command->slices, 1u);
  EXPECT_EQ(client_.received, listed(10));
}

TEST_F(AgentAsyncCommandRequestSmTest, NothingMovedForTheWholeTimeoutAbortsTheCommand) {
  auto const command = make(100);
  command->maxBufferSizeIs(90);
  client_.perCall = 0;
  EXPECT_EQ(runToEnd(*command), SliceResult::Aborted);
  EXPECT_TRUE(command->aborted());
  EXPECT_FALSE(command->executionCompleted());
  EXPECT_NEAR(clock_->now() - command->noProgressStartTime(), 60, 1e-9);
  EXPECT_EQ(command->noProgressStartTime(), 1000.010);
  EXPECT_EQ(command->slices, 1u);
  client_.perCall = std::string::npos;
  EXPECT_EQ(command->runSlice(), SliceResult::Aborted);
  EXPECT_EQ(client_.received, "");
}

TEST_F(AgentAsyncCommandRequestSmTest, UndeliveredOutputOfACompletedCommandIsAbortedToo) {
  auto const command = make(10);
  command->noProgressAbortTimeoutIs(5);
  client_.perCall = 0;
  EXPECT_EQ(runToEnd(*command), SliceResult::Aborted);
  EXPECT_TRUE(command->executionCompleted());
  EXPECT_TRUE(command->aborted());
  EXPECT_NEAR(clock_->now() - command->noProgressStartTime(), 5, 1e-9);
}

TEST_F(AgentAsyncCommandRequestSmTest, ASinkThatMovesNowAndThenIsNotAborted) {
  auto const command = make(1000);
  command->maxBufferSizeIs(90);
  command->noProgressAbortTimeoutIs(5);
  client_.perCall = 0;
  double const start = clock_->now();
  SliceResult result = SliceResult::Again;
  for (int i = 0; result != SliceResult::Completed; ++i) {
    ASSERT_LT(i, 100000);
    client_.perCall = i % 7 == 0 ? 45 : 0;
    result = command->runSlice();
    ASSERT_NE(result, SliceResult::Aborted);
    if (result == SliceResult::Wait) clock_->nowIs(command->nextSliceTime());
  }
  EXPECT_GT(clock_->now() - start, 25) << "several times the timeout";
  EXPECT_EQ(client_.received, listed(1000));
}

TEST_F(AgentAsyncCommandRequestSmTest, AFalseStartIsRetriedAndIsNotTheFirstSlice) {
  auto const command = make(10);
  command->ready = false;
  EXPECT_EQ(command->runSlice(), SliceResult::Wait);
  EXPECT_TRUE(command->falseStart());
  EXPECT_FALSE(command->continuation());
  EXPECT_EQ(command->yieldCount(), 0u);
  EXPECT_EQ(command->nextSliceTime(), 1000.010);
  clock_->nowIs(1000.010);
  EXPECT_EQ(command->runSlice(), SliceResult::Wait);
  EXPECT_EQ(command->slices, 2u);
  EXPECT_FALSE(command->continuation());
  command->ready = true;
  clock_->nowIs(command->nextSliceTime());
  EXPECT_EQ(command->runSlice(), SliceResult::Completed);
  EXPECT_FALSE(command->falseStart());
  EXPECT_EQ(command->firstSlices, 1u);
  EXPECT_EQ(client_.received, listed(10));
}

TEST_F(AgentAsyncCommandRequestSmTest, ACommandThatOnlyStartsFalselyIsAborted) {
  auto const command = make(10);
  command->ready = false;
  EXPECT_EQ(runToEnd(*command), SliceResult::Aborted);
  EXPECT_NEAR(clock_->now(), 1060, 1e-9);
  EXPECT_EQ(client_.received, "");
}

TEST_F(AgentAsyncCommandRequestSmTest, AbortFromTheSinkEndsTheCommandInTheMiddleOfASlice) {
  Kiv::Ptr<ListCommandSm> command;
  auto const request = Kiv::make<AgentCommandRequest const>(1u, 0u, [&](std::string_view) {
    command->abort();
    command.reset();  // the machine's driver releases it as well
    return size_t{0};
  });
  command = Kiv::make<ListCommandSm>("list", request, 1.0, clock_, 100u);
  command->maxBufferSizeIs(90);
  ListCommandSm* const raw = command.get();
  EXPECT_EQ(raw->runSlice(), SliceResult::Aborted);
  EXPECT_EQ(command, nullptr);
}

TEST_F(AgentAsyncCommandRequestSmTest, AbortFromTheHandlerWins) {
  auto const command = make(10);
  command->onSlice = [&] { command->abort(); };
  EXPECT_EQ(command->runSlice(), SliceResult::Aborted);
  EXPECT_EQ(client_.received, "");
  command->onSlice = nullptr;
}

TEST_F(AgentAsyncCommandRequestSmTest, AnExceptionFromTheHandlerAbortsAndPassesOn) {
  auto const command = make(10);
  command->onSlice = [] { Kiv::throwRangeException("too long"); };
  EXPECT_THROW(command->runSlice(), Kiv::RangeException);
  EXPECT_TRUE(command->aborted());
  EXPECT_EQ(command->runSlice(), SliceResult::Aborted);
  EXPECT_EQ(command->slices, 1u);
}

TEST_F(AgentAsyncCommandRequestSmTest, APrinterThatWasSetIsUsed) {
  auto const command = make(3);
  std::string taken;
  command->prettyoutPrinterIs(Kiv::make<prettyout::Printer>(prettyout::Format::Json, 100u,
                                                            [&taken](std::string_view offered) {
                                                              taken += offered;
                                                              return offered.size();
                                                            }));
  EXPECT_EQ(command->runSlice(), SliceResult::Completed);
  EXPECT_EQ(taken, R"({"numbers":{"0":{"number":"0"},"1":{"number":"1"},"2":{"number":"2"}}})"
                   "\n");
  EXPECT_EQ(client_.calls, 0u);
}

TEST_F(AgentAsyncCommandRequestSmTest, ShouldYieldWithoutAPrinterLooksAtTheTimeOnly) {
  auto const command = make(3, 0.5);
  EXPECT_FALSE(command->shouldYield());
  clock_->advance(0.5);
  EXPECT_TRUE(command->shouldYield());
  command->startTimeIs(clock_->now());
  EXPECT_FALSE(command->shouldYield());
}

TEST_F(AgentAsyncCommandRequestSmTest, ANullClockIsTheSteadyClock) {
  auto const command = Kiv::make<ListCommandSm>("list", client_.request(), 1.0, nullptr, 3u);
  ASSERT_NE(command->clock(), nullptr);
  EXPECT_EQ(command->runSlice(), SliceResult::Completed);
  EXPECT_GT(command->endTime(), 0);
}

TEST_F(AgentAsyncCommandRequestSmTest, ABufferOfNothingIsRefused) {
  auto const command = make(3);
  EXPECT_THROW(command->maxBufferSizeIs(0), Kiv::RangeException);
  EXPECT_EQ(command->maxBufferSize(), 65536u);
}

TEST_F(AgentAsyncCommandRequestSmTest, AttributesCanBeReadAndSetByName) {
  auto const command = make(3);
  Kiv::GenericValue const size("1234");
  command->genericIfAttributeOp(Kiv::GenericOp::Set, "maxBufferSize", {&size, 1});
  EXPECT_EQ(command->maxBufferSize(), 1234u);
  EXPECT_EQ(command->genericIfAttributeOp(Kiv::GenericOp::Get, "name").strep(), "list");
  std::ostringstream printed;
  Kiv::genericPrint(printed, *command);
  EXPECT_NE(printed.str().find(R"("maxBufferSize": "1234")"), std::string::npos) << printed.str();
}

TEST_F(AgentAsyncCommandRequestSmTest, ReleasesEverythingWithItsLastPointer) {
  make(10)->runSlice();
  {
    auto const half = make(10, 0);
    half->runSlice();
  }
  clock_.reset();
  EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), liveBefore_);
}

using AgentAsyncCommandRequestSmDeathTest = AgentAsyncCommandRequestSmTest;

TEST_F(AgentAsyncCommandRequestSmDeathTest, ASliceWithinASliceIsFatal) {
  auto const command = make(10);
  command->onSlice = [&] { (void)command->runSlice(); };
  EXPECT_DEATH((void)command->runSlice(),
               R"(Failed\(!running\(\)\) a slice of list is run within)");
}

}  // namespace
