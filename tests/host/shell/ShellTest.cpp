// SPDX-License-Identifier: Apache-2.0
#include "host/shell/Shell.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>

#include "host/language/Lexer.h"
#include "host/packets/Verdict.h"
#include "host/prompt/Prompt.h"
#include "lab/ShellTarget.h"
#include "tests/host/shell/ShellFixture.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class ShellTest : public BfnTest::ShellFixture {};

struct BadLine {
  char const* line;
  char const* error;
};
void PrintTo(BadLine const& bad, std::ostream* out) {
  *out << bad.line;
}

class BadInputTest : public BfnTest::ShellFixture, public ::testing::WithParamInterface<BadLine> {};

TEST_P(BadInputTest, SaysWhereAndWhatWasExpectedAndChangesNothing) {
  bringUp();
  std::string const before = printed("dump inputs\ndump chip\ndump config");
  EXPECT_EQ(run(std::string("# a comment\n") + GetParam().line), Host::Shell::BadInput);
  EXPECT_EQ(err.str(), std::string("case:2: error: ") + GetParam().error + '\n');
  EXPECT_EQ(printed("dump inputs\ndump chip\ndump config"), before);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, BadInputTest,
    ::testing::Values(
        BadLine{"vxlan forwarding match vrf red src-ip 10.0.0.256 action rewrite src-mac "
                "02:00:00:00:00:01",
                "expected an IPv4 address such as 10.0.0.1, found 10.0.0.256"},
        BadLine{"vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac 02:00",
                "expected a MAC address such as 02:11:22:33:44:55, found 02:00"},
        BadLine{"vxlan forwarding match vrf red src-ip 10.0.0.1",
                "expected action, found the end of the line"},
        BadLine{"no vxlan forwarding match vrf red src-ip 10.0.0.1 action drop",
                "expected rewrite, found drop"},
        BadLine{
            "host vrf aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"
            "aaaaaaaaaaaaaaaaaaaaaaaaa id 1",
            "expected a VRF name of at most 100 bytes, found "
            "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa..."},
        BadLine{"host vrf red id 4294967296",
                "expected a number from 0 to 4294967295, found 4294967296"},
        BadLine{"host vrf red id 7 8", "expected the end of the line, found 8"},
        BadLine{"no host vrf red id 8", "expected the id that the VRF has, 7"},
        BadLine{"no host vrf blue id 8", "the VRF has no id"},
        BadLine{"host routing-status lag Port1 key-vlan 0 vlan 1 vrf-id 1",
                "expected port, vlan or subinterface, found lag"},
        BadLine{"host routing-status port Ethernet1 key-vlan 65536 vlan 1 vrf-id 1",
                "expected a number from 0 to 65535, found 65536"},
        BadLine{"host routing-status port Ethernet1 key-vlan 0 vlan 1",
                "expected vrf-id, found the end of the line"},
        BadLine{"host update routing-status port Ethernet9 key-vlan 0 vlan 1 vrf-id 1",
                "there is no such routing status"},
        BadLine{"host address 10.0.0.1", "expected vrf-id, found the end of the line"},
        BadLine{"host address 10.0.0.1 vrf-id 7 self",
                "expected interface or the end of the line, found self"},
        BadLine{"no host address",
                "expected an IPv4 address such as 10.0.0.1 or vrf-id, found the "
                "end of the line"},
        BadLine{"host route vrf red vrf-id 7",
                "expected forwarding-vlan, found the end of the line"},
        BadLine{"host profile p rewrite maybe table-size 1",
                "expected supported or unsupported, found maybe"},
        BadLine{"host init-tables yes", "expected true or false, found yes"},
        BadLine{"host agent restart", "expected create or destroy, found restart"},
        BadLine{"host clear system-status", "the plug-in must be given a system-status"},
        BadLine{"host empty capability", "the capability has no members"},
        BadLine{"chip fail next 1 sometimes",
                "expected full, no-resources, other or exception, found sometimes"},
        BadLine{"chip capacity many", "expected a number from 0 to 4294967295, found many"},
        BadLine{"packets no-such.pcap out.pcap",
                "no-such.pcap: expected a capture file that can be read: No such "
                "file or directory"},
        BadLine{"packets a.pcap b.pcap access-vlan 0", "expected a number from 1 to 4094, found 0"},
        BadLine{"load no-such-file.lab",
                "no-such-file.lab: expected a file of commands that can be read"},
        BadLine{"load /", "/: expected a file of commands that can be read"},
        BadLine{"expect dump chip == [", "expected JSON after =="},
        BadLine{"expect dump chip", "expected ==, found the end of the line"},
        BadLine{"clock advance soon", "expected a number from 0 to 4294967295, found soon"},
        BadLine{"help host everything", "there is no command that begins so; try help"},
        BadLine{"host vrf \"red", "expected a closing quote before the end of the line"}));

class CaretShellTest : public BfnTest::ShellFixture {
 protected:
  CaretShellTest() : ShellFixture({.carets = true}) {}
};

TEST_F(CaretShellTest, AnErrorShowsTheLineWithACaretUnderWhatIsWrong) {
  run("host address 10.0.0.256 vrf-id 7");
  EXPECT_EQ(err.str(),
            "case:1: error: expected an IPv4 address such as 10.0.0.1, found 10.0.0.256\n"
            "  host address 10.0.0.256 vrf-id 7\n"
            "               ^\n");
  run("dump");
  EXPECT_THAT(err.str(), ::testing::EndsWith("\n  dump\n       ^\n"));
  // A wide character takes two columns.
  run("host vrf \xe6\x9d\xb1 id x");
  EXPECT_THAT(err.str(),
              ::testing::EndsWith("\n  host vrf \xe6\x9d\xb1 id x\n                 ^\n"));
}

TEST_F(CaretShellTest, OfALongLineTheErrorShowsAPart) {
  run("print " + std::string(100, 'x') + " \"\\n\" " + std::string(100, 'y'));
  std::string const shown = err.str();
  EXPECT_THAT(shown, HasSubstr("\n  ...xxx"));
  EXPECT_THAT(shown, HasSubstr("yyy...\n"));
  size_t const line = shown.find('\n') + 1;
  size_t const below = shown.find('\n', line) + 1;
  EXPECT_EQ(shown[line + (shown.find('^') - below)], '\\');
}

TEST_F(CaretShellTest, WhatIsNoPartOfTheLineHasNoCaret) {
  run("no host vrf red id 7");
  EXPECT_EQ(err.str(), "case:1: error: the VRF has no id\n");
}

TEST_F(ShellTest, AnUnknownWordIsAnsweredWithAllThatCouldBeThere) {
  for (std::string const before : {"", "dump "}) {
    EXPECT_EQ(run(before + "everything"), Host::Shell::BadInput);
    EXPECT_THAT(err.str(), StartsWith("case:1: error: expected "));
    EXPECT_THAT(err.str(), ::testing::EndsWith(", found everything\n"));
    for (auto const& [next, help] : shell.table().next(Host::splitWords(before))) {
      EXPECT_THAT(err.str(), ::testing::ContainsRegex("[ ,]" + next.text + "[ ,]"));
    }
  }
}

TEST_F(ShellTest, TheFirstBadLineEndsTheRun) {
  EXPECT_EQ(run("print one\nbad\nprint two"), Host::Shell::BadInput);
  EXPECT_EQ(out.str(), "one\n");
}

TEST_F(ShellTest, ABadLineOfALoadedFileIsReportedWithItsOwnPlace) {
  std::string const file = ::testing::TempDir() + "/bad.lab";
  std::ofstream(file) << "print one\n\nhost\n";
  EXPECT_EQ(run("print zero\nload " + file), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), StartsWith(file + ":3: error: expected vrf"));
  std::filesystem::remove(file);
}

TEST_F(ShellTest, AFileThatLoadsItselfIsRefused) {
  std::string const file = ::testing::TempDir() + "/self.lab";
  std::ofstream(file) << "load self.lab\n";
  EXPECT_EQ(run("load " + file), Host::Shell::BadInput);
  EXPECT_THAT(err.str(), HasSubstr("files are loaded within each other too deep"));
  std::filesystem::remove(file);
}

TEST_F(ShellTest, AMissingFileOfTheCommandLineIsBadInput) {
  EXPECT_EQ(shell.runFile("no-such-file.lab", err), Host::Shell::BadInput);
  EXPECT_EQ(err.str(), "no-such-file.lab: error: expected a file of commands that can be read\n");
}

TEST_F(ShellTest, AFailedExpectationShowsBothSides) {
  EXPECT_EQ(run("expect dump capability == {\"a\": [1]}"), Host::Shell::ExpectationFailed);
  EXPECT_EQ(err.str(),
            "case:1: expectation failed\n"
            "  expected: {\"a\":[1]}\n"
            "  found:    {\"overlaySrcMacRewriteSupported\":false}\n");
}

TEST_F(ShellTest, AnExceptionOfThePluginIsTheAnswerToItsLineAndTheRunContinues) {
  bringUp();
  EXPECT_EQ(printed("host routing-status port Ethernet2 key-vlan 0 vlan 4095 vrf-id 7\n"
                    "host address 10.0.0.2 vrf-id 7 interface Ethernet2\n"
                    "print on\n"),
            "exception: VlanId::value < 1 or > 4094 not allowed\non\n");
}

TEST_F(ShellTest, NothingIsReadAfterExit) {
  EXPECT_EQ(printed("print one\nexit\nnonsense"), "one\n");
  EXPECT_TRUE(shell.exited());
}

TEST_F(ShellTest, LogMessagesAppearBeforeTheAnswerOfTheirLine) {
  bringUp();
  EXPECT_THAT(printed("chip capacity 0\nhost address 10.0.0.1 vrf-id 7 interface Ethernet1"),
              StartsWith("log: warning: BFN_VXLAN_MAC_REWRITE_TABLE_FULL: Failed to program"));
}

TEST_F(ShellTest, TheRateLimitOfLogMessagesGoesByTheLabsClock) {
  bringUp();
  printed("chip capacity 0\nhost address 10.0.0.1 vrf-id 7 interface Ethernet1");
  EXPECT_EQ(printed("clock advance 59\nhost address 10.0.0.2 vrf-id 7 interface Ethernet1"), "");
  EXPECT_THAT(printed("clock advance 1\nhost address 10.0.0.3 vrf-id 7 interface Ethernet1"),
              HasSubstr("[1 held back]"));
}

class JsonShellTest : public BfnTest::ShellFixture {
 protected:
  JsonShellTest() : ShellFixture({.echo = false, .json = true}) {}
};

TEST_F(JsonShellTest, EveryAnswerIsOneJsonLine) {
  EXPECT_EQ(printed("host vrf red id 7\ndump capability"),
            "{\"answer\":null,\"command\":\"host vrf red id 7\",\"file\":\"case\",\"line\":1}\n"
            "{\"answer\":{\"overlaySrcMacRewriteSupported\":false},\"command\":\"dump capability\","
            "\"file\":\"case\",\"line\":2}\n");
}

TEST_F(JsonShellTest, ALineErrorKnowsItsPlaceInTheLine) {
  struct Wrong {
    char const* line;
    int column;
  };
  for (auto const& [line, column] :
       {Wrong{"host address 10.0.0.256 vrf-id 7", 14}, Wrong{"  dump", 8},
        Wrong{"host vrf \"a", 12}, Wrong{"print \"\\n\"", 8}, Wrong{"expect dump chips == []", 13},
        Wrong{"show capability | shorten", 19}, Wrong{"expect dump chip == [", 21},
        Wrong{"host vrf z\xc3\xbcrich id x", 20}}) {
    EXPECT_EQ(run(line), Host::Shell::BadInput);
    EXPECT_EQ(nlohmann::json::parse(out.str()).at("column"), column) << line;
  }
}

TEST_F(JsonShellTest, AFailedExpectationHasBothSides) {
  EXPECT_EQ(run("expect print a == [1]"), Host::Shell::ExpectationFailed);
  auto const error = nlohmann::json::parse(out.str());
  EXPECT_EQ(error.at("expected"), nlohmann::json({1}));
  EXPECT_EQ(error.at("found"), "a");
  EXPECT_EQ(error.at("line"), 1);
  EXPECT_EQ(error.at("column"), nullptr);
}

TEST_F(JsonShellTest, AnErrorIsAJsonLineToo) {
  EXPECT_EQ(run("host agent restart"), Host::Shell::BadInput);
  EXPECT_EQ(nlohmann::json::parse(out.str()),
            nlohmann::json({{"column", 12},
                            {"error", "case:1: error: expected create or destroy, found restart"},
                            {"expected", {"create", "destroy"}},
                            {"file", "case"},
                            {"found", "restart"},
                            {"line", 1}}));
  EXPECT_EQ(run("dump chips"), Host::Shell::BadInput);
  EXPECT_THAT(out.str(), HasSubstr("\"error\":\"case:1: error: expected chip"));
}

// Raw bytes in the lines: what a word holds is nowhere required to be UTF-8.
TEST_F(JsonShellTest, NamesStayApartInAnswersCommandsAndErrorsWhateverBytesTheyHold) {
  std::string const names[] = {"\xff", "\xc3\xbf", "\xef\xbf\xbd", "\xf4\x8f\xbf\xbf"};
  std::string lines;
  for (unsigned i = 0; i < std::size(names); ++i) {
    lines += "host vrf " + names[i] + " id " + std::to_string(i + 1) + '\n';
  }
  std::istringstream answers(printed(lines + "dump inputs"));
  std::set<std::string> commands;
  nlohmann::json last;
  for (std::string line; std::getline(answers, line);) {
    last = nlohmann::json::parse(line);
    commands.insert(last.at("command").get<std::string>());
  }
  EXPECT_EQ(commands.size(), std::size(names) + 1);
  EXPECT_EQ(last.at("answer").at("l3Status").at("nameToId").size(), std::size(names));

  std::set<std::string> errors;
  for (std::string const& name : names) {
    out.str("");
    EXPECT_EQ(run("dump " + name), Host::Shell::BadInput);
    errors.insert(nlohmann::json::parse(out.str()).at("error").get<std::string>());
  }
  EXPECT_EQ(errors.size(), std::size(names));
}

TEST_F(ShellTest, NamesGivenAsJsonAreReadBackAsTheyAreWritten) {
  printed("host vrf \xff id 7\nhost vrf \xc3\xbf id 8");
  std::string const written = printed("dump inputs");
  EXPECT_THAT(written, HasSubstr("\xf4\x8f\xbf\xbf"));
  EXPECT_EQ(run("expect dump inputs == " + written), Host::Shell::Done) << err.str();
}

class EchoShellTest : public BfnTest::ShellFixture {
 protected:
  EchoShellTest() : ShellFixture({.echo = true, .json = false}) {}
};

TEST_F(EchoShellTest, EachLineIsPrintedBeforeItsAnswer) {
  EXPECT_EQ(printed("# nothing\nprint one\n"), "> print one\none\n");
}

TEST_F(ShellTest, EveryExampleIsALineOfItsCommand) {
  for (auto const& group : shell.table().groups()) {
    for (auto const& command : group.commands) {
      std::istringstream words(command.example);
      std::vector<std::string> const line{std::istream_iterator<std::string>(words), {}};
      // The words after == are one.
      if (line[0] == "expect") continue;
      EXPECT_EQ(shell.table().find(line).command, &command) << command.example;
    }
  }
}

TEST_F(ShellTest, TheDocumentHasTheFormAndTheExampleOfEveryCommand) {
  std::ifstream in(LAB_DOCUMENT);
  std::string const document{std::istreambuf_iterator<char>(in), {}};
  for (auto const& group : shell.table().groups()) {
    for (auto const& command : group.commands) {
      EXPECT_NE(document.find("`" + command.pattern.text() + "`"), std::string::npos)
          << command.pattern.text();
      EXPECT_NE(document.find(command.example), std::string::npos) << command.example;
    }
  }
}

TEST_F(ShellTest, TheLanguageIsDumpedWithTheFormHelpAndExampleOfEveryCommand) {
  auto const groups = nlohmann::json::parse(printed("dump language"));
  ASSERT_EQ(groups.size(), shell.table().groups().size());
  for (size_t i = 0; i < groups.size(); ++i) {
    auto const& group = shell.table().groups()[i];
    EXPECT_EQ(groups[i]["title"], group.title);
    ASSERT_EQ(groups[i]["commands"].size(), group.commands.size());
    for (size_t at = 0; at < group.commands.size(); ++at) {
      EXPECT_EQ(groups[i]["commands"][at]["form"], group.commands[at].pattern.text());
      EXPECT_EQ(groups[i]["commands"][at]["help"], group.commands[at].help);
      EXPECT_EQ(groups[i]["commands"][at]["example"], group.commands[at].example);
    }
  }
}

TEST_F(ShellTest, TheDocumentHasEveryWordThatFramesAreCountedAs) {
  std::ifstream in(LAB_DOCUMENT);
  std::string const document{std::istreambuf_iterator<char>(in), {}};
  for (size_t i = 0; i < Host::Packets::kVerdicts; ++i) {
    std::string const word(Host::Packets::text(static_cast<Host::Packets::Verdict>(i)));
    EXPECT_THAT(document, ::testing::ContainsRegex("\n\\|([^|]*, | )" + word + "(, [^|]*)? \\|"));
  }
}

TEST_F(ShellTest, WordsAreCompletedFromTheTableAndFromWhatTheHostKnows) {
  bringUp();
  ShellTarget target(shell);
  EXPECT_THAT(Host::completionsOf("du", target), ElementsAre("dump"));
  EXPECT_THAT(Host::completionsOf("dump c", target), ElementsAre("capability", "chip", "config"));
  EXPECT_THAT(Host::completionsOf("vxlan forwarding match vrf ", target), ElementsAre("red"));
  EXPECT_THAT(Host::completionsOf("no host routing-status port E", target),
              ElementsAre("Ethernet1"));
  printed("host address 10.0.0.1 vrf-id 7 interface Ethernet1");
  EXPECT_THAT(Host::completionsOf("no host address 1", target), ElementsAre("10.0.0.1"));
  EXPECT_THAT(Host::completionsOf("expect dump st", target), ElementsAre("stats"));
  EXPECT_THAT(Host::completionsOf("nothing of ", target), ElementsAre());
}

TEST_F(ShellTest, TheHelpOfACommandBeginsWithItsWords) {
  EXPECT_THAT(printed("help chip capacity"), HasSubstr("chip capacity <N>"));
  EXPECT_THAT(printed("help chip capacity"), Not(HasSubstr("chip resources")));
  EXPECT_THAT(printed("help"), HasSubstr("no host route vrf <VRF>"));
}

}  // namespace
