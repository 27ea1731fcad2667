// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

#include "host/prompt/Prompt.h"
#include "lab/ShellTarget.h"
#include "tests/host/shell/ShellFixture.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class CompletionTest : public BfnTest::ShellFixture {
 protected:
  std::vector<std::string> completions(std::string const& line) {
    return Host::completionsOf(line, target);
  }
  std::string explanation(std::string const& line) {
    std::string text;
    for (auto const& each : Host::explanationOf(line, target)) text += each + '\n';
    return text;
  }

  ShellTarget target{shell};
};

TEST_F(CompletionTest, WordsBeforeTheLastMayBeShortened) {
  EXPECT_THAT(completions("sh run"), ElementsAre("running-config"));
  EXPECT_THAT(completions("d"), ElementsAre("dump"));
}

TEST_F(CompletionTest, TraceLevelsAreThoseThatAreInUse) {
  EXPECT_THAT(completions("trace level "), ElementsAre("0", "4", "9", "off"));
  EXPECT_THAT(completions("trace level o"), ElementsAre("off"));
}

TEST_F(CompletionTest, NamesBeyondAsciiAreCompletedWithoutQuotes) {
  printed("host vrf z\xc3\xbcrich id 7\nhost vrf \"a b\" id 8");
  EXPECT_THAT(completions("no host vrf z"), ElementsAre("z\xc3\xbcrich"));
  EXPECT_THAT(completions("no host vrf z\xc3\xbc"), ElementsAre("z\xc3\xbcrich"));
  EXPECT_THAT(completions("no host vrf \"a"), ElementsAre("\"a b\""));
  EXPECT_THAT(completions("no host vrf \"a "), ElementsAre("\"a b\""));
}

TEST_F(CompletionTest, VrfIdsAndProfilesThatTheHostKnowsAreOffered) {
  bringUp();
  printed("host vrf red id 7\nhost address 10.0.0.1 vrf-id 9");
  EXPECT_THAT(completions("host address 10.0.0.2 vrf-id "), ElementsAre("7", "9"));
  EXPECT_THAT(completions("host use profile "), Not(IsEmpty()));
}

TEST_F(CompletionTest, FilesAreOfferedWhereOneIsExpected) {
  std::string name = (std::filesystem::temp_directory_path() / "completion-XXXXXX").string();
  ASSERT_NE(mkdtemp(name.data()), nullptr);
  std::filesystem::create_directory(name + "/inner");
  std::ofstream(name + "/case.lab") << "print x\n";
  std::ofstream(name + "/.hidden") << "print x\n";
  EXPECT_THAT(completions("load " + name + "/"), ElementsAre(name + "/case.lab", name + "/inner/"));
  EXPECT_THAT(completions("load " + name + "/c"), ElementsAre(name + "/case.lab"));
  EXPECT_THAT(completions("load " + name + "/none/"), IsEmpty());
  std::filesystem::remove_all(name);
}

TEST_F(CompletionTest, FiltersAreOfferedAfterAWholeCommand) {
  EXPECT_THAT(completions("show chip | "),
              ElementsAre("begin", "count", "exclude", "include", "json", "save"));
  EXPECT_THAT(completions("show chip | include x | co"), ElementsAre("count"));
  EXPECT_THAT(completions("show | "), IsEmpty());
}

TEST_F(CompletionTest, WhatMayComeNextIsExplained) {
  EXPECT_THAT(explanation("show ru"), HasSubstr("  running-config  the operator's configuration"));
  EXPECT_THAT(explanation("host vrf "), HasSubstr("  <VRF>  a VRF name of at most 100 bytes"));
  EXPECT_THAT(explanation("show chip "), HasSubstr("  <cr>  "));
  EXPECT_THAT(explanation("show chip "), HasSubstr("  |     filter, count or save the answer"));
  EXPECT_THAT(explanation("show chip"), Not(HasSubstr("<cr>")));
  EXPECT_EQ(explanation("no such command "), "  nothing can come next\n");
  printed("host vrf red id 7");
  EXPECT_THAT(explanation("no host vrf "), HasSubstr("known:  red"));
}

TEST_F(CompletionTest, AnAmbiguousWordIsExplainedByItsError) {
  EXPECT_THAT(explanation("h "), HasSubstr("short for more than one word: help, host"));
}

TEST(EndsInQuotesTest, OnlyAnOpenQuoteAtAWordsStartCounts) {
  for (auto const* const line : {"print \"a", "print \"a b", "print \"", "print \"a\\\"", "\"x"}) {
    EXPECT_TRUE(Host::endsInQuotes(line)) << line;
  }
  for (auto const* const line :
       {"", "print", "print \"a\"", "print \"a\" ", "print a\"b", "a \"b c\" d"}) {
    EXPECT_FALSE(Host::endsInQuotes(line)) << line;
  }
}

}  // namespace
