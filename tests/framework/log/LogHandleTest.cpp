// SPDX-License-Identifier: Apache-2.0
#include "framework/log/LogHandle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <stdexcept>
#include <vector>

#include "framework/log/EmitLog.h"
#include "framework/log/LogService.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VrfName.h"
#include "tests/support/AllocationCount.h"

namespace {

using Kiv::emitLog;
using Kiv::LogHandle;
using Kiv::LogMessage;
using Kiv::LogService;
using Kiv::LogSeverity;
using Kiv::LogString;
using ::testing::ElementsAre;
using ::testing::Field;

Kiv::LogHandle registeredAtLoad("LOG_TEST_AT_LOAD", LogSeverity::notice, "format", "explanation",
                                "action", 1.0, 2.0, true);

/// Counts how often it is made into text.
struct Counted {
  int* count;
  friend std::ostream& operator<<(std::ostream& stream, Counted const& counted) {
    ++*counted.count;
    return stream << "counted";
  }
};

struct Unprintable {
  friend std::ostream& operator<<(std::ostream&, Unprintable) {
    throw std::runtime_error("unprintable");
  }
};

class Log : public ::testing::Test {
 protected:
  void SetUp() override {
    LogService::reset();
    LogService::clockIs([this] { return now_; });
    LogService::sinkIs([this](LogMessage const& message) { lines_.push_back(toString(message)); });
  }
  void TearDown() override { LogService::reset(); }

  double now_ = 1000;
  std::vector<std::string> lines_;
  LogHandle byId_{
      "BY_ID", LogSeverity::warning, "VRF: %s source IP: %s", "why", "what to do", 60.0, 1.0,
      false};
  LogHandle byArgs_{"BY_ARGS", LogSeverity::error, "%s", "why", "what to do", 60.0, 1.0, true};
};

TEST_F(Log, WritesSeverityNameAndText) {
  EXPECT_TRUE(emitLog(byId_, L3::VrfName("red"), Ovra::IpAddr(0x0a000001)));
  EXPECT_THAT(lines_, ElementsAre("warning: BY_ID: VRF: red source IP: 10.0.0.1"));
}

TEST_F(Log, LimitsAHandleAsAWholeByItsId) {
  EXPECT_TRUE(emitLog(byId_, "red", "10.0.0.1"));
  EXPECT_FALSE(emitLog(byId_, "blue", "10.0.0.2"));
  now_ += 60;
  EXPECT_TRUE(emitLog(byId_, "green", "10.0.0.3"));
  EXPECT_THAT(lines_, ElementsAre("warning: BY_ID: VRF: red source IP: 10.0.0.1",
                                  "warning: BY_ID: VRF: green source IP: 10.0.0.3 [1 held back]"));
}

TEST_F(Log, LimitsEachSetOfArgumentsByItself) {
  EXPECT_TRUE(emitLog(byArgs_, "red"));
  EXPECT_TRUE(emitLog(byArgs_, "blue"));
  EXPECT_FALSE(emitLog(byArgs_, "red"));
  EXPECT_THAT(lines_, ElementsAre("error: BY_ARGS: red", "error: BY_ARGS: blue"));
}

TEST_F(Log, DoesNotShareALimitBetweenHandles) {
  LogHandle other("OTHER", LogSeverity::warning, "x", "", "", 60.0, 1.0, false);
  EXPECT_TRUE(emitLog(byId_, "a", "b"));
  EXPECT_TRUE(emitLog(other));
}

TEST_F(Log, MakesTextsOnlyWhenTheMessageGoesOutOrTheLimitNeedsThem) {
  int count = 0;
  ASSERT_TRUE(emitLog(byId_, Counted{&count}, "x"));
  EXPECT_EQ(count, 1);
  ASSERT_FALSE(emitLog(byId_, Counted{&count}, "x"));
  EXPECT_EQ(count, 1);
  count = 0;
  ASSERT_TRUE(emitLog(byArgs_, Counted{&count}));
  EXPECT_EQ(count, 1);
  ASSERT_FALSE(emitLog(byArgs_, Counted{&count}));
  EXPECT_EQ(count, 2);
}

TEST_F(Log, CanBeEmittedStepByStep) {
  LogString arguments;
  arguments.strIs(0, "red");
  arguments.strIs(1, "10.0.0.1");
  ASSERT_TRUE(byId_.okToLog(byId_.idHash()));
  byId_.log(arguments);
  EXPECT_FALSE(byId_.okToLog(byId_.idHash()));
  EXPECT_THAT(lines_, ElementsAre("warning: BY_ID: VRF: red source IP: 10.0.0.1"));
}

TEST_F(Log, WritesBytesAsNumbersAndTextsAsTheyAre) {
  emitLog(byArgs_, Kiv::U8{65});
  emitLog(byArgs_, Kiv::String("%s"));
  emitLog(byArgs_, std::string_view("view"));
  EXPECT_THAT(lines_,
              ElementsAre("error: BY_ARGS: 65", "error: BY_ARGS: %s", "error: BY_ARGS: view"));
}

TEST_F(Log, KnowsItsHandlesByName) {
  EXPECT_EQ(LogHandle::find("LOG_TEST_AT_LOAD"), &registeredAtLoad);
  EXPECT_EQ(LogHandle::find("BY_ID"), &byId_);
  EXPECT_EQ(LogHandle::find("NOBODY"), nullptr);
  std::vector<std::string> names;
  LogHandle::forEach([&](LogHandle& handle) { names.push_back(handle.name()); });
  EXPECT_THAT(names, ElementsAre("BY_ARGS", "BY_ID", "LOG_TEST_AT_LOAD"));
}

TEST_F(Log, ForgetsAHandleThatIsGone) {
  { LogHandle const brief("BRIEF", LogSeverity::debug, "", "", "", 1.0, 1.0, false); }
  EXPECT_EQ(LogHandle::find("BRIEF"), nullptr);
}

TEST_F(Log, ReportsWhatAHandleWasBuiltWith) {
  EXPECT_EQ(byId_.name(), "BY_ID");
  EXPECT_EQ(byId_.severity(), LogSeverity::warning);
  EXPECT_EQ(static_cast<int>(byId_.severity()), 4);
  EXPECT_EQ(byId_.format(), "VRF: %s source IP: %s");
  EXPECT_EQ(byId_.explanation(), "why");
  EXPECT_EQ(byId_.recommendedAction(), "what to do");
  EXPECT_EQ(byId_.interval(), 60.0);
  EXPECT_EQ(byId_.burst(), 1.0);
  EXPECT_FALSE(byId_.rateLimitArgs());
  EXPECT_NE(byId_.idHash(), byArgs_.idHash());
}

TEST_F(Log, KeepsTheRecentMessagesAndNoMore) {
  for (int i = 0; i < 300; ++i) emitLog(byArgs_, i);
  auto const& recent = LogService::recent();
  ASSERT_EQ(recent.size(), LogService::kMaxRecent);
  EXPECT_EQ(recent.front().text, "44");
  EXPECT_EQ(recent.back().text, "299");
  EXPECT_EQ(recent.back().time, 1000);
}

TEST_F(Log, ResetBringsLimitsClockAndSinkBack) {
  ASSERT_TRUE(emitLog(byId_, "a", "b"));
  LogService::reset();
  EXPECT_TRUE(LogService::recent().empty());
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(emitLog(byId_, "c", "d"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "warning: BY_ID: VRF: c source IP: d\n");
  EXPECT_EQ(lines_.size(), 1U);
  EXPECT_NE(LogService::recent().back().time, 1000);
}

TEST_F(Log, SinkMayReplaceItself) {
  LogService::sinkIs([this](LogMessage const& message) {
    LogService::sinkIs({});
    lines_.push_back(message.text);
  });
  emitLog(byArgs_, "red");
  EXPECT_THAT(lines_, ElementsAre("red"));
}

TEST_F(Log, ClockMayReplaceItself) {
  std::string const text(100, 'c');  // on the heap, with the clock
  std::string seen;
  LogService::clockIs([this, text, &seen] {
    LogService::clockIs([this] { return now_; });
    seen = text;
    return 5.0;
  });
  EXPECT_EQ(LogService::now(), 5.0);
  EXPECT_EQ(seen, text);
  EXPECT_EQ(LogService::now(), now_);
}

TEST_F(Log, WhatASinkThrowsEndsThereAndStandardErrorTakesTheMessage) {
  LogService::sinkIs([](LogMessage const&) { throw std::runtime_error("no room"); });
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(emitLog(byArgs_, "red"));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "error: BY_ARGS: red\n");
  EXPECT_EQ(LogService::recent().back().text, "red");
}

TEST_F(Log, CountsAMessageThatIsLostForLackOfMemoryAsNotSent) {
  std::string const longName(60, 'v');
  for (LogHandle* handle : {&byId_, &byArgs_}) {
    ASSERT_TRUE(emitLog(*handle, longName, "before"));
    ASSERT_FALSE(emitLog(*handle, longName, "before"));
    now_ += 60;
    size_t spared = 0;
    bool sent = false;
    for (; !sent; ++spared) {
      ASSERT_LT(spared, 100U);
      size_t const before = LogService::recent().size();
      BfnTest::NoMemory noMemory(spared);
      sent = emitLog(*handle, longName, "before");
      noMemory.end();
      EXPECT_EQ(LogService::recent().size(), sent ? before + 1 : before);
    }
    EXPECT_GT(spared, 3U);
    EXPECT_EQ(LogService::recent().back().heldBack, 1U) << "reported once, by what was sent";
    EXPECT_FALSE(emitLog(*handle, longName, "before"));
  }
}

TEST_F(Log, CountsAMessageWhoseArgumentCannotBeWrittenAsNotSent) {
  EXPECT_THROW(emitLog(byId_, Unprintable(), "x"), std::runtime_error);
  EXPECT_TRUE(emitLog(byId_, "red", "x"));
}

TEST(LogSeverityNames, AreTheUsualEight) {
  std::vector<std::string> names;
  for (int i = 0; i < 8; ++i) names.emplace_back(name(static_cast<LogSeverity>(i)));
  EXPECT_THAT(names, ElementsAre("emergency", "alert", "critical", "error", "warning", "notice",
                                 "informational", "debug"));
}

}  // namespace
