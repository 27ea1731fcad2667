// What commands print for people, and what they do with files.
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>

#include "host/prompt/Prompt.h"
#include "tests/host/shell/ShellFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

/// Files are in a folder of the test's own.
class CommandsTest : public HostTest::ShellFixture {
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
    EXPECT_EQ(run(line), Host::Shell::kBadInput);
    return err.str();
  }

  std::string const folder;
};

TEST_F(CommandsTest, ShowCommandsSpeakToPeople) {
  EXPECT_EQ(printed("show capability"), "overlay source MAC rewrite: not supported\n");
  EXPECT_EQ(printed("show hardware table overlaySrcMacRewrite"),
            "overlaySrcMacRewrite: not initialised\n");
  EXPECT_EQ(printed("show log"), "");
  bringUp();
  EXPECT_EQ(printed("show capability"), "overlay source MAC rewrite: supported\n");
  printed("host address 10.0.0.1 vrf-id 7 interface Ethernet1");
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

TEST_F(CommandsTest, BriefShowsTheFirstAndLastLinesOnly) {
  EXPECT_THAT(printed("brief help"),
              MatchesRegex("operator\n(.*\n){5}\\.\\.\\. [0-9]+ lines \\.\\.\\.\n(.*\n){6}"));
  EXPECT_EQ(printed("brief print one"), "one\n");
}

TEST_F(CommandsTest, MeasureAddsSecondsAndBytes) {
  EXPECT_THAT(printed("measure print one"),
              MatchesRegex("one\n  [0-9]+\\.[0-9][0-9][0-9] s, [-+][0-9]+ bytes\n"));
  EXPECT_EQ(run("measure shutdown"), Host::Shell::kBadInput);
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

TEST_F(CommandsTest, ACaptureCannotBeWrittenOverItselfNorWhereThereIsNoFolder) {
  std::filesystem::copy_file(LAB_CAPTURE, path("in.pcap"));
  EXPECT_THAT(errorOf("packets " + path("in.pcap") + ' ' + path("in.pcap")),
              HasSubstr("expected another file than the capture that is read"));
  EXPECT_EQ(contents(path("in.pcap")), contents(LAB_CAPTURE));
  EXPECT_THAT(errorOf("packets " + path("in.pcap") + ' ' + path("none/out.pcap")),
              HasSubstr("expected a file that can be written: No such file or directory"));
}

TEST_F(CommandsTest, ACommandBehindAnotherIsCompletedToo) {
  for (std::string const first : {"brief", "expect", "help", "measure", "measure brief"}) {
    EXPECT_THAT(Host::completionsOf(first + " dump st", shell), ElementsAre("stats")) << first;
  }
}

TEST_F(CommandsTest, NamesWithBlanksAreCompletedInQuotes) {
  printed("host vrf \"a b\" id 7");
  EXPECT_THAT(Host::completionsOf("no host vrf ", shell), ElementsAre("\"a b\""));
}

}  // namespace
