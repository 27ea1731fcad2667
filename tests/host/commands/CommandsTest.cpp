// SPDX-License-Identifier: Apache-2.0
// What commands print for people, and what they do with files.
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>

#include "host/packets/CaptureWriter.h"
#include "host/prompt/Prompt.h"
#include "host/switch/Generic.h"
#include "lab/ShellTarget.h"
#include "tests/host/shell/ShellFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

/// Files are in a folder of the test's own.
class CommandsTest : public BfnTest::ShellFixture {
 protected:
  CommandsTest() : folder(::testing::TempDir() + "/lab-commands-" + std::to_string(::getpid())) {
    std::filesystem::create_directory(folder);
  }
  ~CommandsTest() override { std::filesystem::remove_all(folder); }

  std::string path(std::string const& name) const { return folder + '/' + name; }
  static std::string contents(std::string const& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  std::string errorOf(std::string const& line) {
    EXPECT_EQ(run(line), Host::Shell::BadInput);
    return err.str();
  }
  std::vector<std::string> completionsOf(std::string const& line) {
    ShellTarget target(shell);
    return Host::completionsOf(line, target);
  }

  std::string const folder;
};

TEST_F(CommandsTest, WhatTheChipOrTheReconcilerLacksIsBadInput) {
  for (char const* line : {"audit", "repair", "show waiting", "dump waiting", "show reconciler",
                           "dump reconciler", "chip waiting off"}) {
    EXPECT_THAT(errorOf(line),
                HasSubstr("there is no reconciler; the option --reconcile makes one"))
        << line;
  }
  for (char const* line :
       {"chip port vx100 vlan 100", "chip port vx100 vni-map", "no chip port vx100"}) {
    EXPECT_THAT(errorOf(line), HasSubstr("the chip model has no ports")) << line;
  }
}

TEST_F(CommandsTest, CountersSayWhatBecameOfThePacketsInTheModel) {
  bringUp();
  printed("host address 10.1.1.11 vrf-id 7 interface Ethernet1");
  EXPECT_EQ(printed("chip counters"), "matched 0\nnotMatched 0\n");
  EXPECT_TRUE(host.chip.lookup(1006, {10, 1, 1, 11}));
  EXPECT_FALSE(host.chip.lookup(1006, {10, 1, 1, 12}));
  EXPECT_EQ(printed("chip counters"), "matched 1\nnotMatched 1\n");
  EXPECT_EQ(printed("chip clear hits\nchip counters"), "matched 0\nnotMatched 0\n");
}

TEST_F(CommandsTest, ShowCommandsSpeakToPeople) {
  EXPECT_EQ(printed("show capability"), "overlay source MAC rewrite: not supported\n");
  EXPECT_EQ(printed("show hardware table overlaySrcMacRewrite"),
            "overlaySrcMacRewrite: not initialised\n");
  EXPECT_EQ(printed("show log"), "");
  bringUp();
  EXPECT_EQ(printed("show capability"), "overlay source MAC rewrite: supported\n");
  printed("host address 10.0.0.1 vrf-id 7 interface Ethernet1");
  EXPECT_EQ(printed("show hardware table overlaySrcMacRewrite"),
            "overlaySrcMacRewrite: 1 of 1000 entries in use\nthe chip takes 65536 rows\n");
  printed("chip capacity 1000");
  EXPECT_EQ(printed("show hardware table overlaySrcMacRewrite"),
            "overlaySrcMacRewrite: 1 of 1000 entries in use\n");
  EXPECT_EQ(printed("show chip"),
            "VLAN  Source IP        Source MAC         Hits\n"
            "1006  10.0.0.1         00:00:00:00:00:00     0\n"
            "1 row\n");
  printed(
      "vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac 02:00:00:00:00:01");
  EXPECT_EQ(printed("show running-config"),
            "vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac "
            "02:00:00:00:00:01\n");
  printed("chip fail next 1 full\nhost address 10.0.0.2 vrf-id 7 interface Ethernet1");
  EXPECT_EQ(printed("show log"),
            "warning: BFN_VXLAN_MAC_REWRITE_TABLE_FULL: Failed to program VXLAN forwarding source "
            "MAC address rewrite action for VRF: red source IP: 10.0.0.2 due to hardware resource "
            "exhaustion.\n");
}

TEST_F(CommandsTest, LiveObjectsAreCountedByType) {
  auto const live = [this] { return nlohmann::json::parse(printed("dump objects")); };
  EXPECT_FALSE(live().contains("BfnMacRewrite::AgentSm"));
  bringUp();
  printed("host address 10.0.0.1 vrf-id 7 interface Ethernet1");
  EXPECT_EQ(live()["BfnMacRewrite::AgentSm"], 1);
  EXPECT_EQ(live()["BfnMacRewrite::MatchSpecAndRefCount"], 1);
  printed("host agent destroy");
  EXPECT_FALSE(live().contains("BfnMacRewrite::AgentSm"));
  EXPECT_FALSE(live().contains("BfnMacRewrite::MatchSpecAndRefCount"));
}

TEST_F(CommandsTest, ReactorsAreListedUnderTheNamesOfTheirMachines) {
  bringUp();
  printed("host address 10.0.0.1 vrf-id 7 interface Ethernet1");
  printed(
      "vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac 02:00:00:00:00:01");
  printed("host route vrf red vrf-id 7 forwarding-vlan 900");
  auto const live = nlohmann::json::parse(printed("dump objects"));
  std::vector<std::string> reactors;
  for (auto const& [name, count] : live.items()) {
    if (name.starts_with("BfnMacRewrite::") && name.find("Sm::Kiv") != std::string::npos) {
      reactors.push_back(name);
    }
  }
  EXPECT_THAT(
      reactors,
      UnorderedElementsAre(
          "BfnMacRewrite::AgentSm::KivBfnL3Output", "BfnMacRewrite::AgentSm::KivSystemStatus",
          "BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm::KivL3PortAndLagRoutingStatus",
          "BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm::KivL3SubIntfRoutingStatus",
          "BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm::KivVlanIntfRoutingStatus",
          "BfnMacRewrite::BfnMacRewriteSm::KivAgentVrfConfig",
          "BfnMacRewrite::BfnMacRewriteSm::KivHwRouteVrfStatus",
          "BfnMacRewrite::BfnMacRewriteSm::KivIntfIdToRoutingStatus",
          "BfnMacRewrite::BfnMacRewriteSm::KivMacRewriteStatus",
          "BfnMacRewrite::BfnMacRewriteSm::KivMacRewriteVrfStatus",
          "BfnMacRewrite::BfnMacRewriteSm::KivOverlaySrcMacRewriteAgentConfig",
          "BfnMacRewrite::BfnMacRewriteSm::KivRoutingHwRouteStatus",
          "BfnMacRewrite::OverlaySrcMacRewriteCliConfigSm::KivL3Status",
          "BfnMacRewrite::OverlaySrcMacRewriteCliConfigSm::"
          "KivOverlaySrcMacRewriteCliConfig"));
}

TEST_F(CommandsTest, BriefShowsTheFirstAndLastLinesOnly) {
  EXPECT_THAT(printed("brief help"),
              MatchesRegex("operator\n(.*\n){5}\\.\\.\\. [0-9]+ lines \\.\\.\\.\n(.*\n){6}"));
  EXPECT_EQ(printed("brief print one"), "one\n");
}

TEST_F(CommandsTest, MeasureAddsSecondsAndBytes) {
  EXPECT_THAT(printed("measure print one"),
              MatchesRegex("one\n  [0-9]+\\.[0-9][0-9][0-9] s, [-+][0-9]+ bytes\n"));
  EXPECT_EQ(run("measure shutdown"), Host::Shell::BadInput);
}

TEST_F(CommandsTest, AGeneratedScaleLoadsIntoThatManyRows) {
  bringUp();
  printed("generate scale " + path("scale") + " vrfs 3 rows 10");
  EXPECT_EQ(printed("load " + path("scale/operator.cfg")),
            path("scale/operator.cfg") + ": 10 lines accepted\n");
  printed("load " + path("scale/interfaces.lab") + "\nload " + path("scale/addresses.lab"));
  std::string const rows = printed("show vxlan forwarding src-mac rewrite");
  EXPECT_THAT(rows, HasSubstr("vrf0            10.0.0.9             02:00:00:00:00:09"));
  EXPECT_THAT(printed("show chip"), EndsWith("\n10 rows\n"));
  EXPECT_THAT(errorOf("generate scale " + path("scale") + " vrfs 0 rows 1"),
              HasSubstr("expected a number from 1 to 4294967295, found 0"));
  EXPECT_THAT(errorOf("generate scale " + path("scale/operator.cfg") + " vrfs 1 rows 1"),
              StartsWith("case:1: error: cannot make "));
}

TEST_F(CommandsTest, ABrokenCaptureIsRefusedAndNothingIsWritten) {
  std::string const whole = contents(LAB_CAPTURE);
  ASSERT_GT(whole.size(), 1000u);
  std::ofstream(path("cut.pcap"), std::ios::binary) << whole.substr(0, 1000);
  std::ofstream(path("text.pcap")) << "no capture\n";
  std::ofstream(path("empty.pcap"));
  auto const error = [this](std::string const& in) {
    return errorOf("packets " + in + ' ' + path("out.pcap"));
  };
  std::string const place = "case:1: error: " + folder;
  EXPECT_THAT(error(path("cut.pcap")), StartsWith(place + "/cut.pcap: expected a whole record 10"));
  EXPECT_THAT(error(path("text.pcap")), StartsWith(place + "/text.pcap: expected a capture file"));
  EXPECT_THAT(error(path("empty.pcap")),
              StartsWith(place + "/empty.pcap: expected a capture file"));
  EXPECT_THAT(error(folder), StartsWith(place + ": expected a capture file, is a directory"));
  EXPECT_FALSE(std::filesystem::exists(path("out.pcap")));
}

TEST_F(CommandsTest, ACaptureCannotBeWrittenOverItselfNorBelowAFile) {
  std::filesystem::copy_file(LAB_CAPTURE, path("in.pcap"));
  EXPECT_THAT(errorOf("packets " + path("in.pcap") + ' ' + path("in.pcap")),
              HasSubstr("expected another file than the capture that is read"));
  EXPECT_EQ(contents(path("in.pcap")), contents(LAB_CAPTURE));
  EXPECT_THAT(errorOf("packets " + path("in.pcap") + ' ' + path("in.pcap/out.pcap")),
              HasSubstr("cannot make "));
}

TEST_F(CommandsTest, ACommandAfterAnotherIsCompletedToo) {
  for (std::string const first : {"brief", "expect", "help", "measure", "measure brief"}) {
    EXPECT_THAT(completionsOf(first + " dump st"), ElementsAre("stats")) << first;
  }
}

TEST_F(CommandsTest, NamesWithBlanksAreCompletedInQuotes) {
  printed("host vrf \"a b\" id 7");
  EXPECT_THAT(completionsOf("no host vrf "), ElementsAre("\"a b\""));
}

TEST_F(CommandsTest, ShowBeforeThereIsATableManagerIsAnInputError) {
  constexpr char kShow[] = "show vxlan forwarding src-mac rewrite";
  EXPECT_THAT(errorOf(kShow), HasSubstr("there is no agent"));
  EXPECT_THAT(errorOf(std::string("host agent create\n") + kShow),
              HasSubstr("case:2: error: there is no table manager"));
}

TEST_F(CommandsTest, StageTwoSaysWhatWasMadeAndWhatWasReplaced) {
  // Stage 2 breaks off at a VLAN out of range.
  printed(
      "host profile routing rewrite supported table-size 1000\n"
      "host use profile routing\n"
      "host agent create\n"
      "host init-tables true\n"
      "host routing-status port Ethernet1 key-vlan 0 vlan 4095 vrf-id 7\n"
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n");
  EXPECT_THAT(printed("host start true"), StartsWith("exception: VlanId::value"));
  printed("host update routing-status port Ethernet1 key-vlan 0 vlan 100 vrf-id 7");
  EXPECT_EQ(printed("host start false"), "stage 2: 2 state machines made\n");
  EXPECT_EQ(printed("host start true"), "stage 2: state machines kept\n");
  EXPECT_EQ(printed("host replace port-status\nhost start false"),
            "stage 2: 1 state machine replaced\n");
  EXPECT_EQ(printed("host replace l3-status\nhost start true"),
            "stage 2: 2 state machines replaced\n");
}

TEST_F(CommandsTest, AJournalThatDroppedEntriesSaysHowMany) {
  bringUp();
  host.journal().limitIs(1);
  printed("host address 10.0.0.1 vrf-id 7 interface Ethernet1");
  EXPECT_EQ(nlohmann::json::parse(printed("dump journal")).size(), 1u);
  printed(
      "host address 10.0.0.2 vrf-id 7 interface Ethernet1\n"
      "host address 10.0.0.3 vrf-id 7 interface Ethernet1");
  nlohmann::json const entries = nlohmann::json::parse(printed("dump journal"));
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0], nlohmann::json({{"dropped", 1}}));
  EXPECT_EQ(entries[1]["sip"], "10.0.0.3");
  EXPECT_EQ(printed("dump journal"), "[]\n");
}

TEST_F(CommandsTest, WithJsonShowPrintsTheCommandsOwnBytes) {
  bringUp();
  printed("host address 10.0.0.1 vrf-id 7 interface Ethernet1");
  std::string const own = printed("show vxlan forwarding src-mac rewrite | json");
  std::string const sorted = printed("print " + nlohmann::json::parse(own).dump());
  EXPECT_NE(own, sorted) << "the renderer's own order and blanks are not those of a dump";
  EXPECT_EQ(nlohmann::json::parse(own)["vrfs"]["red"].size(), 1u);
}

TEST_F(CommandsTest, AnErrorQuotesAtMostSixtyCharactersOfAWord) {
  std::string const error = errorOf(std::string(5000, 'x'));
  EXPECT_THAT(error, EndsWith("found " + std::string(60, 'x') + "...\n"));
  EXPECT_THAT(errorOf("packets " + std::string(200, 'z') + " out.pcap"),
              StartsWith("case:1: error: " + std::string(60, 'z') + "...: "));
}

TEST_F(CommandsTest, ARunningConfigOfAVrfNamedLikeTheSignIsReadBack) {
  constexpr char kLine[] =
      "vxlan forwarding match vrf \"==\" src-ip 10.0.0.1 action rewrite src-mac "
      "02:00:00:00:00:01\n";
  printed(kLine);
  EXPECT_EQ(printed("show running-config"), kLine);
  printed("no vxlan forwarding match vrf \"==\" src-ip 10.0.0.1");
  EXPECT_EQ(printed("show running-config"), "");
}

TEST_F(CommandsTest, HitsCountOnlyOnceTheOutputIsWritten) {
  bringUp();
  printed(
      "host routing-status port Ethernet2 key-vlan 0 vlan 100 vrf-id 7\n"
      "host address 10.1.1.11 vrf-id 7 interface Ethernet2");
  auto const hits = [this] { return nlohmann::json::parse(printed("dump chip"))[0]["hits"]; };
  std::string const packets = "packets " LAB_CAPTURE " ";
  if (std::filesystem::exists("/dev/full")) {
    EXPECT_THAT(errorOf(packets + "/dev/full"), HasSubstr("/dev/full: expected room"));
    EXPECT_EQ(hits(), 0);
  }
  printed(packets + path("made/on/the/way/out.pcap"));
  EXPECT_GT(hits(), 0);
}

TEST_F(CommandsTest, TheListOfFramesSaysWhenItIsCut) {
  bringUp();
  std::string const merged = path("long.pcap");
  {
    Host::Packets::CaptureWriter writer(merged);
    for (int i = 0; i < 1002; ++i) {
      std::vector<Kiv::U8> const frame(60, 0);
      writer.write({{1, 0}, frame, frame.size()});
    }
  }
  EXPECT_THAT(printed("packets " + merged + ' ' + path("out.pcap")), HasSubstr("... and 2 more\n"));
  EXPECT_EQ(run("expect packets " + merged + ' ' + path("out.pcap") + " == 1"),
            Host::Shell::ExpectationFailed);
  EXPECT_THAT(err.str(), HasSubstr("\"framesNotListed\":2,"));
  EXPECT_EQ(run("expect packets " LAB_CAPTURE " " + path("out.pcap") + " == 1"),
            Host::Shell::ExpectationFailed);
  EXPECT_EQ(err.str().find("framesNotListed"), std::string::npos);
}

TEST_F(CommandsTest, AFileIsLookedForBesideTheFileThatNamesItThenInTheWorkingDirectory) {
  std::filesystem::create_directory(path("sub"));
  std::ofstream(path("sub/outer.lab")) << "load inner.lab\n";
  auto const before = std::filesystem::current_path();
  std::filesystem::current_path(folder);
  std::ofstream("inner.lab") << "print from the working directory\n";
  EXPECT_EQ(printed("load sub/outer.lab"),
            "from the working directory\ninner.lab: 1 line accepted\n"
            "sub/outer.lab: 1 line accepted\n");
  std::ofstream(path("sub/inner.lab")) << "print from beside\n";
  EXPECT_THAT(printed("load sub/outer.lab"), StartsWith("from beside\n"));
  std::filesystem::current_path(before);
}

}  // namespace
