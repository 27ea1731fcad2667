// SPDX-License-Identifier: Apache-2.0
#include "host/shell/Variables.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

#include "tests/host/shell/ShellFixture.h"

namespace {

using ::testing::HasSubstr;

class VariablesTest : public BfnTest::ShellFixture {};

TEST_F(VariablesTest, ANameStandsForItsValueInLaterWords) {
  EXPECT_EQ(printed("set vrf = red\nset n = 7\nprint $vrf/$n ${vrf}s $vrf"), "red/7 reds red\n");
  EXPECT_EQ(run("set n = 7\nhost vrf red id $n\nexpect dump config contains {\"agentConfig\": {}}"),
            Host::Shell::Done)
      << err.str();
}

TEST_F(VariablesTest, AnUnknownNameAQuotedWordAndALoneDollarStayAsTheyAre) {
  EXPECT_EQ(printed("set a = x\nprint $b \"$a\" $ a$ ${a $1 $ab"), "$b $a $ a$ ${a $1 $ab\n");
}

TEST_F(VariablesTest, AValueIsOneWordWhateverItHolds) {
  EXPECT_EQ(printed("set a = \"b c\"\nhost vrf $a id 7\nexpect dump inputs contains {\"l3Status\": "
                    "{\"nameToId\": {\"b c\": 7}}}"),
            "");
}

TEST_F(VariablesTest, AValueIsNotReadForNames) {
  EXPECT_EQ(printed("set a = x\nset b = \"$a\"\nprint $b"), "$a\n");
}

TEST_F(VariablesTest, AnAnswerIsKeptAsJsonAndComparedWith) {
  bringUp();
  EXPECT_EQ(run("set before from dump inputs\nexpect dump inputs == $before\nhost vrf blue id 9\n"
                "expect dump inputs == $before"),
            Host::Shell::ExpectationFailed);
  EXPECT_THAT(err.str(), HasSubstr("case:4: expectation failed"));
}

TEST_F(VariablesTest, TheyAreListed) {
  EXPECT_EQ(printed("set b = 2\nset a = \"x y\"\nshow variables"), "a = x y\nb = 2\n");
  EXPECT_EQ(run("set a = 1\nexpect show variables == {\"a\": \"1\"}"), Host::Shell::Done);
}

TEST_F(VariablesTest, ANameBeginsWithALetter) {
  EXPECT_EQ(run("set 1a = x"), Host::Shell::BadInput);
  EXPECT_EQ(err.str(), "case:1: error: expected a name of letters, digits and _, found 1a\n");
}

TEST_F(VariablesTest, AFileHasThoseOfTheFileThatLoadsItAndItsOwnEndWithIt) {
  std::string const file = ::testing::TempDir() + "/variables.lab";
  std::ofstream(file) << "print $a $b\nset b = inner\nprint $b\nset a = inner\n";
  EXPECT_EQ(printed("set a = outer\nload " + file + "\nprint $a $b"),
            "outer $b\ninner\n" + file + ": 4 lines accepted\nouter $b\n");
  std::filesystem::remove(file);
}

TEST_F(VariablesTest, WhatWasTypedAtAPromptIsNotKnownInAFile) {
  std::string const file = ::testing::TempDir() + "/typed.lab";
  std::ofstream(file) << "print $a\n";
  shell.runLine("set a = typed", err);
  shell.runLine("print $a", err);
  shell.runLine("load " + file, err);
  EXPECT_EQ(out.str(), "typed\n$a\n" + file + ": 1 line accepted\n");
  std::filesystem::remove(file);
}

TEST_F(VariablesTest, TheLookAtAFileKnowsThem) {
  std::string const file = ::testing::TempDir() + "/look.lab";
  std::ofstream(file) << "set n = 7\nhost vrf red id $n\nset m from chip initialize-table\n"
                         "host vrf blue id $m\nhost vrf green id $x\n";
  EXPECT_EQ(run("load --check " + file), Host::Shell::BadInput);
  EXPECT_EQ(err.str(), file + ":5: error: expected a number from 0 to 4294967295, found $x\n");
  std::filesystem::remove(file);
}

}  // namespace
