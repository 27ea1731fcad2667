// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/Trace.h"

#include <algorithm>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "framework/trace/TraceHelper.h"
#include "framework/values/IntfId.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VlanId.h"
#include "tests/support/AllocationCount.h"
#include "tests/support/TraceCapture.h"

KIV_TRACE_FACILITY("TraceTest")

// In a namespace with a name, so that every compiler writes the same signatures.
namespace BfnTest {

enum class Colour : Kiv::U8 { red = 1, green = 2 };

class Machine {
 public:
  void handleEntry() { KIV_TRACE(9); }
  void handleEmpty() { KIV_TRACE(9, ""); }
  void handleValues(Ovra::IpAddr ip, Ovra::IntfId const& intfId, Bridging::VlanId vlan) {
    KIV_TRACE(9, "ipAddr: ", ip, " intfId: ", intfId, ", vlan: ", vlan);
  }
  void handleText(std::string const& text) const { KIV_TRACE(4, text, '.', "%s%n"); }
  static void handleBytes(Kiv::U8 count, Colour colour, bool flag, char const* none) {
    KIV_TRACE(9, "count ", count, " colour ", colour, " flag ", flag, " none ", none);
  }
};

struct Unprintable {};
std::ostream& operator<<(std::ostream&, Unprintable) {
  throw std::runtime_error("unprintable");
}

void traceUnprintable() {
  KIV_TRACE(9, Unprintable());
}

void traceState(bool up) {
  KIV_TRACE(9, "state ", up ? "up" : "no");
}

void traceArrays(char const (&padded)[8], char const (&full)[2]) {
  KIV_TRACE(9, "padded ", padded, " full ", full);
}

void traceOddLiterals(int n) {
  KIV_TRACE(9,
            "one \","
            "two, ",
            std::max(n, 2), ',', "\\", '"', 1'000, ", ", (std::pair<int, int>(n, 4).second));
}

void traceFirstWithoutMemory(int n) {
  KIV_TRACE(9, "a: ", n, " b: ", n + 1, " c: ", n + 2);
}

void traceThree(Kiv::U32 a, std::string_view b, Kiv::U32 c) {
  KIV_TRACE(9, "a: ", a, " b: ", b, " c: ", c);
}

template <class T>
class Template {
 public:
  void handle(T value) { KIV_TRACE(9, "value: ", value); }
};

}  // namespace BfnTest

namespace {

using BfnTest::TraceCapture;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::StartsWith;

class TextTrace : public ::testing::Test {
 protected:
  void SetUp() override {
    Kiv::TraceHelper::sinkIs([this](Kiv::TraceLine const& line) { lines_.push_back(line.text); });
    kivTraceHandle().levelsAre(Kiv::TraceHandle::kAllLevels);
  }
  void TearDown() override {
    kivTraceHandle().levelsAre(0);
    Kiv::TraceHelper::sinkIs({});
  }

  std::vector<std::string> lines_;
};

TEST_F(TextTrace, StartsWithTheSignature) {
  BfnTest::Machine machine;
  machine.handleEntry();
  machine.handleEmpty();
  machine.handleText("text");
  EXPECT_THAT(lines_, ElementsAre("void BfnTest::Machine::handleEntry(): ",
                                  "void BfnTest::Machine::handleEmpty(): ",
                                  StartsWith("void BfnTest::Machine::handleText(const ")));
}

TEST_F(TextTrace, WritesValuesByTheirStreamOperators) {
  BfnTest::Machine().handleValues(Ovra::IpAddr(0x0a000001), Ovra::IntfId("Ethernet1"),
                                  Bridging::VlanId(7));
  ASSERT_EQ(lines_.size(), 1U);
  EXPECT_THAT(lines_[0], EndsWith("): ipAddr: 10.0.0.1 intfId: Ethernet1, vlan: 7"));
}

TEST_F(TextTrace, WritesBytesAsNumbers) {
  BfnTest::Machine::handleBytes(65, BfnTest::Colour::green, true, nullptr);
  ASSERT_EQ(lines_.size(), 1U);
  EXPECT_THAT(lines_[0], EndsWith(": count 65 colour 2 flag 1 none (null)"));
}

TEST_F(TextTrace, NeverReadsATextAsAFormat) {
  BfnTest::Machine().handleText("%s%n");
  ASSERT_EQ(lines_.size(), 1U);
  EXPECT_THAT(lines_[0], EndsWith(" const: %s%n46%s%n"));
}

TEST_F(TextTrace, IsWhatTheRingDecodesTo) {
  TraceCapture const capture;
  BfnTest::Machine machine;
  machine.handleEntry();
  machine.handleValues(Ovra::IpAddr(0x0a000001), Ovra::IntfId("Ethernet1"), Bridging::VlanId(7));
  machine.handleText(std::string(300, 'x'));
  machine.handleText("line\nbreak");
  BfnTest::Machine::handleBytes(0, BfnTest::Colour::red, false, "x");
  BfnTest::Template<double>().handle(0.25);
  ASSERT_EQ(lines_.size(), 6U);
  EXPECT_EQ(TraceCapture::texts(), lines_);
}

TEST_F(TextTrace, IsWrittenOnlyForAnEnabledLevel) {
  TraceCapture const capture;
  kivTraceHandle().levelsAre(1U << 4);
  BfnTest::Machine().handleEntry();
  BfnTest::Machine().handleText("four");
  ASSERT_EQ(lines_.size(), 1U);
  EXPECT_THAT(lines_[0], EndsWith("four46%s%n"));
  EXPECT_EQ(TraceCapture::texts().size(), 2U) << "the ring has both";
}

TEST_F(TextTrace, GivesTheSinkItsFileAndLine) {
  std::vector<Kiv::TraceLine> traced;
  Kiv::TraceHelper::sinkIs([&](Kiv::TraceLine const& line) { traced.push_back(line); });
  BfnTest::Machine().handleText("text");
  ASSERT_EQ(traced.size(), 1U);
  EXPECT_STREQ(traced[0].facility, "TraceTest");
  EXPECT_EQ(traced[0].level, 4U);
  EXPECT_STREQ(traced[0].file, "tests/framework/trace/TraceTest.cpp");
  EXPECT_STREQ(traced[0].function, "handleText");
  EXPECT_EQ(traced[0].line, Ringlog::MsgDesc::find("TraceTest", "handleText").front()->line());
}

TEST_F(TextTrace, GoesToStandardErrorByDefault) {
  Kiv::TraceHelper::sinkIs({});
  ::testing::internal::CaptureStderr();
  BfnTest::Machine().handleEntry();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "void BfnTest::Machine::handleEntry(): \n");
}

TEST_F(TextTrace, LeavesOutWhatItsSinkTraces) {
  TraceCapture const capture;
  int calls = 0;
  Kiv::TraceHelper::sinkIs([&](Kiv::TraceLine const&) {
    ++calls;
    BfnTest::Machine().handleEmpty();
  });
  BfnTest::Machine().handleEntry();
  BfnTest::Machine().handleEntry();
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(TraceCapture::texts().size(), 4U);
}

TEST_F(TextTrace, LosesALineWhoseSinkOrArgumentThrows) {
  TraceCapture const capture;
  BfnTest::traceUnprintable();
  EXPECT_TRUE(lines_.empty());
  EXPECT_THAT(TraceCapture::texts(),
              ElementsAre("void BfnTest::traceUnprintable(): <an argument cannot be shown>"));
  Kiv::TraceHelper::sinkIs([](Kiv::TraceLine const&) { throw std::runtime_error("full"); });
  BfnTest::Machine().handleEntry();
  SetUp();
  BfnTest::Machine().handleEntry();
  EXPECT_THAT(lines_, ElementsAre("void BfnTest::Machine::handleEntry(): "));
}

TEST_F(TextTrace, RecordsATextThatIsNoLiteralEachTime) {
  TraceCapture const capture;
  BfnTest::traceState(true);
  BfnTest::traceState(false);
  BfnTest::traceState(true);
  EXPECT_THAT(lines_,
              ElementsAre(EndsWith("state up"), EndsWith("state no"), EndsWith("state up")));
  EXPECT_EQ(TraceCapture::texts(), lines_);
  EXPECT_EQ(Ringlog::MsgDesc::find("TraceTest", "traceState").front()->format(), "state %s");
}

TEST_F(TextTrace, EndsAnArrayOfCharactersAtItsFirstNulOrItsEnd) {
  BfnTest::traceArrays({'a', 'b', '\0', 'c'}, {'d', 'e'});
  EXPECT_THAT(lines_, ElementsAre(EndsWith("padded ab full de")));
}

TEST_F(TextTrace, ReadsCommasAndQuotesInsideOfPieces) {
  BfnTest::traceOddLiterals(3);
  EXPECT_THAT(lines_, ElementsAre(EndsWith("one \",two, 344\\341000, 4")));
  EXPECT_EQ(Ringlog::MsgDesc::find("TraceTest", "traceOddLiterals").front()->format(),
            "one \",two, %s%s\\%s%s, %s");
}

// Whichever of its allocations fails: the run leaves no trace and throws nothing, and the next run
// describes the whole statement.
TEST_F(TextTrace, OfAStatementThatFirstRanWithoutMemoryIsWhole) {
  using Ringlog::MsgDesc;
  TraceCapture const capture;
  bool failed = true;
  size_t runs = 0;
  for (size_t spared = 0; failed; ++spared, ++runs) {
    ASSERT_LT(spared, 100U);
    BfnTest::NoMemory noMemory(spared);
    BfnTest::traceFirstWithoutMemory(7);
    noMemory.end();
    failed = MsgDesc::find("TraceTest", "traceFirstWithoutMemory").empty();
  }
  EXPECT_GT(runs, 3U) << "the description is made of several blocks";
  lines_.clear();
  BfnTest::traceFirstWithoutMemory(7);
  EXPECT_THAT(lines_, ElementsAre(EndsWith("a: 7 b: 8 c: 9")));
  EXPECT_EQ(MsgDesc::find("TraceTest", "traceFirstWithoutMemory").size(), 1U);
}

TEST(BinaryTrace, AllocatesNothingOnceAStatementHasRun) {
  BfnTest::traceThree(1, "twelve bytes", 2);
  size_t const before = BfnTest::allocationCount();
  for (int i = 0; i < 1000; ++i) BfnTest::traceThree(7, "twelve bytes", 9);
  EXPECT_EQ(BfnTest::allocationCount(), before);
}

TEST(BinaryTrace, WorksInTemplates) {
  TraceCapture const capture;
  BfnTest::Template<int>().handle(3);
  BfnTest::Template<Kiv::U8>().handle(4);
  auto const texts = TraceCapture::texts();
  ASSERT_EQ(texts.size(), 2U);
  EXPECT_THAT(texts[0], EndsWith(": value: 3"));
  EXPECT_THAT(texts[1], EndsWith(": value: 4"));
}

}  // namespace
