// SPDX-License-Identifier: Apache-2.0
// The client's prompt as it is typed at, over the service's process.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <string>
#include <vector>

#include "tests/daemon/ServiceProcess.h"
#include "tests/support/TerminalTest.h"

namespace {

using BfnTest::kEndOfInput;
using BfnTest::kInterrupt;
using BfnTest::kTab;
using BfnTest::kUp;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kMac[] = "02:00:00:00:00:01";

class ClientPromptTest : public BfnTest::TerminalTest {
 protected:
  void SetUp() override {
    service.start();
    service.lines(BfnTest::bringUpLines());
    ASSERT_TRUE(service.reaches("running")) << service.log();
    start();
  }

  void start(std::string const& shown = "leaf1> ") {
    run(SERVICE_CLIENT, {"--socket", service.socket()}, shown);
  }
  std::string enter(std::string const& line) { return TerminalTest::enter(line, "leaf1> "); }
  void configure(size_t lines) {
    std::vector<std::string> all;
    for (size_t i = 0; i < lines; ++i) {
      all.push_back(BfnTest::rewriteLine(
          "10.1." + std::to_string(i / 256) + '.' + std::to_string(i % 256), kMac));
    }
    service.lines(all);
  }

  BfnTest::ServiceProcess service;
};

TEST_F(ClientPromptTest, TheTabKeyCompletesWhatOnlyTheServiceKnows) {
  service.lines({"host vrf kept-by-the-service id 8", BfnTest::addressLine("10.0.0.1")});
  enter("vx\tf\tm\tvrf kep\tsrc-ip 10.0.0.\tact\trew\tsrc\t02:00:00:00:00:01");
  EXPECT_EQ(service.text("show running-config"),
            "vxlan forwarding match vrf kept-by-the-service src-ip 10.0.0.1 action rewrite src-mac "
            "02:00:00:00:00:01");
  EXPECT_THAT(enter("host address 10.0.0.9 vrf-id 7 interface E\t"), Not(HasSubstr("error")));
  EXPECT_THAT(service.text("dump inputs"),
              HasSubstr(R"("10.0.0.9":{"interface":"Ethernet1","self":false})"));
}

TEST_F(ClientPromptTest, OfManyValuesTheFirstAreShownAndWhatAllHaveInCommonIsCompleted) {
  configure(1'000);
  std::string const shown =
      type("explain vrf red src-ip 1\t?", "leaf1> explain vrf red src-ip 10.1.");
  EXPECT_THAT(shown, AllOf(HasSubstr("  10.1.0.0  "), HasSubstr("  and more\r\n")));
  EXPECT_LT(shown.size(), 5'000U);
}

TEST_F(ClientPromptTest, TheQuestionMarkListsTheFormsOfTheServiceAndTheClient) {
  std::string const shown = type("?", "leaf1> ");
  for (char const* const word : {"agent", "exit", "expect", "load", "show", "vxlan", "watch"}) {
    EXPECT_THAT(shown, HasSubstr("\n  " + std::string(word) + ' '));
  }
  // What a service refuses by name is not offered.
  EXPECT_THAT(shown, AllOf(Not(HasSubstr("save-case")), Not(HasSubstr("  reset "))));
  EXPECT_THAT(type("host ?", "leaf1> host "), Not(HasSubstr("\n  agent ")));
  EXPECT_THAT(type("vrf ?", "leaf1> host vrf "), HasSubstr("known:  red\r\n"));
}

TEST_F(ClientPromptTest, WhatOnlyTheLaboratoryHasIsRefusedByName) {
  EXPECT_THAT(enter("host agent create"),
              HasSubstr("prompt:1: error: a service does not take this command; it is one of the "
                        "laboratory's: host agent create\r\n"));
  for (char const* const line :
       {"checkpoint", "print a word", "load --check x", "dump language | count",
        "expect show chip contains [{\"a\": 1}]", "chip clear faults"}) {
    EXPECT_THAT(enter(line), HasSubstr("it is one of the laboratory's: ")) << line;
  }
  EXPECT_THAT(enter("checkpoint a b"), HasSubstr("error: expected "));
  EXPECT_THAT(type("chip clear ?", "leaf1> chip clear "),
              AllOf(HasSubstr("\n  hits "), Not(HasSubstr("faults"))));
}

TEST_F(ClientPromptTest, LimitsOfNumbersAreTheServices) {
  EXPECT_THAT(enter("chip port vx100 vlan 4095"), HasSubstr("4094, found 4095\r\n"));
}

TEST_F(ClientPromptTest, KeywordsMayBeShortenedWhereTheyAreUnambiguous) {
  EXPECT_THAT(enter("sh cap"), HasSubstr("\noverlay source MAC rewrite: supported\r\n"));
  EXPECT_THAT(enter("h v"), HasSubstr("prompt:2: error: h is short for more than one word: help, "
                                      "host\r\n  h v\r\n  ^\r\n"));
}

TEST_F(ClientPromptTest, FiltersFollowEveryCommand) {
  configure(3);
  EXPECT_THAT(enter("show running-config | count"), HasSubstr("\n3\r\n"));
  EXPECT_THAT(enter("sh run | exclude 10.1.0.1 | inc red | count"), HasSubstr("\n2\r\n"));
  EXPECT_THAT(enter("show version | json"), HasSubstr("\"version\":\""));
  std::string const saved = (folder / "saved").string();
  EXPECT_THAT(enter("show running-config | begin 10.1.0.2 | save " + saved),
              HasSubstr("1 line saved"));
  std::ifstream in(saved);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}),
            BfnTest::rewriteLine("10.1.0.2", kMac) + '\n');
}

TEST_F(ClientPromptTest, AnErrorOfTheServiceIsShownAndThePromptReturns) {
  configure(1);
  EXPECT_THAT(enter("no vxlan forwarding match vrf red src-ip 10.1.0.0 action rewrite src-mac "
                    "02:00:00:00:00:02"),
              HasSubstr("prompt:1: error: expected the MAC address that is configured, "));
  EXPECT_THAT(enter("show running-config | count"), HasSubstr("\n1\r\n"));
}

TEST_F(ClientPromptTest, AProbableMistakeIsAWarningWithItsPlace) {
  EXPECT_THAT(enter("no host vrf rde"),
              HasSubstr("prompt:1: warning: there is no VRF rde; did you mean red?\r\n"
                        "  no host vrf rde\r\n              ^\r\n"));
}

TEST_F(ClientPromptTest, DifferencesAreInColours) {
  unsetenv("NO_COLOR");
  configure(1);
  start("\x1b[32mleaf1>\x1b[0m ");
  EXPECT_THAT(type("show rewrite differences\r", "leaf1>"),
              HasSubstr("\n\x1b[32mred             10.1.0.0"));
  EXPECT_THAT(type("show rewrite differences | include red\r", "leaf1>"),
              HasSubstr("\nred             10.1.0.0"));
}

TEST_F(ClientPromptTest, CharactersBeyondAsciiArePartOfTheLine) {
  enter("host vrf z\xc3\xbcrich id 9");
  EXPECT_THAT(service.text("dump inputs"), HasSubstr("\"z\xc3\xbcrich\":9"));
  enter("no host vrf z\t");
  EXPECT_THAT(service.text("dump inputs"), Not(HasSubstr("z\xc3\xbcrich")));
  // One key removes one character.
  enter("no host vrf z\xc3\xbc\x7f\x7fred");
  EXPECT_THAT(service.text("dump inputs"), Not(HasSubstr("\"red\":7")));
}

TEST_F(ClientPromptTest, AnInterruptDropsTheLineAndTheEndOfInputLeaves) {
  type("host vrf blue id 8", "id 8");
  type(kInterrupt, "^C\r\nleaf1> ");
  EXPECT_THAT(service.text("dump inputs"), Not(HasSubstr("blue")));
  type(kEndOfInput, "");
  EXPECT_EQ(exitStatus(), 0);
}

TEST_F(ClientPromptTest, ExitLeaves) {
  type("exit\r", "");
  EXPECT_EQ(exitStatus(), 0);
}

TEST_F(ClientPromptTest, AnInterruptStopsALongAnswer) {
  configure(5'000);
  enter("terminal length 0");
  // The terminal takes no more until it is read.
  type("show running-config\r", "src-ip 10.1.0.100 ");
  send(kInterrupt);
  EXPECT_THAT(wait("\nleaf1> "), Not(HasSubstr("src-ip 10.1.19.135 ")));
  EXPECT_THAT(enter("show running-config | count"), HasSubstr("\n5000\r"));
}

TEST_F(ClientPromptTest, VariablesStandForTheirValues) {
  enter("set vrf = red");
  enter("set count from show running-config | count");
  EXPECT_THAT(enter("show variables"), HasSubstr("\ncount = 0\r\nvrf = red\r\n"));
  enter("vxlan forwarding match vrf $vrf src-ip 10.1.0.${count} action rewrite src-mac " +
        std::string(kMac));
  EXPECT_THAT(service.text("show running-config"), HasSubstr(" vrf red src-ip 10.1.0.0 "));
  // In quotes it is text, and so is a name that is not known.
  EXPECT_THAT(enter("no host vrf \"$vrf\""), HasSubstr("there is no VRF $vrf"));
  EXPECT_THAT(enter("no host vrf $other"), HasSubstr("there is no VRF $other"));
  EXPECT_THAT(enter("set 1 = red"), HasSubstr("expected a name of letters, digits and _, found 1"));
}

TEST_F(ClientPromptTest, AnInterruptEndsAWatch) {
  type("watch show running-config\r", "\x1b[2J");
  service.lines({BfnTest::rewriteLine("10.1.0.77", kMac)});
  wait("src-ip 10.1.0.77 ");
  send(kInterrupt);
  EXPECT_THAT(wait("leaf1> "), Not(HasSubstr("error")));
  EXPECT_THAT(enter("show running-config | count"),
              AllOf(HasSubstr("\n1\r"), Not(HasSubstr("again"))));
}

TEST_F(ClientPromptTest, ALineIsDrawnAnewWhenTheTerminalChangesItsSize) {
  type("show ver", "ver");
  resize(20, 40);
  wait("leaf1> show ver");
  EXPECT_THAT(type("sion\r", "\nleaf1> "), HasSubstr("\nBfnMacRewrite "));
}

TEST_F(ClientPromptTest, TheHistoryOutlivesTheProgramAndIsTheClientsOwn) {
  enter("host vrf z\xc3\xbcrich id 9");
  type("exit\r", "");
  EXPECT_EQ(exitStatus(), 0);
  EXPECT_TRUE(std::filesystem::exists(folder / "macrewrite" / "client-history"));
  EXPECT_FALSE(std::filesystem::exists(folder / "macrewrite" / "history"));
  start();
  type(kUp, "exit");
  type(kUp, "id 9");
  EXPECT_THAT(enter("9"), Not(HasSubstr("error")));
  EXPECT_THAT(service.text("dump inputs"), HasSubstr("\"z\xc3\xbcrich\":99"));
}

TEST_F(ClientPromptTest, AnAnswerLongerThanTheTerminalGoesThroughAPager) {
  if (std::system("command -v less > /dev/null") != 0) GTEST_SKIP() << "no less";
  configure(200);
  type("show running-config\r", ":");
  type("q", "leaf1> ");
  enter("terminal length 0");
  EXPECT_THAT(enter("show running-config"), HasSubstr("src-ip 10.1.0.199 "));
}

TEST_F(ClientPromptTest, AServiceThatWasGoneIsUsedAgainAndThatIsSaid) {
  configure(1);
  service.stop(SIGKILL);
  std::string const line = BfnTest::rewriteLine("10.1.0.50", kMac);
  EXPECT_THAT(enter(line), AllOf(HasSubstr("error: " + service.socket() + ": there is no service"),
                                 HasSubstr("; the line was not carried out\r\n")));
  // Without the service the line can be typed, and the session be left.
  EXPECT_THAT(type("no vxlan forwarding match v?", "leaf1> no vxlan forwarding match v"),
              HasSubstr("\n  vrf "));
  type(kInterrupt, "^C\r\nleaf1> ");
  service.start();
  ASSERT_TRUE(service.reaches("running")) << service.log();
  EXPECT_THAT(enter("show running-config"),
              AllOf(HasSubstr("connected to the service again"), HasSubstr("10.1.0.0"),
                    Not(HasSubstr("10.1.0.50"))));
  EXPECT_THAT(enter("show version"), Not(HasSubstr("again")));
}

TEST_F(ClientPromptTest, ALineDuringWhichTheServiceDiesIsNotSentAgain) {
  // A status with a VLAN that no row may have, and the address goes before it is corrected.
  service.lines({BfnTest::addressLine("10.0.0.1"), BfnTest::rewriteLine("10.0.0.1", kMac)});
  enter("host routing-status port Ethernet2 key-vlan 0 vlan 4095 vrf-id 7");
  enter("host address 10.9.9.9 vrf-id 7 interface Ethernet2");
  EXPECT_THAT(enter("no host address 10.9.9.9 vrf-id 7"),
              HasSubstr("the service has gone; whether the line was carried out is not known"));
  ASSERT_EQ(service.wait() & 0x7f, SIGABRT) << service.log();
  service.start();
  ASSERT_TRUE(service.reaches("running")) << service.log();
  EXPECT_THAT(enter("show status"), HasSubstr("connected to the service again"));
}

TEST_F(ClientPromptTest, FilesAreSentAndTheirErrorsAreThoseOfTheirLines) {
  std::string const good = (folder / "good.cfg").string();
  std::ofstream(good) << BfnTest::rewriteLine("10.1.0.1", kMac)
                      << "\nshow running-config | count\n";
  EXPECT_THAT(enter("load " + folder.string() + "/go\t"),
              HasSubstr("\n1\r\n" + good + ": 2 lines accepted\r\n"));
  std::string const bad = (folder / "bad.cfg").string();
  std::ofstream(bad) << BfnTest::rewriteLine("10.1.0.2", kMac) << "\nshutdown\n";
  EXPECT_THAT(enter("load " + bad),
              AllOf(HasSubstr(bad + ":2: error: expected "), Not(HasSubstr("accepted"))));
  EXPECT_THAT(enter("expect show running-config | count == 2"), Not(HasSubstr("error")));
  EXPECT_THAT(enter("expect show running-config | count == 3"),
              HasSubstr("error: expectation failed\r\n  expected: 3\r\n  found:    2"));
}

TEST_F(ClientPromptTest, WithoutAServiceThereIsNoPrompt) {
  service.stop(SIGTERM);
  start("there is no service");
  EXPECT_EQ(exitStatus(), 4);
}

/// The configuration in a store, without a service.
class StorePromptTest : public BfnTest::TerminalTest {};

TEST_F(StorePromptTest, TheConfigurationIsEditedAtTheSamePrompt) {
  run(SERVICE_CLIENT, {"--database", "sqlite:" + (folder / "db").string()}, "store> ");
  auto const line = [this](std::string const& text) { return enter(text, "store> "); };
  line("vx f m vrf z\xc3\xbcrich src-ip 10.0.0.1 action rewrite src-mac 02:00:00:00:00:01");
  EXPECT_THAT(type("no vx\tf\tm\tvrf z\t?", "store> no vxlan forwarding match vrf z\xc3\xbcrich "),
              HasSubstr("\n  src-ip  "));
  type(kInterrupt, "^C\r\nstore> ");
  EXPECT_THAT(line("show running-config | count"), HasSubstr("\n1\r\n"));
  EXPECT_THAT(line("show chip"), HasSubstr("prompt:3: error: expected "));
  std::string const file = (folder / "lines").string();
  std::ofstream(file) << BfnTest::rewriteLine("10.1.0.1", kMac) << '\n'
                      << BfnTest::rewriteLine("10.1.0.300", kMac) << '\n';
  EXPECT_THAT(line("load " + file),
              AllOf(HasSubstr(file + ":2: error: "), Not(HasSubstr("accepted"))));
  EXPECT_THAT(line("expect show running-config | count == 1"), Not(HasSubstr("error")));
  std::ofstream(file) << BfnTest::rewriteLine("10.1.0.1", kMac) << '\n';
  EXPECT_THAT(line("load " + file), HasSubstr(file + ": 1 line accepted"));
  EXPECT_THAT(line("expect show running-config | count == 3"),
              HasSubstr("expectation failed\r\n  expected: 3\r\n  found:    2"));
  type("exit\r", "");
  EXPECT_EQ(exitStatus(), 0);
}

}  // namespace
