// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "framework/command/CommandDispatcher.h"
#include "framework/core/Exceptions.h"
#include "framework/generic/Type.h"
#include "tests/show/ShowTest.h"

// A command's life outside its slices: how it is made, its traces, its ends.
namespace {

using ::Agent::SliceResult;
using BfnTest::ip;
using BfnTest::mac;
using BfnTest::TraceCapture;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using ShowCommandTest = BfnTest::ShowTest;
using ShowCommandDeathTest = BfnTest::ShowTest;

constexpr char const* kTypeName = "BfnMacRewrite::ShowMacRewriteCommandRequestSm";

TEST_F(ShowCommandTest, ANewCommandHasItsArgumentsAndNothingElse) {
  auto const sm = command({.vrf = "red",
                           .sip = "10.0.0.1",
                           .smac = "02:00:00:00:00:01",
                           .cliTesting = true,
                           .maxRunTime = 0.25});
  EXPECT_EQ(sm->name(), "show");
  EXPECT_EQ(sm->maxRunTime(), 0.25);
  EXPECT_EQ(sm->clock(), clock);
  EXPECT_EQ(sm->overlaySrcMacRewriteMgr(), host.agent->overlaySrcMacRewriteManager());
  EXPECT_TRUE(sm->vrfNameValid());
  EXPECT_EQ(sm->vrfName(), L3::VrfName("red"));
  EXPECT_TRUE(sm->overlaySipValid());
  EXPECT_EQ(sm->overlaySip(), ip("10.0.0.1"));
  EXPECT_TRUE(sm->overlayRewriteSrcMacValid());
  EXPECT_EQ(sm->overlayRewriteSrcMac(), mac("02:00:00:00:00:01"));
  EXPECT_TRUE(sm->cliTesting());
  EXPECT_TRUE(sm->hasNotificationActive());
  EXPECT_FALSE(sm->matchSpecIterDone());
  EXPECT_EQ(sm->bookmarkMatch(), Key());
  EXPECT_TRUE(sm->bookmarkVrf().empty());
  EXPECT_TRUE(sm->sortedVrfIpToMac().empty());
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(sm->prettyoutPrinter(), nullptr);
  EXPECT_FALSE(sm->continuation());
  EXPECT_FALSE(sm->executionCompleted());
}

TEST_F(ShowCommandTest, InitialisationDropsThePrinterAndStartsTheCommandAnew) {
  auto const sm = command();
  printerIs(sm);
  sm->handleAsyncCommand(7, 0);
  sm->continuationIs(true);
  sm->initializedIs(false);
  ASSERT_TRUE(sm->executionCompleted());
  TraceCapture::clear();
  sm->handleInitialized();
  EXPECT_EQ(sm->prettyoutPrinter(), nullptr);
  EXPECT_TRUE(sm->initialized());
  EXPECT_FALSE(sm->executionCompleted());
  EXPECT_FALSE(sm->continuation());
  EXPECT_THAT(TraceCapture::texts(), ElementsAre(HasSubstr("::handleInitialized(): SM Init.")));
}

TEST_F(ShowCommandTest, AttributesAreNumberedInOrderAfterTheBases) {
  Kiv::Type const& type = Sm::_kivType();
  EXPECT_EQ(type.name(), kTypeName);
  EXPECT_EQ(type.base(), &::Agent::AgentAsyncCommandRequestSm::_kivType());
  std::vector<std::string> texts;
  for (auto const& each : type.attributes())
    texts.push_back(std::to_string(each.id) + " " + std::string(each.name));
  EXPECT_THAT(texts,
              ElementsAre("152 overlaySrcMacRewriteMgr", "153 vrfNameValid", "154 vrfName",
                          "155 overlaySipValid", "156 overlaySip", "157 overlayRewriteSrcMacValid",
                          "158 overlayRewriteSrcMac", "159 cliTesting", "160 matchSpecIterDone",
                          "161 bookmarkMatch", "162 bookmarkVrf", "164 initialized"));
}

TEST_F(ShowCommandTest, TheSnapshotHasOneObjectAVrf) {
  auto const sm = command();
  auto const red = sm->sortedVrfIpToMacIs(L3::VrfName("red"));
  EXPECT_EQ(red->vrfName(), L3::VrfName("red"));
  EXPECT_EQ(sm->sortedVrfIpToMacIs(L3::VrfName("red")), red);
  auto const blue = sm->sortedVrfIpToMacIs(L3::VrfName("blue"));
  EXPECT_NE(blue, red);
  ASSERT_EQ(sm->sortedVrfIpToMac().size(), 2u);
  EXPECT_EQ(sm->sortedVrfIpToMac().begin()->second, blue);
  sm->sortedVrfIpToMacDel(L3::VrfName("green"));
  sm->sortedVrfIpToMacDel(L3::VrfName("blue"));
  ASSERT_EQ(sm->sortedVrfIpToMac().size(), 1u);
  EXPECT_EQ(sm->sortedVrfIpToMac().begin()->second, red);
  sm->sortedVrfIpToMacDelAll();
  EXPECT_TRUE(sm->sortedVrfIpToMac().empty());
  EXPECT_NE(sm->sortedVrfIpToMacIs(L3::VrfName("red")), red);
}

TEST_F(ShowCommandTest, TheDispatcherMakesACommandByTypeNameFromAnArgumentArray) {
  blueAndRed();
  std::vector<std::string> ends;
  ::Agent::CommandDispatcher dispatcher(
      clock, 1e9, [&](::Agent::AgentAsyncCommandRequestSm& ended, SliceResult result) {
        ends.push_back(ended.name().stdString() +
                       (result == SliceResult::Completed ? " ok" : " aborted"));
      });
  std::vector<Kiv::GenericValue> arguments{
      Kiv::GenericValue(host.agent->overlaySrcMacRewriteManager()),
      "True",
      "'red'",
      "False",
      "0.0.0.0",
      "False",
      "00:00:00:00:00:00",
      "False"};
  (void)dispatcher.commandIs(kTypeName, request(), arguments);
  while (dispatcher.commands() > 0) (void)dispatcher.runSlices();
  EXPECT_EQ(received, kHeader + line("red", "10.0.0.1", "02:00:00:00:01:01") +
                          line("red", "10.0.0.2", "02:00:00:00:01:02") + "\n");
  EXPECT_THAT(ends, ElementsAre(std::string(kTypeName) + "-1 ok"));

  // Each argument has its place.
  arguments = {Kiv::GenericValue(host.agent->overlaySrcMacRewriteManager()),
               "False",
               "''",
               "True",
               "10.0.0.7",
               "True",
               "02:00:00:00:00:07",
               "True"};
  auto const sm = Kiv::ptrCast<Sm>(dispatcher.commandIs(kTypeName, request(), arguments));
  ASSERT_NE(sm, nullptr);
  EXPECT_EQ(sm->overlaySrcMacRewriteMgr(), host.agent->overlaySrcMacRewriteManager());
  EXPECT_FALSE(sm->vrfNameValid());
  EXPECT_TRUE(sm->vrfName().empty());
  EXPECT_TRUE(sm->overlaySipValid());
  EXPECT_EQ(sm->overlaySip(), ip("10.0.0.7"));
  EXPECT_TRUE(sm->overlayRewriteSrcMacValid());
  EXPECT_EQ(sm->overlayRewriteSrcMac(), mac("02:00:00:00:00:07"));
  EXPECT_TRUE(sm->cliTesting());
  EXPECT_TRUE(sm->hasNotificationActive());

  arguments[3] = "perhaps";
  EXPECT_THROW((void)dispatcher.commandIs(kTypeName, request(), arguments), Kiv::RangeException);
  arguments.pop_back();
  EXPECT_THROW((void)dispatcher.commandIs(kTypeName, request(), arguments), Kiv::RangeException);
  EXPECT_EQ(dispatcher.commands(), 1u);
}

TEST_F(ShowCommandTest, ASliceBeforeInitialisationIsAFalseStart) {
  blueAndRed();
  auto const sm = command();
  sm->initializedIs(false);
  EXPECT_EQ(sm->runSlice(), SliceResult::Wait);
  EXPECT_TRUE(sm->falseStart());
  EXPECT_FALSE(sm->continuation());
  EXPECT_EQ(sm->prettyoutPrinter()->buffer().waiting(), 0u);
  EXPECT_THAT(received, IsEmpty());
  sm->initializedIs(true);
  sm->wake();
  EXPECT_EQ(run(sm), 1u);
  EXPECT_FALSE(sm->falseStart());
  EXPECT_EQ(received, blueAndRedText());
}

TEST_F(ShowCommandTest, ASliceClearsTheMarkOfAFalseStart) {
  auto const sm = command();
  printerIs(sm);
  sm->falseStartIs(true);
  sm->handleAsyncCommand(7, 0);
  EXPECT_FALSE(sm->falseStart());
  EXPECT_TRUE(sm->executionCompleted());
}

TEST_F(ShowCommandTest, TracesHaveTheFullSignatureAndTheTableManagersFacility) {
  auto const sm = command({.cliTesting = true});
  run(sm);
  auto const records = TraceCapture::records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].text,
            "void BfnMacRewrite::ShowMacRewriteCommandRequestSm::handleInitialized(): SM Init.");
  EXPECT_THAT(records[1].text,
              AllOf(HasSubstr("void BfnMacRewrite::ShowMacRewriteCommandRequestSm::"
                              "handleAsyncCommand("),
                    HasSubstr("): Socket 7 format 0")));
  for (auto const& record : records) {
    EXPECT_EQ(record.statement->facility(), "BfnMacRewriteTableMgr");
    EXPECT_EQ(record.statement->level(), 9u);
  }
}

TEST_F(ShowCommandTest, TheTraceOfASliceNamesSocketAndFormat) {
  auto const sm = command();
  sm->initializedIs(false);
  TraceCapture::clear();
  sm->handleAsyncCommand(4'000'000'000, 1);
  EXPECT_THAT(TraceCapture::texts(), ElementsAre(HasSubstr("): Socket 4000000000 format 1")));
}

TEST_F(ShowCommandDeathTest, ASliceAfterCompletionIsFatal) {
  auto const sm = command();
  printerIs(sm);
  sm->handleAsyncCommand(7, 0);
  ASSERT_TRUE(sm->executionCompleted());
  EXPECT_DEATH(sm->handleAsyncCommand(7, 0),
               AllOf(ContainsRegex("Failed\\(executionCompleted\\(\\) == false\\) execution "
                                   "completed before start[^\n]"),
                     HasSubstr("\"executionCompleted() == false\" == nullptr")));
}

TEST_F(ShowCommandDeathTest, AMissingTableManagerIsFatal) {
  auto const sm = command({}, nullptr);
  printerIs(sm);
  EXPECT_DEATH(sm->handleAsyncCommand(7, 0),
               AllOf(ContainsRegex("Failed\\(overlaySrcMacRewriteMgr\\(\\)\\) table manager not "
                                   "initialized[^\n]"),
                     HasSubstr("\"overlaySrcMacRewriteMgr()\" == nullptr")));
}

TEST_F(ShowCommandDeathTest, CompletionIsCheckedBeforeTheTableManager) {
  auto const sm = command({}, nullptr);
  sm->executionCompletedIs(true);
  EXPECT_DEATH(sm->handleAsyncCommand(7, 0), HasSubstr("execution completed before start"));
}

TEST_F(ShowCommandTest, WithoutInitialisationNeitherCompletionNorTheManagerIsChecked) {
  auto const sm = command({}, nullptr);
  sm->executionCompletedIs(true);
  sm->initializedIs(false);
  sm->handleAsyncCommand(7, 0);
  EXPECT_TRUE(sm->falseStart());
}

TEST_F(ShowCommandDeathTest, PrintingWithoutPrinterIsFatal) {
  auto const sm = command();
  auto const death =
      AllOf(ContainsRegex("Failed\\(prettyoutPrinter\\(\\)\\) prettyoutPrinter is NULL[^\n]"),
            HasSubstr("\"prettyoutPrinter()\" == nullptr"));
  EXPECT_DEATH(sm->printHeader(), death);
  EXPECT_DEATH(sm->printEntry(L3::VrfName("red"), ip("10.0.0.1"), mac("02:00:00:00:00:01")), death);
  EXPECT_DEATH(sm->handleAsyncCommand(7, 0), death);
  sm->continuationIs(true);
  EXPECT_DEATH(sm->handleAsyncCommand(7, 0), death);
}

}  // namespace
