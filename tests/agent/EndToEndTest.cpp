// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/core/AllocTrack.h"
#include "tests/support/PluginHost.h"
#include "tests/support/TraceCapture.h"

// The plug-in through its entry alone, seen from the chip.
namespace {

using BfnTest::TraceCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class EndToEndTest : public ::testing::Test {
 protected:
  Kiv::U64 liveBefore = Kiv::AllocTrackTypeInfo::liveObjects();
  std::unique_ptr<BfnTest::PluginHost> owned = std::make_unique<BfnTest::PluginHost>();
  BfnTest::PluginHost& host = *owned;

  void TearDown() override {
    owned.reset();
    EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), liveBefore);
  }
};

TEST_F(EndToEndTest, AnAddressOnARoutedInterfaceBecomesARowWithTheZeroMac) {
  host.bringUp();
  EXPECT_TRUE(host.capability->overlaySrcMacRewriteSupported());
  host.vrf("red", 7);
  host.port("Ethernet1", 1006, 7);
  host.address(7, "10.0.0.1", "Ethernet1");
  EXPECT_THAT(host.journal(), ElementsAre("write 1006 10.0.0.1 00:00:00:00:00:00"));
  host.rewrite("red", "10.0.0.1", "02:11:22:33:44:55");
  EXPECT_THAT(host.journal(), ElementsAre("write 1006 10.0.0.1 02:11:22:33:44:55"));
  EXPECT_THAT(host.rows(), ElementsAre("1006 10.0.0.1 02:11:22:33:44:55"));
}

TEST_F(EndToEndTest, ASelfIpFollowsItsVrfsForwardingVlan) {
  host.bringUp();
  host.vrf("red", 7);
  host.port("Ethernet1", 1006, 7);
  host.address(7, "10.0.0.1", "Ethernet1", true);
  host.address(7, "10.0.0.2", "Ethernet1", false);
  EXPECT_THAT(host.journal(), ElementsAre("write 1006 10.0.0.2 00:00:00:00:00:00"));
  host.route("red", 7, 0);
  EXPECT_THAT(host.journal(), IsEmpty());
  host.route("red", 7, 200);
  EXPECT_THAT(host.journal(), ElementsAre("write 200 10.0.0.1 00:00:00:00:00:00"));
  host.route("red", 7, 300);
  EXPECT_THAT(host.journal(),
              ElementsAre("erase 200 10.0.0.1", "write 300 10.0.0.1 00:00:00:00:00:00"));
  host.route("red", 7, 0);
  EXPECT_THAT(host.journal(), ElementsAre("erase 300 10.0.0.1"));
}

TEST_F(EndToEndTest, WhatIsThereBeforeStage2IsWrittenOnceAndThenGivenItsMac) {
  host.vrf("red", 7);
  host.port("Ethernet1", 1006, 7);
  host.createAgent();
  host.rewrite("red", "10.0.0.1", "02:11:22:33:44:55");
  host.address(7, "10.0.0.1", "Ethernet1");
  host.stage1();
  EXPECT_THAT(host.journal(), IsEmpty());
  host.stage2();
  EXPECT_THAT(host.journal(), ElementsAre("write 1006 10.0.0.1 00:00:00:00:00:00",
                                          "write 1006 10.0.0.1 02:11:22:33:44:55"));
}

TEST_F(EndToEndTest, TheLastRewriteOfAVrfGoesAndComesBack) {
  host.bringUp();
  host.vrf("red", 7);
  host.port("Ethernet1", 100, 7);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  host.journal();
  host.rewriteDel("red", "10.0.0.1");
  // The row keeps its MAC: it is not reset.
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewrite(Pex::VrfId(7)), nullptr);
  host.address(7, "10.0.0.2", "Ethernet1");
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.2 00:00:00:00:00:00"));
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:02");
  host.rewrite("red", "10.0.0.2", "02:00:00:00:00:03");
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 02:00:00:00:00:02",
                                          "write 100 10.0.0.2 02:00:00:00:00:03"));
}

TEST_F(EndToEndTest, EverythingPresentBeforeStage2IsOneZeroMacARowAndOneUpdateAMac) {
  host.vrf("red", 7);
  host.vrf("blue", 8);
  host.port("Ethernet1", 100, 7);
  host.port("Ethernet2", 200, 8);
  host.route("blue", 8, 300);
  host.createAgent();
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  host.rewrite("blue", "10.0.0.3", "02:00:00:00:00:03");
  host.rewrite("blue", "10.0.0.9", "02:00:00:00:00:09");
  host.address(7, "10.0.0.1", "Ethernet1");
  host.address(7, "10.0.0.2", "Ethernet1");
  host.address(8, "10.0.0.3", "Ethernet2", true);
  host.stage1();
  host.stage2();
  auto journal = host.journal();
  ASSERT_EQ(journal.size(), 5u);
  std::sort(journal.begin(), journal.begin() + 3);
  std::sort(journal.begin() + 3, journal.end());
  EXPECT_THAT(
      journal,
      ElementsAre("write 100 10.0.0.1 00:00:00:00:00:00", "write 100 10.0.0.2 00:00:00:00:00:00",
                  "write 300 10.0.0.3 00:00:00:00:00:00", "write 100 10.0.0.1 02:00:00:00:00:01",
                  "write 300 10.0.0.3 02:00:00:00:00:03"));
}

TEST_F(EndToEndTest, AnInterfaceInTwoSourcesGoesWithEitherKey) {
  host.bringUp();
  host.vrf("red", 7);
  host.address(7, "10.0.0.1", "Ethernet1");
  auto const put = [](BfnL3::L3RoutingStatus& source, unsigned keyVlan, unsigned vlan) {
    auto const status = Kiv::makeActive<BfnL3::L3IntfRoutingStatus>(
        Pex::PortVlanPair(Ovra::IntfId("Ethernet1"), static_cast<Kiv::U16>(keyVlan)));
    status->vlanIdIs(static_cast<Kiv::U16>(vlan));
    source.l3IntfRoutingStatusIs(status);
  };
  put(*host.ports, 0, 100);
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 00:00:00:00:00:00"));
  put(*host.vlans, 0, 200);  // the last writer wins, but the row keeps the VLAN it was made with
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 00:00:00:00:00:00"));
  host.vlans->l3IntfRoutingStatusDel(Pex::PortVlanPair(Ovra::IntfId("Ethernet1"), 0));
  // The interface has no status now, though the ports still hold one; the second reference stays.
  EXPECT_THAT(host.journal(), IsEmpty());
  put(*host.ports, 5, 300);
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 00:00:00:00:00:00"));
  host.ports->l3IntfRoutingStatusDel(Pex::PortVlanPair(Ovra::IntfId("Ethernet1"), 0));
  host.ports->l3IntfRoutingStatusDel(Pex::PortVlanPair(Ovra::IntfId("Ethernet1"), 5));
  EXPECT_EQ(host.agent->intfIdToRoutingStatus()->l3IntfRoutingStatus(Ovra::IntfId("Ethernet1")),
            nullptr);
}

TEST_F(EndToEndTest, ARewriteOfAVrfThatComesBackUnderAnotherIdFollowsIt) {
  host.bringUp();
  host.vrf("red", 7);
  host.port("Ethernet1", 100, 7);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  host.l3Status->vrfDel(L3::VrfName("red"));
  host.vrf("red", 9);
  host.addressDel(7, "10.0.0.1");
  host.journal();
  host.address(9, "10.0.0.1", "Ethernet1");
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 02:00:00:00:00:01"));
}

TEST_F(EndToEndTest, TwoNamesOfOneVrfIdConfigureTheSameRows) {
  host.bringUp();
  host.vrf("red", 7);
  host.vrf("blue", 7);
  host.port("Ethernet1", 100, 7);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.journal();
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  host.rewrite("blue", "10.0.0.1", "02:00:00:00:00:02");
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 02:00:00:00:00:01",
                                          "write 100 10.0.0.1 02:00:00:00:00:02"));
  host.l3Status->vrfDel(L3::VrfName("red"));
  EXPECT_EQ(host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewrite(Pex::VrfId(7)), nullptr);
}

TEST_F(EndToEndTest, TheDefaultVrfWithIdZeroIsAVrfLikeAnyOther) {
  host.bringUp();
  host.vrf("default", 0);
  host.route("default", 0, 300);
  host.port("Ethernet1", 100, 0);
  host.rewrite("default", "10.0.0.1", "02:00:00:00:00:01");
  host.address(0, "10.0.0.1", "Ethernet1", true);
  EXPECT_THAT(host.journal(), ElementsAre("write 300 10.0.0.1 02:00:00:00:00:01"));
}

TEST_F(EndToEndTest, DestroyingTheAgentLeavesTheRows) {
  host.bringUp();
  host.vrf("red", 7);
  host.port("Ethernet1", 100, 7);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.journal();
  host.agent.reset();
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(host.rows().size(), 1u);
}

TEST_F(EndToEndTest, TheEnabledFlagIsForTheHostAndChangesNothing) {
  host.bringUp();
  host.vrf("red", 7);
  host.port("Ethernet1", 1006, 7);
  host.address(7, "10.0.0.1", "Ethernet1");
  auto const rows = host.rows();
  host.journal();
  TraceCapture const capture;
  for (bool const enabled : {true, false})
    host.l3Shared->bfnL3Input()->macRewriteEnabledIs(enabled);
  EXPECT_THAT(TraceCapture::texts(), IsEmpty());
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(host.rows(), rows);
}

}  // namespace
