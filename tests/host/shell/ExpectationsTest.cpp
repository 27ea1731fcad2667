// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <iostream>

#include "tests/host/shell/ShellFixture.h"

namespace {

using ::testing::HasSubstr;

class ExpectationsTest : public BfnTest::ShellFixture {
 protected:
  void passes(std::string const& line) {
    EXPECT_EQ(run(line), Host::Shell::Done) << line << '\n' << err.str();
  }
  void fails(std::string const& line) {
    EXPECT_EQ(run(line), Host::Shell::ExpectationFailed) << line << '\n' << err.str();
  }
};

TEST_F(ExpectationsTest, ContainsAsksForPartsOfObjectsListsAndTexts) {
  printed("host vrf red id 7\nhost vrf blue id 8");
  passes("expect dump inputs contains {\"l3Status\": {\"nameToId\": {\"red\": 7}}}");
  fails("expect dump inputs contains {\"l3Status\": {\"nameToId\": {\"red\": 8}}}");
  fails("expect dump inputs contains {\"noSuch\": null}");
  passes("expect print a b c contains \"b c\"");
  fails("expect print a b c contains \"b  c\"");
  passes("expect help contains \"dump chip\"");
  passes(
      "vxlan forwarding match vrf a src-ip 10.0.0.1 action rewrite src-mac 02:00:00:00:00:01\n"
      "vxlan forwarding match vrf b src-ip 10.0.0.2 action rewrite src-mac 02:00:00:00:00:02\n"
      "expect show running-config contains [\"src-ip 10.0.0.2\", \"vrf a\"]");
  fails("expect show running-config contains [\"vrf c\"]");
  passes("expect show running-config | count contains 2");
}

TEST_F(ExpectationsTest, OneOfAsksForOneOfSeveralAnswers) {
  passes("expect show running-config | count one of [1, 0]");
  fails("expect show running-config | count one of [1, 2]");
  EXPECT_THAT(err.str(), HasSubstr("  expected: one of [1,2]\n  found:    0\n"));
  EXPECT_EQ(run("expect print a one of {}"), Host::Shell::BadInput);
  EXPECT_EQ(run("expect print a one of"), Host::Shell::BadInput);
}

// What was accepted before there were other comparisons means the same.
TEST_F(ExpectationsTest, WhereTwoEqualSignsAreTheyCompare) {
  passes("expect print this contains \"x == y\" == \"this contains x == y\"");
  passes("expect print one of them == \"one of them\"");
  passes("print contains \"quoted # text\" # and a comment");
}

TEST_F(ExpectationsTest, TheCommandOfAnExpectationThatIsNoneIsAnErrorWithItsPlace) {
  EXPECT_EQ(run("expect dump chips contains {\"a\": \"b c\"}"), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), HasSubstr("found chips"));
  EXPECT_EQ(run("expect dump chip contains {"), Host::Shell::BadInput);
  EXPECT_EQ(run("expect death x dump chips"), Host::Shell::BadInput);
}

TEST_F(ExpectationsTest, ADeathIsThatOfACopyAndNothingIsChanged) {
  bringUp();
  printed("host address 10.0.0.1 vrf-id 7 interface Ethernet1");
  std::string const before = printed("dump inputs\ndump chip\ndump indexes");
  passes(
      "expect death \"mapping shouldn't change\" host address 10.0.0.1 vrf-id 7 interface "
      "Ethernet2");
  EXPECT_EQ(printed("dump inputs\ndump chip\ndump indexes"), before);
  fails("expect death \"another text\" host address 10.0.0.1 vrf-id 7 interface Ethernet2");
  EXPECT_THAT(err.str(), HasSubstr("it ended by signal 6: Failed("));
  fails("expect death \"any\" host vrf blue id 8");
  EXPECT_THAT(err.str(), HasSubstr("\"it lives\""));
  EXPECT_EQ(printed("dump inputs\ndump chip\ndump indexes"), before);
}

TEST_F(ExpectationsTest, WhatComesOnStandardErrorIsComparedAndStillSeen) {
  ::testing::internal::CaptureStderr();
  auto const status =
      run("trace level 9\nhost profile p rewrite supported table-size 5\n"
          "host use profile p\nhost agent create\n"
          "expect stderr overlaySrcMacRewriteTableSize host init-tables true\n"
          "expect stderr nonsense host init-tables false\ntrace level off");
  std::string const seen = ::testing::internal::GetCapturedStderr();
  run("trace level off");
  EXPECT_EQ(status, Host::Shell::ExpectationFailed);
  EXPECT_THAT(seen, HasSubstr("overlaySrcMacRewriteTableSize"));
}

TEST_F(ExpectationsTest, AResetMakesEverythingAsAtTheStart) {
  std::string const inputs = printed("dump inputs\ndump chip\ndump stats\ndump objects\ndump log");
  for (int i = 0; i < 2; ++i) {
    bringUp();
    printed(
        "chip capacity 0\nhost address 10.0.0.1 vrf-id 7 interface Ethernet1\nclock advance 5\n"
        "checkpoint\ncommit confirmed 60\nset a = kept");
    printed("reset");
    EXPECT_EQ(printed("dump inputs\ndump chip\ndump stats\ndump objects\ndump log"), inputs);
    EXPECT_EQ(run("commit"), Host::Shell::BadInput);
    EXPECT_EQ(host.clock->now(), 0);
  }
  // The rows are there again.
  bringUp();
  printed("host address 10.0.0.1 vrf-id 7 interface Ethernet1");
  passes("expect dump chip contains [{\"sip\": \"10.0.0.1\"}]");
}

class ReconciledResetTest : public BfnTest::ShellFixture {
 protected:
  ReconciledResetTest() : ShellFixture({}, true) {}
};

TEST_F(ReconciledResetTest, AResetKeepsTheReconciler) {
  bringUp();
  printed("host address 10.0.0.1 vrf-id 7 interface Ethernet1\nreset");
  EXPECT_EQ(run("expect dump reconciler contains {\"held\": \"there is no agent\", \"wanted\": 0}"),
            Host::Shell::Done)
      << err.str();
  EXPECT_EQ(run("expect dump chip == []"), Host::Shell::Done);
}

}  // namespace
