// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/Decode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

#include "framework/trace/Trace.h"
#include "tests/framework/trace/TraceTestLibrary.h"
#include "tests/support/TraceCapture.h"

KIV_TRACE_FACILITY("DecodeTest")

namespace BfnTest {

int lineOfCount = 0;

void count(int n) {
  lineOfCount = __LINE__ + 1;
  KIV_TRACE(4, "n: ", n, " of %d");
}

void throwInAnArgument() {
  auto const fails = []() -> int { throw 1; };
  KIV_TRACE(9, "value ", fails());
}

int inner() {
  KIV_TRACE(9, "inner");
  return 5;
}
void outer() {
  KIV_TRACE(9, "outer ", inner());
}

}  // namespace BfnTest

namespace {

using BfnTest::TraceCapture;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

TEST(Decode, ReportsEverythingAboutARecord) {
  TraceCapture const capture;
  auto const before = std::chrono::system_clock::now();
  BfnTest::count(7);
  auto const records = TraceCapture::records();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].text, "void BfnTest::count(int): n: 7 of %d");
  EXPECT_LT(std::chrono::abs(records[0].time - before), std::chrono::seconds(1));
  Ringlog::MsgDesc const& statement = *records[0].statement;
  EXPECT_EQ(statement.facility(), "DecodeTest");
  EXPECT_EQ(statement.level(), 4U);
  EXPECT_STREQ(statement.file(), "tests/framework/trace/DecodeTest.cpp");
  EXPECT_EQ(statement.line(), static_cast<Kiv::U32>(BfnTest::lineOfCount));
  EXPECT_STREQ(statement.function(), "count");
  EXPECT_STREQ(statement.signature(), "void BfnTest::count(int)");
  EXPECT_EQ(statement.format(), "n: %s of %d");
}

TEST(Decode, GivesTheLastRecordsOnly) {
  TraceCapture const capture;
  for (int i = 0; i < 5; ++i) BfnTest::count(i);
  auto const records = Ringlog::decode(Ringlog::defaultRinglogHandle, 2);
  ASSERT_EQ(records.size(), 2U);
  EXPECT_THAT(records[0].text, EndsWith("n: 3 of %d"));
  EXPECT_THAT(records[1].text, EndsWith("n: 4 of %d"));
  EXPECT_TRUE(Ringlog::decode(Ringlog::defaultRinglogHandle, 0).empty());
}

TEST(Decode, WorksAfterTheRingHasWrappedManyTimes) {
  TraceCapture const capture;
  int const count = 200000;
  for (int i = 0; i < count; ++i) BfnTest::count(i);
  auto const records = TraceCapture::records();
  // A record is four words.
  size_t const fit = Ringlog::RingBuf::kDefaultBytes / 32;
  ASSERT_GT(records.size(), fit - 10);
  ASSERT_LE(records.size(), fit);
  for (size_t i = 0; i < records.size(); ++i) {
    int const n = count - static_cast<int>(records.size() - i);
    ASSERT_EQ(records[i].text, "void BfnTest::count(int): n: " + std::to_string(n) + " of %d");
  }
}

TEST(Decode, ReadsTracesOfAnotherSharedLibrary) {
  TraceCapture const capture;
  traceFromTheLibrary(1);
  traceFromTheLibrary(2);
  EXPECT_THAT(TraceCapture::texts(), ElementsAre("void traceFromTheLibrary(int): number 1",
                                                 "void traceFromTheLibrary(int): number 2"));
  EXPECT_EQ(TraceCapture::records()[0].statement->facility(), "TraceTestLibrary");
  EXPECT_NE(Kiv::TraceHandle::find("TraceTestLibrary"), nullptr);
}

TEST(Decode, GivesAllTracesOfOneEventItsTime) {
  TraceCapture const capture;
  {
    Ringlog::EventScope const event;
    BfnTest::count(1);
    BfnTest::count(2);
  }
  auto const records = TraceCapture::records();
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].counter, records[1].counter);
  EXPECT_EQ(records[0].time, records[1].time);
}

TEST(Decode, OrdersTimes) {
  TraceCapture const capture;
  for (int i = 0; i < 100; ++i) BfnTest::count(i);
  auto const records = TraceCapture::records();
  for (size_t i = 1; i < records.size(); ++i) ASSERT_LE(records[i - 1].time, records[i].time);
}

TEST(Decode, FindsNoRecordOfATraceWhoseArgumentThrew) {
  TraceCapture const capture;
  EXPECT_THROW(BfnTest::throwInAnArgument(), int);
  BfnTest::count(1);
  EXPECT_THAT(TraceCapture::texts(), ElementsAre("void BfnTest::count(int): n: 1 of %d"));
}

TEST(Decode, ShowsATraceInAnArgumentBeforeTheTraceItself) {
  TraceCapture const capture;
  BfnTest::outer();
  EXPECT_THAT(TraceCapture::texts(),
              ElementsAre("int BfnTest::inner(): inner", "void BfnTest::outer(): outer 5"));
}

TEST(Decode, PrintsARecordInOneLine) {
  TraceCapture const capture;
  BfnTest::count(7);
  std::ostringstream printed;
  Ringlog::print(printed);
  EXPECT_THAT(printed.str(), MatchesRegex("....-..-..T..:..:..[.]......Z DecodeTest:4 "
                                          "tests/framework/trace/DecodeTest.cpp:[0-9]+ "
                                          "void BfnTest::count[(]int[)]: n: 7 of %d\n"));
}

TEST(Statements, CanBeFoundOnceTheyHaveRun) {
  EXPECT_TRUE(Ringlog::MsgDesc::find("DecodeTest", "noSuchFunction").empty());
  EXPECT_TRUE(Ringlog::MsgDesc::find("NoSuchFacility").empty());
  BfnTest::count(1);
  auto const found = Ringlog::MsgDesc::find("DecodeTest", "count");
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0]->line(), static_cast<Kiv::U32>(BfnTest::lineOfCount));
  EXPECT_EQ(found[0]->format(), "n: %s of %d");
}

}  // namespace
