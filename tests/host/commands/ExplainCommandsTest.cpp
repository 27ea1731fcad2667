// SPDX-License-Identifier: Apache-2.0
// What the commands that say why print for people.
#include <gtest/gtest.h>
#include <string>

#include "tests/host/shell/ShellFixture.h"
#include "tests/support/RewriteRow.h"

namespace {

class ExplainCommandsTest : public BfnTest::ShellFixture {
 protected:
  ExplainCommandsTest() { bringUp(); }
};

TEST_F(ExplainCommandsTest, ExplainPrintsEachLinkWithItsValueAndItsOriginAndThenTheVerdict) {
  printed(
      "vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac 02:11:22:33:44:55\n"
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1 self\n"
      "host route vrf red vrf-id 7 forwarding-vlan 200\n");
  EXPECT_EQ(printed("explain vrf red src-ip 10.0.0.1"),
            "VRF red (id 7), source IP 10.0.0.1\n"
            "  configured line  src-mac 02:11:22:33:44:55       show running-config\n"
            "  VRF id           7                               host vrf\n"
            "  translated MAC   02:11:22:33:44:55               dump config\n"
            "  address          on Ethernet1, the switch's own  host address\n"
            "  indexed          on Ethernet1                    dump indexes\n"
            "  routing status   VLAN 1006, VRF id 7             host routing-status port\n"
            "  forwarding VLAN  VLAN 200                        host route\n"
            "  record           VLAN 200, 1 reference           dump records\n"
            "  installed row    VLAN 200, 02:11:22:33:44:55     show chip\n"
            "  hits             0                               show chip\n"
            "packets from 10.0.0.1 in VLAN 200 leave with 02:11:22:33:44:55\n");
}

TEST_F(ExplainCommandsTest, ExplainRowNamesThePairThatTheRowBelongsTo) {
  printed("host address 10.0.0.1 vrf-id 7 interface Ethernet1\n");
  std::string const text = printed("explain row vlan 1006 src-ip 10.0.0.1");
  EXPECT_TRUE(text.starts_with("Row of VLAN 1006, source IP 10.0.0.1: VRF red (id 7)\n")) << text;
  EXPECT_EQ(printed("explain row vlan 200 src-ip 10.0.0.1"),
            "Row of VLAN 200, source IP 10.0.0.1\n"
            "  installed row    none  show chip\n"
            "no row: no address of the agent leads to it\n");
}

TEST_F(ExplainCommandsTest, ARowThatTheAgentDoesNotKnowIsLeftOver) {
  printed(
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n"
      "host agent destroy\n");
  std::string const text = printed("explain row vlan 1006 src-ip 10.0.0.1");
  EXPECT_TRUE(text.ends_with("a row left over: there is no agent (host agent create)\n")) << text;
}

TEST_F(ExplainCommandsTest, AChipThatCannotBeReadIsAnException) {
  printed(
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n"
      "chip fail next 1 other read\n");
  EXPECT_EQ(printed("explain vrf red src-ip 10.0.0.1"),
            "exception: the chip's rows could not be read\n");
}

TEST_F(ExplainCommandsTest, DetailHasTheTimeSinceTheLastWriteOfEachRow) {
  printed(
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n"
      "host address 10.0.0.2 vrf-id 7 interface Ethernet1\n"
      "clock advance 30\n"
      "vxlan forwarding match vrf red src-ip 10.0.0.2 action rewrite src-mac 02:00:00:00:00:02\n"
      "clock advance 5\n"
      "host routing-status port Ethernet1 key-vlan 0 vlan 1007 vrf-id 7\n"
      "clock advance 1\n");
  EXPECT_EQ(printed("show vxlan forwarding src-mac rewrite detail src-ip 10.0.0.2"),
            "VRF name        Source IP        Source MAC         VLAN  Interface        Refs       "
            "Hits  Written\n"
            "red             10.0.0.2         02:00:00:00:00:02  1006  Ethernet1        2          "
            "   0  1 s ago\n"
            "1 row\n");
}

TEST_F(ExplainCommandsTest, DetailNeedsAnAgentWithATableManager) {
  printed("host agent destroy");
  EXPECT_EQ(run("show vxlan forwarding src-mac rewrite detail"), Host::Shell::BadInput);
  EXPECT_EQ(err.str(), "case:1: error: there is no agent; host agent create makes one\n");
  printed("host agent create");
  EXPECT_EQ(run("show vxlan forwarding src-mac rewrite detail"), Host::Shell::BadInput);
  EXPECT_EQ(err.str(),
            "case:1: error: there is no table manager; a change of host init-tables makes one\n");
}

TEST_F(ExplainCommandsTest, DetailListsARowWhoseInterfaceHasLostItsStatus) {
  printed(
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n"
      "host routing-status port Ethernet1 key-vlan 0 vlan 1007 vrf-id 7\n"
      "no host routing-status port Ethernet1 key-vlan 0\n");
  EXPECT_EQ(printed("show vxlan forwarding src-mac rewrite detail | include Ethernet1"),
            "                10.0.0.1         00:00:00:00:00:00  1006  Ethernet1        1          "
            "   0  0 s ago\n");
}

TEST_F(ExplainCommandsTest, DifferencesAreRowsThatAreNotAsConfiguredAndWhy) {
  EXPECT_EQ(printed("show rewrite differences"),
            "no differences: what is configured is installed\n");
  printed(
      "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n"
      "vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac 02:00:00:00:00:01\n"
      "vxlan forwarding match vrf red src-ip 10.0.0.2 action rewrite src-mac 02:00:00:00:00:02\n"
      "host address 10.0.0.3 vrf-id 7 interface Ethernet1\n"
      "host address 10.0.0.4 vrf-id 7 interface Ethernet1\n"
      "vxlan forwarding match vrf red src-ip 10.0.0.4 action rewrite src-mac 02:00:00:00:00:04\n"
      "no vxlan forwarding match vrf red src-ip 10.0.0.4\n");
  // A row that no address leads to.
  host.chip.write(*host.chip.open({9, 0, {}, "", BfnChip::ChipModel::kRewriteTable}),
                  BfnTest::rewriteKey(5, {10, 9, 9, 9}),
                  BfnTest::rewriteAction({2, 0, 0, 0, 0, 9}));
  EXPECT_EQ(
      printed("show rewrite differences"),
      "VRF name        Source IP        VLAN  Configured         Installed          Finding\n"
      "red             10.0.0.2         -     02:00:00:00:00:02  -                  no row: "
      "10.0.0.2 is not reported in VRF red (id 7)\n"
      "red             10.0.0.3         1006  -                  00:00:00:00:00:00  the row has "
      "the "
      "all-zero MAC: there is no configured line, packets keep their own\n"
      "red             10.0.0.4         1006  -                  02:00:00:00:00:04  the row keeps "
      "the MAC of a line that was removed\n"
      "                10.9.9.9         5     -                  02:00:00:00:00:09  a row left "
      "over: "
      "no address of the agent leads to it\n"
      "4 differences\n");
}

}  // namespace
