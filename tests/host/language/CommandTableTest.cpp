// SPDX-License-Identifier: Apache-2.0
#include "host/language/CommandTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "host/language/InputError.h"
#include "host/language/Lexer.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pair;

class CommandTableTest : public ::testing::Test {
 protected:
  CommandTableTest() {
    Host::CommandGroup group{"things", {}};
    for (auto const* const form :
         {"show chip", "show chips all", "show running-config", "host vrf <VRF> [id <N>]",
          "host vlan <N:9>", "print [<TEXT>]", "expect <COMMAND> == <JSON>"}) {
      group.commands.emplace_back(form, std::string("help of ") + form, form,
                                  [](Host::Arguments const&) { return Host::Answer(); });
    }
    table.add(std::move(group));
  }

  std::string expanded(std::string const& line) const {
    return Host::lineOf(table.expanded(Host::splitWords(line)));
  }
  std::vector<std::pair<std::string, std::string>> next(std::string const& line) const {
    std::vector<std::pair<std::string, std::string>> found;
    for (auto const& [completion, help] : table.next(Host::splitWords(line))) {
      found.emplace_back(completion.text, help);
    }
    return found;
  }

  Host::CommandTable table;
};

TEST_F(CommandTableTest, AKeywordMayBeShortenedToWhatNoOtherBeginsWith) {
  EXPECT_EQ(expanded("s r"), "show running-config");
  EXPECT_EQ(expanded("ho vr red i 7"), "host vrf red id 7");
  EXPECT_EQ(expanded("ho vl 7"), "host vlan 7");
}

TEST_F(CommandTableTest, AWordThatSeveralKeywordsBeginWithIsAnErrorThatNamesThem) {
  try {
    expanded("host v red");
    FAIL();
  } catch (Host::InputError const& error) {
    EXPECT_STREQ(error.what(), "v is short for more than one word: vlan, vrf");
  }
}

TEST_F(CommandTableTest, AWholeKeywordIsItselfThoughAnotherBeginsWithIt) {
  EXPECT_EQ(expanded("show chip"), "show chip");
  EXPECT_EQ(expanded("show chips a"), "show chips all");
  EXPECT_THROW(expanded("show ch"), Host::InputError);
}

TEST_F(CommandTableTest, ValuesTextsAndWhatFitsNothingStayAsTheyAre) {
  EXPECT_EQ(expanded("host vrf show"), "host vrf show");
  EXPECT_EQ(expanded("pr s r"), "print s r");
  EXPECT_EQ(expanded("nothing s r"), "nothing s r");
  EXPECT_EQ(expanded(""), "");
}

TEST_F(CommandTableTest, TheInnerCommandIsExpandedAndWhatFollowsTheEqualsSignsIsNot) {
  EXPECT_EQ(expanded("e s r == {\"s\": 1}"), "expect show running-config == {\"s\": 1}");
}

TEST_F(CommandTableTest, WhatMayFollowHasItsHelp) {
  EXPECT_THAT(next("show"), ElementsAre(Pair("chip", "help of show chip"),
                                        Pair("chips", "help of show chips all"),
                                        Pair("running-config", "help of show running-config")));
  EXPECT_THAT(next("host vrf red"), ElementsAre(Pair("<cr>", "help of host vrf <VRF> [id <N>]"),
                                                Pair("id", "help of host vrf <VRF> [id <N>]")));
  EXPECT_THAT(next("host vlan"), ElementsAre(Pair("<N>", "a number from 0 to 9")));
  EXPECT_THAT(next(""), ::testing::Contains(Pair("show", "things")));
}

TEST_F(CommandTableTest, NoWordsAreNoCommand) {
  try {
    table.find({});
    FAIL();
  } catch (Host::InputError const& error) {
    EXPECT_THAT(error.what(), HasSubstr("found the end of the line"));
  }
}

}  // namespace
