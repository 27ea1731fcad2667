// SPDX-License-Identifier: Apache-2.0
// The prompt as it is typed at: the program on a terminal of its own.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/TerminalTest.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

using BfnTest::kEndOfInput;
using BfnTest::kInterrupt;
using BfnTest::kSearch;
using BfnTest::kTab;
using BfnTest::kUp;
using BfnTest::kWordLeft;

class PromptTest : public BfnTest::TerminalTest {
 protected:
  void SetUp() override { start(); }

  /// Another run of the program, in place of the last one.
  void start(std::vector<std::string> const& arguments = {}, std::string const& shown = "lab> ") {
    run(LAB_PROGRAM, arguments, shown);
  }
  /// A line, up to the next prompt.
  std::string enter(std::string const& line) { return TerminalTest::enter(line, "lab> "); }
};

TEST_F(PromptTest, TheTabKeyCompletesKeywordsVrfsAddressesAndInterfaces) {
  enter("host vrf red id 7");
  enter("host routing-status port Ethernet1 key-vlan 0 vlan 1001 vrf-id 7");
  enter("host addr\t10.0.0.1 vrf-id 7 int\tEth\t");
  enter("vx\tf\tm\tvrf r\tsrc-ip 1\tact\trew\tsrc\t02:00:00:00:00:01");
  std::string const inputs = enter("dump inp\t");
  EXPECT_THAT(inputs, HasSubstr(R"("agentStatus":{"7":{"10.0.0.1":{"interface":"Ethernet1",)"));
  EXPECT_THAT(inputs, HasSubstr(R"([{"ip":"10.0.0.1","mac":"02:00:00:00:00:01","vrf":"red"}])"));
}

TEST_F(PromptTest, WhenMoreThanOneWordFitsTheTabKeyListsThem) {
  EXPECT_THAT(type(std::string("dump c") + kTab, "  config  "),
              HasSubstr("\n  capability  the capability record\r\n  chip        rows: "));
}

TEST_F(PromptTest, AWrongLineIsReportedAndThePromptReturns) {
  EXPECT_THAT(enter("host vrf"),
              HasSubstr("prompt:1: error: expected a VRF name of at most 100 bytes, found the end "
                        "of the line\r\n"));
  EXPECT_THAT(enter("expect dump chip == [1]"), HasSubstr("prompt:2: expectation failed"));
  EXPECT_THAT(enter("print still here"), HasSubstr("\nstill here\r\n"));
  type("exit\r", "");
  EXPECT_EQ(exitStatus(), 0);
}

TEST_F(PromptTest, CharactersBeyondAsciiArePartOfTheLine) {
  enter("host vrf z\xc3\xbcrich id 7");
  EXPECT_THAT(enter("dump inputs"), HasSubstr("\"nameToId\":{\"z\xc3\xbcrich\":7}"));
  EXPECT_THAT(enter("print \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80"),
              HasSubstr("\n\xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80\r\n"));
  // One key removes one character, however many bytes and columns it has.
  EXPECT_THAT(enter("print a\xe6\x97\xa5\x7f\x7f"
                    "b"),
              HasSubstr("\nb\r\n"));
}

TEST_F(PromptTest, ALineWithBytesThatAreNoUtf8IsNotCarriedOut) {
  EXPECT_THAT(enter("host vrf z\xfcrich id 7"), HasSubstr("bytes that are no UTF-8"));
  EXPECT_THAT(enter("dump inputs"), HasSubstr("\"nameToId\":{}"));
}

TEST_F(PromptTest, AnInterruptDropsTheLine) {
  type("host vrf red id 7", "id 7");
  type(kInterrupt, "^C\r\nlab> ");
  EXPECT_THAT(enter("dump inputs"), HasSubstr("\"nameToId\":{}"));
  type(kEndOfInput, "");
  EXPECT_EQ(exitStatus(), 0);
}

TEST_F(PromptTest, AnInterruptStopsAFileBeforeItsNextLine) {
  {
    std::ofstream file(folder / "long.lab");
    for (int i = 0; i < 50'000; ++i) file << "print line " << i << '\n';
  }
  type("terminal length 0\r", "\nlab> ");
  type("load " + (folder / "long.lab").string() + "\r", "\nline 10\r\n");
  send(kInterrupt);
  EXPECT_THAT(wait("\nlab> "), HasSubstr("interrupted before this line"));
  EXPECT_THAT(enter("print still here"), HasSubstr("\nstill here\r\n"));
}

TEST_F(PromptTest, TheQuestionMarkListsWhatCanComeNextAndLeavesTheLine) {
  EXPECT_THAT(type("host vrf ?", "lab> host vrf "),
              HasSubstr("\n  <VRF>  a VRF name of at most 100 bytes\r\n"));
  EXPECT_THAT(enter("red id 7"), Not(HasSubstr("error")));
  EXPECT_THAT(enter("dump inputs"), HasSubstr("\"nameToId\":{\"red\":7}"));
}

TEST_F(PromptTest, WithinQuotesTheQuestionMarkIsACharacter) {
  EXPECT_THAT(enter("print \"a?b\""), HasSubstr("\na?b\r\n"));
}

TEST_F(PromptTest, APastedBlockIsCarriedOutLineByLineAndItsCharactersAreNoKeys) {
  std::string const seen = type("\x1b[200~print a?\tb\rprint two\r\x1b[201~", "\ntwo\r\n");
  EXPECT_THAT(seen, HasSubstr("\na? b\r\n"));
}

TEST_F(PromptTest, KeywordsMayBeShortened) {
  EXPECT_THAT(enter("pr one"), HasSubstr("\none\r\n"));
  EXPECT_THAT(enter("h v"), HasSubstr("short for more than one word: help, host"));
}

TEST_F(PromptTest, AnAnswerLongerThanTheTerminalGoesThroughAPager) {
  if (std::system("command -v less > /dev/null") != 0) GTEST_SKIP() << "no less";
  type("help\r", ":");
  type("q", "lab> ");
  EXPECT_THAT(enter("help | count"), Not(HasSubstr(":")));
  enter("terminal length 0");
  EXPECT_THAT(enter("help"), HasSubstr("\n  exit\r\n"));
}

TEST_F(PromptTest, ALineIsDrawnAnewWhenTheTerminalChangesItsSize) {
  type("print one", "one");
  resize(20, 40);
  wait("lab> print one");
  EXPECT_THAT(type(" two\r", "\nlab> "), HasSubstr("\none two\r\n"));
}

TEST_F(PromptTest, KeysMoveByWordsAndSearchTheHistory) {
  EXPECT_THAT(enter(std::string("print two three") + kWordLeft + kWordLeft + "one "),
              HasSubstr("\none two three\r\n"));
  enter("print four");
  type(std::string(kSearch) + "two", "");
  EXPECT_THAT(type("\r", "\nlab> "), HasSubstr("\none two three\r\n"));
}

TEST_F(PromptTest, TheHistoryOutlivesTheProgram) {
  enter("print z\xc3\xbcrich");
  type("exit\r", "");
  EXPECT_EQ(exitStatus(), 0);
  start();
  type(kUp, "");
  EXPECT_THAT(enter(kUp), HasSubstr("\nz\xc3\xbcrich\r\n"));
}

TEST_F(PromptTest, ColoursAreThoseOfThePromptAndOfErrors) {
  unsetenv("NO_COLOR");
  start({}, "\x1b[32mlab>\x1b[0m ");
  EXPECT_THAT(type("shutdown\r", "lab>"), HasSubstr("\x1b[31mprompt:1: error: "));
}

TEST_F(PromptTest, ADeathIsAnnouncedAndTheNextSessionRepeatsWhatCameBefore) {
  enter("load " SOURCE_DIR "/tests/lab/bring-up.inc");
  enter("host vrf red id 7");
  enter("shutdown");
  EXPECT_THAT(
      type("chip initialize-table other\r", "offers to replay them"),
      AllOf(HasSubstr("other\r\nFailed(tableKey.tableName() == "), HasSubstr(folder.string())));
  EXPECT_EQ(exitStatus(), 128 + SIGABRT);
  start({}, "[y/N] ");
  send("y\r");
  EXPECT_THAT(wait("lab> "),
              AllOf(HasSubstr("stage 2: state machines started"), Not(HasSubstr("error"))));
  EXPECT_THAT(enter("dump inputs"), HasSubstr("\"nameToId\":{\"red\":7}"));
  std::string const saved = (folder / "case.lab").string();
  EXPECT_THAT(enter("save-case " + saved), HasSubstr("lines saved"));
  start({saved, "-c", "dump inputs"}, "\"nameToId\":{\"red\":7}");
}

TEST_F(PromptTest, TheSessionLogIsWhereTheOptionSays) {
  std::string const log = (folder / "session").string();
  start({"--session-log", log});
  enter("print one");
  std::ifstream in(log);
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "print one");
}

TEST_F(PromptTest, TheUpArrowBringsTheLastLineBack) {
  enter("print one");
  enter("print two");
  EXPECT_THAT(enter(std::string(kUp) + kUp), HasSubstr("\none\r\n"));
}

TEST_F(PromptTest, TheEndOfInputLeaves) {
  type(kEndOfInput, "");
  EXPECT_EQ(exitStatus(), 0);
}

TEST_F(PromptTest, ChangesThatAreNotConfirmedAreTakenBackWhileALineIsTyped) {
  enter("commit confirmed 1");
  enter("vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac 02:00:00:00:00:01");
  type("show run", "show run");
  wait("BFN_VXLAN_MAC_REWRITE_NOT_CONFIRMED");
  wait("lab> show run");
  EXPECT_THAT(type("ning-config | count\r", "\nlab> "), HasSubstr("\n0\r"));
}

TEST_F(PromptTest, LeavingThePromptTakesBackWhatIsNotConfirmed) {
  enter("commit confirmed 100");
  enter("vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac 02:00:00:00:00:01");
  type("exit\r", "BFN_VXLAN_MAC_REWRITE_NOT_CONFIRMED");
  EXPECT_EQ(exitStatus(), 0);
}

TEST_F(PromptTest, AProbableMistakeIsAWarningWithWhatMayHaveBeenMeant) {
  enter("host vrf zürich id 7");
  EXPECT_THAT(enter("no host vrf zürch"),
              HasSubstr("prompt:2: warning: there is no VRF zürch; did you mean zürich?\r\n"
                        "  no host vrf zürch\r\n              ^\r\n"));
  // Of a command within another one, too.
  EXPECT_THAT(enter("measure no host vrf red"),
              HasSubstr("  measure no host vrf red\r\n                      ^\r\n"));
}

TEST_F(PromptTest, DifferencesAreInColours) {
  unsetenv("NO_COLOR");
  auto const line = [](char const* ip, char const* mac) {
    return std::string("vxlan forwarding match vrf red src-ip ") + ip +
           " action rewrite src-mac 02:00:00:00:00:" + mac;
  };
  {
    std::ofstream file(folder / "next.cfg");
    file << line("10.0.0.2", "12") << '\n' << line("10.0.0.3", "13") << '\n';
  }
  std::string const name = (folder / "next.cfg").string();
  start({}, "\x1b[32mlab>\x1b[0m ");
  auto const shown = [this](std::string const& command) {
    return type(command + "\r", "\r\n\x1b[32mlab>");
  };
  shown("load " SOURCE_DIR "/tests/lab/bring-up.inc");
  shown("host vrf red id 7");
  shown("host routing-status port Ethernet1 key-vlan 0 vlan 1006 vrf-id 7");
  for (char const* const ip : {"10.0.0.1", "10.0.0.2", "10.0.0.3"}) {
    shown(std::string("host address ") + ip + " vrf-id 7 interface Ethernet1");
  }
  shown(line("10.0.0.1", "01"));
  shown(line("10.0.0.2", "02"));
  EXPECT_THAT(shown("show differences " + name),
              AllOf(HasSubstr("\x1b[31m- " + line("10.0.0.1", "01") + "\x1b[0m\r\n"),
                    HasSubstr("\x1b[33m- " + line("10.0.0.2", "02") + "\x1b[0m\r\n"),
                    HasSubstr("\x1b[33m+ " + line("10.0.0.2", "12") + "\x1b[0m\r\n"),
                    HasSubstr("\x1b[32m+ " + line("10.0.0.3", "13") + "\x1b[0m\r\n1 line added")));
  std::string const facts = (folder / "facts.lab").string();
  std::ofstream(facts) << line("10.0.0.2", "12")
                       << "\nhost address 10.0.0.4 vrf-id 7 interface Ethernet1\n"
                          "no host address 10.0.0.1 vrf-id 7\n";
  EXPECT_THAT(shown("what-if " + facts),
              AllOf(HasSubstr("\n\x1b[32m1006  10.0.0.4 "), HasSubstr("\n\x1b[31m1006  10.0.0.1 "),
                    HasSubstr("\n\x1b[33m1006  10.0.0.2 "), HasSubstr("\x1b[0m\r\n1 row added, ")));
  EXPECT_THAT(shown(line("10.9.9.9", "09")), Not(HasSubstr("error")));
  EXPECT_THAT(shown("show rewrite differences"), HasSubstr("\x1b[32mred             10.9.9.9 "));
  EXPECT_THAT(shown("show rewrite differences | include 10.9"),
              HasSubstr("\nred             10.9.9.9 "));
}

TEST_F(PromptTest, AnErrorShowsWhereInTheLineItIs) {
  EXPECT_THAT(enter("host vrf 東京 id x"),
              HasSubstr("found x\r\n  host vrf 東京 id x\r\n                   ^\r\n"));
}

TEST_F(PromptTest, AnInterruptStopsALongAnswer) {
  enter("terminal length 0");
  enter("generate scale " + (folder / "scale").string() + " vrfs 1 rows 5000");
  enter("load " + (folder / "scale" / "operator.cfg").string());
  // The terminal takes no more until it is read.
  type("show running-config\r", "src-ip 10.0.0.100 ");
  send(kInterrupt);
  std::string const shown = wait("\nlab> ");
  EXPECT_THAT(shown, Not(HasSubstr("src-ip 10.0.19.135 ")));
  EXPECT_THAT(enter("show running-config | count"), HasSubstr("\n5000\r"));
}

TEST_F(PromptTest, ASavedCaseFindsTheCapturesOfTheFilesThatWereLoaded) {
  std::filesystem::create_directory(folder / "case");
  std::filesystem::copy_file(SOURCE_DIR "/examples/leaf1/hosts.pcap", folder / "case" / "in.pcap");
  std::string const out = (folder / "out.pcap").string();
  std::ofstream(folder / "case" / "forward.lab") << "packets in.pcap " << out << '\n';
  enter("terminal length 0");
  enter("load " + (folder / "case" / "forward.lab").string());
  std::string const saved = (folder / "saved.lab").string();
  enter("save-case " + saved);
  type("exit\r", "exit");
  EXPECT_EQ(exitStatus(), 0);
  std::filesystem::remove(out);
  start();
  enter("terminal length 0");
  EXPECT_THAT(enter("load " + saved), HasSubstr("55 frames"));
  EXPECT_TRUE(std::filesystem::exists(out));
}

}  // namespace
