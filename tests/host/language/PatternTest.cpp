// SPDX-License-Identifier: Apache-2.0
#include "host/language/Pattern.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>

#include "host/language/Lexer.h"

namespace {

using ::testing::ElementsAre;

class PatternTest : public ::testing::Test {
 protected:
  bool match(std::string const& form, std::string const& line) {
    words = Host::splitWords(line);
    arguments = {};
    mismatch = {};
    // The arguments refer to the pattern's own words.
    formText = form;
    pattern.emplace(formText);
    return pattern->match(words, arguments, mismatch);
  }
  std::vector<std::string> next(std::string const& form, std::string const& line) {
    words = Host::splitWords(line);
    std::vector<Host::Completion> found;
    complete = Host::Pattern(form).completions(words, found);
    std::vector<std::string> texts;
    for (auto const& each : found) texts.push_back(each.text);
    return texts;
  }

  std::string formText;
  std::optional<Host::Pattern> pattern;
  std::vector<std::string> words;
  bool complete = false;
  Host::Arguments arguments;
  Host::Mismatch mismatch;
};

constexpr char kForm[] = "set port|vlan <INTF> id <N:9> [at <IP> [self]]";

TEST_F(PatternTest, ValuesAreKnownByTheirKeywords) {
  ASSERT_TRUE(match(kForm, "set vlan Vlan1 id 7 at 10.0.0.1 self"));
  EXPECT_EQ(arguments.text("port"), "vlan");
  EXPECT_EQ(arguments.text("<INTF>"), "Vlan1");
  EXPECT_EQ(arguments.number("id"), 7u);
  EXPECT_EQ(arguments.ip("at"), Ovra::IpAddr(0x0A000001));
  EXPECT_TRUE(arguments.has("self"));
}

TEST_F(PatternTest, WhatIsInBracketsMayBeLeftOut) {
  ASSERT_TRUE(match(kForm, "set port Ethernet1 id 0"));
  EXPECT_FALSE(arguments.has("at"));
  EXPECT_EQ(arguments.number("at", 42), 42u);
  ASSERT_TRUE(match(kForm, "set port Ethernet1 id 0 at 10.0.0.1"));
  EXPECT_FALSE(arguments.has("self"));
}

TEST_F(PatternTest, AMismatchSaysWhereAndWhatWasExpected) {
  EXPECT_FALSE(match(kForm, "set lag x id 1"));
  EXPECT_EQ(mismatch.at, 1u);
  EXPECT_THAT(mismatch.expected, ElementsAre("port", "vlan"));
  EXPECT_FALSE(match(kForm, "set port x id 10"));
  EXPECT_THAT(mismatch.expected, ElementsAre("a number from 0 to 9"));
  EXPECT_FALSE(match(kForm, "set port x id 1 in"));
  EXPECT_THAT(mismatch.expected, ElementsAre("at", "the end of the line"));
}

TEST_F(PatternTest, ALineThatEndsEarlyIsNoMatch) {
  EXPECT_FALSE(match(kForm, "set port x id"));
  EXPECT_EQ(mismatch.at, 4u);
  EXPECT_FALSE(match(kForm, "set port x id 1 at"));
  EXPECT_THAT(mismatch.expected, ElementsAre("an IPv4 address such as 10.0.0.1"));
}

TEST_F(PatternTest, TheShownFormLeavesTheLimitsOut) {
  EXPECT_EQ(Host::Pattern(kForm).text(), "set port|vlan <INTF> id <N> [at <IP> [self]]");
}

TEST_F(PatternTest, CompletionsAreWhatMayFollow) {
  EXPECT_THAT(next(kForm, ""), ElementsAre("set"));
  EXPECT_THAT(next(kForm, "set"), ElementsAre("port", "vlan"));
  EXPECT_THAT(next(kForm, "set port"), ElementsAre("<INTF>"));
  EXPECT_FALSE(complete);
  EXPECT_THAT(next(kForm, "set port x id 1"), ElementsAre("at"));
  EXPECT_TRUE(complete);
  EXPECT_THAT(next(kForm, "set port x id 1 at 10.0.0.1"), ElementsAre("self"));
  EXPECT_THAT(next(kForm, "set nothing"), ElementsAre());
}

TEST_F(PatternTest, AWordThatIsABarIsAWord) {
  EXPECT_TRUE(match("show [| json]", "show | json"));
  EXPECT_TRUE(match("show [| json]", "show"));
  EXPECT_FALSE(match("show [| json]", "show json"));
}

}  // namespace
