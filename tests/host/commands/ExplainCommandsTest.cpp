// SPDX-License-Identifier: Apache-2.0
// What the commands that say why print for people.
#include <gtest/gtest.h>
#include <string>

#include "tests/host/shell/ShellFixture.h"

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

}  // namespace
