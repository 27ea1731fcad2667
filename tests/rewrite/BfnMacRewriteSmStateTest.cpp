// SPDX-License-Identifier: Apache-2.0
#include "rewrite/BfnMacRewriteSm.h"
#include "rewrite/VrfIpCollection.h"
#include "tests/support/PluginTest.h"

// The machine's indexes, reactors and making.
namespace {

using BfnMacRewrite::BfnMacRewriteSm;
using BfnTest::ip;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class BfnMacRewriteSmStateTest : public BfnTest::PluginTest {
 protected:
  BfnMacRewriteSm& sm() { return *host.agent->bfnMacRewriteSm(); }
  Kiv::Ptr<BfnMacRewriteSm> make(bool status, bool config, bool routing, bool route) {
    auto const& mount = *host.mount;
    return BfnMacRewrite::bfnMacRewriteSmFactory(
        status ? mount.bfnMacRewriteAgentStatus() : nullptr,
        config ? mount.bfnMacRewriteAgentConfig() : nullptr,
        routing ? host.agent->intfIdToRoutingStatus() : nullptr,
        host.agent->overlaySrcMacRewriteManager(), host.l3Status,
        route ? host.routeStatus : nullptr);
  }
};

TEST_F(BfnMacRewriteSmStateTest, EverythingPresentIsWrittenOnceInTheOnePass) {
  host.vrf("red", 7);
  host.route("red", 7, 300);
  host.port("Ethernet1", 100, 7);
  host.createAgent();
  host.mount->bfnMacRewriteAgentConfig()
      ->overlaySrcMacRewriteIs(Pex::VrfId(7))
      ->ipAndMacIs({ip("10.0.0.1"), BfnTest::mac("02:00:00:00:00:01")});
  host.address(7, "10.0.0.1", "Ethernet1");
  host.address(7, "10.0.0.2", "Ethernet1", true);
  host.address(7, "10.0.0.3", "Ethernet9");
  host.stage1();
  host.stage2();
  EXPECT_THAT(host.journal(), UnorderedElementsAre("write 100 10.0.0.1 02:00:00:00:00:01",
                                                   "write 300 10.0.0.2 00:00:00:00:00:00"));
  for (auto const& record : host.agent->overlaySrcMacRewriteManager()->matchSpecAndRefCount()) {
    EXPECT_EQ(record->refCount(), 1);
  }
}

TEST_F(BfnMacRewriteSmStateTest, ConstructionTracesConfigThenRoutesThenStatusThenThePass) {
  host.vrf("red", 7);
  host.route("red", 7, 300);
  host.createAgent();
  host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewriteIs(Pex::VrfId(7));
  host.mount->bfnMacRewriteAgentStatus()->vrfStatusIs(Pex::VrfId(7));
  host.stage1();
  host.stage2();
  traces();
  auto const second = make(true, true, true, true);
  EXPECT_THAT(
      traces(),
      ElementsAre(
          "BfnMacRewriteSm::KivAgentVrfConfig::handleInitialized: vrfId: 7",
          "BfnMacRewriteSm::KivAgentVrfConfig::handleIpAndMac: vrfId: 7",
          "BfnMacRewriteSm::KivHwRouteVrfStatus::handleInitialized: vrfName: redvrfId: 7",
          "BfnMacRewriteSm::KivHwRouteVrfStatus::handleFwdVlanId: vrfName: redvrfId: 7",
          "BfnMacRewriteSm::KivMacRewriteVrfStatus::handleInitialized: vrfId: 7",
          "BfnMacRewriteSm::KivMacRewriteVrfStatus::handleIpAndIntfId: vrfId: 7",
          "BfnMacRewriteSm::handleInitialized: ", "BfnMacRewriteSm::handleL3IntfRoutingStatus: "));
}

TEST_F(BfnMacRewriteSmStateTest, NullInputsContributeNothingAndDoNotCrash) {
  host.bringUp();
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.address(7, "10.0.0.2", "Ethernet1", true);
  host.journal();
  for (unsigned mask = 0; mask < 16; ++mask) {
    SCOPED_TRACE(mask);
    auto const machine = make(mask & 1, mask & 2, mask & 4, mask & 8);
    EXPECT_TRUE(machine->initialized());
    EXPECT_EQ(machine->macRewriteStatus() != nullptr, (mask & 1) != 0);
    EXPECT_EQ(machine->overlaySrcMacRewriteAgentConfig() != nullptr, (mask & 2) != 0);
    EXPECT_EQ(machine->intfIdToRoutingStatus() != nullptr, (mask & 4) != 0);
    EXPECT_EQ(machine->routingHwRouteStatus() != nullptr, (mask & 8) != 0);
    EXPECT_TRUE(machine->hasNotificationActive());
    bool const writes = (mask & 5) == 5;
    EXPECT_EQ(host.journal().size(), writes ? 1u : 0u);
  }
}

TEST_F(BfnMacRewriteSmStateTest, WithoutRouteStatusSelfIpsStayUnindexed) {
  host.bringUp();
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.2", "Ethernet1", true);
  auto const machine = make(true, true, true, false);
  EXPECT_FALSE(machine->localVrfIpToIntf({Pex::VrfId(7), ip("10.0.0.2")}));
}

TEST_F(BfnMacRewriteSmStateTest, RemovingAWholeRecordRemovesItsReactorOnly) {
  host.bringUp();
  host.vrf("red", 7);
  host.port("Ethernet1", 100);
  host.route("red", 7, 300);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewriteIs(Pex::VrfId(7));
  EXPECT_NE(sm().macRewriteVrfStatus(Pex::VrfId(7)), nullptr);
  EXPECT_NE(sm().agentVrfConfig(Pex::VrfId(7)), nullptr);
  EXPECT_NE(sm().hwRouteVrfStatus(L3::VrfName("red")), nullptr);
  host.journal();
  host.mount->bfnMacRewriteAgentStatus()->vrfStatusDel(Pex::VrfId(7));
  host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewriteDel(Pex::VrfId(7));
  host.routeStatus->vrfStatusDel(L3::VrfName("red"));
  EXPECT_EQ(sm().macRewriteVrfStatus(Pex::VrfId(7)), nullptr);
  EXPECT_EQ(sm().agentVrfConfig(Pex::VrfId(7)), nullptr);
  EXPECT_EQ(sm().hwRouteVrfStatus(L3::VrfName("red")), nullptr);
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 00:00:00:00:00:00"));
  EXPECT_EQ(sm().fwdVlanIdPerVrf(7), 300u);
  EXPECT_TRUE(sm().localVrfIpToIntf({Pex::VrfId(7), ip("10.0.0.1")}));
}

TEST_F(BfnMacRewriteSmStateTest, TheSameElementAgainMakesNoSecondReactorAndRunsNoHandler) {
  host.bringUp();
  host.address(7, "10.0.0.1", "Ethernet1");
  auto const status = host.mount->bfnMacRewriteAgentStatus()->vrfStatusIs(Pex::VrfId(7));
  auto* const reactor = sm().macRewriteVrfStatus(Pex::VrfId(7));
  traces();
  sm().macRewriteVrfStatusIs(status);
  EXPECT_EQ(sm().macRewriteVrfStatus(Pex::VrfId(7)), reactor);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(BfnMacRewriteSmStateTest, AnotherObjectUnderTheKeyRebindsAndIsHandledWhole) {
  host.bringUp();
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  auto* const reactor = sm().macRewriteVrfStatus(Pex::VrfId(7));
  auto const other = Kiv::makeActive<BfnMacRewrite::Agent::VrfStatus>(Pex::VrfId(7));
  other->ipAndIntfIdIs({ip("10.0.0.5"), Ovra::IntfId("Ethernet1"), false});
  host.journal();
  sm().macRewriteVrfStatusIs(other);
  EXPECT_EQ(sm().macRewriteVrfStatus(Pex::VrfId(7)), reactor);
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.5 00:00:00:00:00:00"));
  host.address(7, "10.0.0.6", "Ethernet1");
  EXPECT_THAT(host.journal(), IsEmpty()) << "the old object is not watched any more";
}

TEST_F(BfnMacRewriteSmStateTest, NotificationOffSilencesEveryReactor) {
  host.bringUp();
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.route("red", 7, 300);
  host.journal();
  auto const config = host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewriteIs(Pex::VrfId(7));
  sm().hasNotificationActiveIs(false);
  host.address(7, "10.0.0.2", "Ethernet1");
  config->ipAndMacIs({ip("10.0.0.1"), BfnTest::mac("02:00:00:00:00:01")});
  host.portDel("Ethernet1");
  host.route("red", 7, 301);
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(sm().fwdVlanIdPerVrf(7), 300u);
}

TEST_F(BfnMacRewriteSmStateTest, ARenamedVrfTouchesNoRow) {
  host.bringUp();
  host.vrf("red", 7);
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.journal();
  host.l3Status->vrfNameIs(Pex::VrfId(7), L3::VrfName("blue"));
  EXPECT_THAT(host.journal(), IsEmpty());
}

TEST_F(BfnMacRewriteSmStateTest, DestructionLeavesTheRowsAndAHeldReactorSilent) {
  host.bringUp();
  host.port("Ethernet1", 100);
  host.route("red", 7, 300);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.address(7, "10.0.0.2", "Ethernet1", true);
  Kiv::Ptr<BfnMacRewriteSm::KivMacRewriteVrfStatus> const reactor(
      sm().macRewriteVrfStatus(Pex::VrfId(7)));
  host.journal();
  host.agent->bfnMacRewriteSmDel();
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_TRUE(reactor->kivMarkedForDeletion());
  host.addressDel(7, "10.0.0.1");
  reactor->handleFwdVlanIdChange(300, 301);
  EXPECT_THAT(host.journal(), IsEmpty());
}

TEST_F(BfnMacRewriteSmStateTest, AVlanOutOfRangeInThePassLeavesNothingRegistered) {
  host.bringUp();
  host.port("Ethernet1", 0);
  EXPECT_THROW(host.address(7, "10.0.0.1", "Ethernet1"), Kiv::RangeException);
  size_t const watchers = host.mount->bfnMacRewriteAgentStatus()->notifieeList().size();
  EXPECT_THROW(make(true, true, true, true), Kiv::RangeException);
  EXPECT_EQ(host.mount->bfnMacRewriteAgentStatus()->notifieeList().size(), watchers);
  host.port("Ethernet1", 100);
  EXPECT_TRUE(make(true, true, true, true)->initialized());
}

TEST_F(BfnMacRewriteSmStateTest, ADroppedReactorLeavesIndexesRowsAndVlansAndHearsNoMore) {
  host.bringUp();
  host.vrf("red", 7);
  host.port("Ethernet1", 100);
  host.route("red", 7, 300);
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  host.address(7, "10.0.0.1", "Ethernet1");
  for (bool const all : {false, true}) {
    SCOPED_TRACE(all);
    host.address(8, "10.0.0.8", "Ethernet1");
    host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewriteIs(Pex::VrfId(8));
    host.route("blue", 8, 400);
    if (all) {
      sm().macRewriteVrfStatusDelAll();
      sm().agentVrfConfigDelAll();
      sm().hwRouteVrfStatusDelAll();
      EXPECT_EQ(sm().macRewriteVrfStatus(Pex::VrfId(8)), nullptr);
      EXPECT_EQ(sm().agentVrfConfig(Pex::VrfId(8)), nullptr);
      EXPECT_EQ(sm().hwRouteVrfStatus(L3::VrfName("blue")), nullptr);
    } else {
      sm().macRewriteVrfStatusDel(Pex::VrfId(7));
      sm().agentVrfConfigDel(Pex::VrfId(7));
      sm().hwRouteVrfStatusDel(L3::VrfName("red"));
      EXPECT_NE(sm().macRewriteVrfStatus(Pex::VrfId(8)), nullptr);
      EXPECT_NE(sm().agentVrfConfig(Pex::VrfId(8)), nullptr);
      EXPECT_NE(sm().hwRouteVrfStatus(L3::VrfName("blue")), nullptr);
    }
    EXPECT_EQ(sm().macRewriteVrfStatus(Pex::VrfId(7)), nullptr);
    EXPECT_EQ(sm().agentVrfConfig(Pex::VrfId(7)), nullptr);
    EXPECT_EQ(sm().hwRouteVrfStatus(L3::VrfName("red")), nullptr);
    host.journal();
    traces();
    host.address(7, "10.0.0.2", "Ethernet1");
    host.addressDel(7, "10.0.0.1");
    host.address(7, "10.0.0.1", "Ethernet1");
    host.route("red", 7, all ? 301 : 302);
    host.mount->bfnMacRewriteAgentConfig()
        ->overlaySrcMacRewriteIs(Pex::VrfId(7))
        ->ipAndMacIs(
            {ip("10.0.0.1"), BfnTest::mac(all ? "02:00:00:00:00:02" : "02:00:00:00:00:03")});
    EXPECT_THAT(host.journal(), IsEmpty());
    EXPECT_THAT(traces(), IsEmpty());
    EXPECT_EQ(sm().fwdVlanIdPerVrf(7), 300u);
    EXPECT_TRUE(sm().localVrfIpToIntf({Pex::VrfId(7), ip("10.0.0.1")}));
    EXPECT_THAT(host.rows(), ::testing::Contains("100 10.0.0.1 02:00:00:00:00:01"));
  }
}

TEST_F(BfnMacRewriteSmStateTest, ADroppedSingletonReactorMeansThatItsInputIsNotWatched) {
  host.bringUp();
  host.port("Ethernet1", 100);
  sm().macRewriteStatusDel();
  sm().overlaySrcMacRewriteAgentConfigDel();
  sm().intfIdToRoutingStatusDel();
  sm().routingHwRouteStatusDel();
  EXPECT_EQ(sm().macRewriteStatus(), nullptr);
  EXPECT_EQ(sm().overlaySrcMacRewriteAgentConfig(), nullptr);
  EXPECT_EQ(sm().intfIdToRoutingStatus(), nullptr);
  EXPECT_EQ(sm().routingHwRouteStatus(), nullptr);
  host.journal();
  traces();
  host.address(7, "10.0.0.1", "Ethernet1");
  host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewriteIs(Pex::VrfId(7));
  host.agent->intfIdToRoutingStatus()->l3IntfRoutingStatusDelAll();
  host.route("red", 7, 300);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(host.journal(), IsEmpty());
}

TEST_F(BfnMacRewriteSmStateTest, DestructionEmptiesThePairsOfTheInterfacesAndSilencesEveryReactor) {
  host.bringUp();
  host.vrf("red", 7);
  host.port("Ethernet1", 100);
  host.route("red", 7, 300);
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  host.address(7, "10.0.0.1", "Ethernet1");
  Kiv::Ptr<Kiv::NotifieeConst> const reactors[] = {
      Kiv::Ptr<Kiv::NotifieeConst>(sm().macRewriteVrfStatus(Pex::VrfId(7))),
      Kiv::Ptr<Kiv::NotifieeConst>(sm().agentVrfConfig(Pex::VrfId(7))),
      Kiv::Ptr<Kiv::NotifieeConst>(sm().hwRouteVrfStatus(L3::VrfName("red")))};
  auto const pairs = sm().localIntfToVrfIp(Ovra::IntfId("Ethernet1"));
  host.agent->bfnMacRewriteSmDel();
  EXPECT_EQ(pairs->kivRefCount(), 1u);
  for (auto const& reactor : reactors) {
    EXPECT_TRUE(reactor->kivMarkedForDeletion());
    EXPECT_EQ(reactor->actsm(), nullptr);
  }
}

TEST_F(BfnMacRewriteSmStateTest, AnotherObjectUnderTheKeyIsHandledWholeByTheOtherReactorsToo) {
  host.bringUp();
  host.port("Ethernet1", 100);
  host.route("red", 7, 300);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.address(7, "10.0.0.2", "Ethernet1", true);
  host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewriteIs(Pex::VrfId(7));
  auto* const rewrites = sm().agentVrfConfig(Pex::VrfId(7));
  auto* const route = sm().hwRouteVrfStatus(L3::VrfName("red"));
  auto const other = Kiv::makeActive<BfnMacRewrite::Agent::OverlaySrcMacRewrite>(Pex::VrfId(7));
  other->ipAndMacIs({ip("10.0.0.1"), BfnTest::mac("02:00:00:00:00:01")});
  auto const otherRoute = Kiv::makeActive<Routing::Hardware::VrfStatus>(L3::VrfName("red"));
  otherRoute->vrfIdIs(7);
  otherRoute->fwdVlanIdIs(301);
  host.journal();
  traces();
  sm().agentVrfConfigIs(other);
  EXPECT_EQ(sm().agentVrfConfig(Pex::VrfId(7)), rewrites);
  // The MAC itself is read from the configuration that the machine was given.
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 00:00:00:00:00:00"));
  host.routeStatus->vrfStatusIs(otherRoute);
  EXPECT_EQ(sm().hwRouteVrfStatus(L3::VrfName("red")), route);
  EXPECT_THAT(host.journal(),
              ElementsAre("erase 300 10.0.0.2", "write 301 10.0.0.2 00:00:00:00:00:00"));
}

TEST_F(BfnMacRewriteSmStateTest, IndexOperations) {
  host.bringUp();
  Ovra::IntfId const intf("Ethernet1");
  Pex::VrfAndIpAddr const pair(Pex::VrfId(7), ip("10.0.0.1"));
  EXPECT_EQ(sm().localIntfToVrfIp(intf), nullptr);
  auto const pairs = sm().localIntfToVrfIpIs(intf);
  EXPECT_EQ(sm().localIntfToVrfIpIs(intf), pairs);
  EXPECT_EQ(pairs->intfId(), intf);
  pairs->vrfAndIpAddrIs(pair);
  pairs->vrfAndIpAddrIs(pair);
  EXPECT_EQ(pairs->vrfAndIpAddr().size(), 1u);
  pairs->vrfAndIpAddrDel(pair);
  pairs->vrfAndIpAddrDel(pair);
  EXPECT_TRUE(pairs->vrfAndIpAddr().empty());
  pairs->vrfAndIpAddrIs(pair);
  pairs->vrfAndIpAddrDelAll();
  EXPECT_TRUE(pairs->vrfAndIpAddr().empty());
  sm().localIntfToVrfIpIs(Ovra::IntfId("Ethernet2"));
  sm().localIntfToVrfIpDel(intf);
  EXPECT_EQ(sm().localIntfToVrfIp(intf), nullptr);
  EXPECT_NE(sm().localIntfToVrfIp(Ovra::IntfId("Ethernet2")), nullptr);
  sm().localIntfToVrfIpDelAll();
  EXPECT_EQ(sm().localIntfToVrfIp(Ovra::IntfId("Ethernet2")), nullptr);
  sm().localVrfIpToIntfIs(pair, intf);
  sm().localVrfIpToIntfIs(pair, Ovra::IntfId("Ethernet2"));
  EXPECT_EQ(sm().localVrfIpToIntf(pair), Ovra::IntfId("Ethernet2"));
  Pex::VrfAndIpAddr const otherPair(Pex::VrfId(8), ip("10.0.0.1"));
  sm().localVrfIpToIntfIs(otherPair, intf);
  sm().localVrfIpToIntfDel(pair);
  EXPECT_FALSE(sm().localVrfIpToIntf(pair));
  EXPECT_EQ(sm().localVrfIpToIntf(otherPair), intf);
  sm().localVrfIpToIntfDelAll();
  EXPECT_FALSE(sm().localVrfIpToIntf(otherPair));
  sm().fwdVlanIdPerVrfIs(3, 0);
  EXPECT_TRUE(sm().fwdVlanIdPerVrfHas(3));
  sm().fwdVlanIdPerVrfIs(3, 30);
  sm().fwdVlanIdPerVrfIs(4, 40);
  EXPECT_EQ(sm().fwdVlanIdPerVrf(3), 30u);
  sm().fwdVlanIdPerVrfDel(3);
  EXPECT_FALSE(sm().fwdVlanIdPerVrfHas(3));
  EXPECT_EQ(sm().fwdVlanIdPerVrf(4), 40u);
  sm().fwdVlanIdPerVrfDelAll();
  EXPECT_FALSE(sm().fwdVlanIdPerVrfHas(4));
}

TEST_F(BfnMacRewriteSmStateTest, BeforeInitialisationNoVrfIsTakenUpOrDropped) {
  host.bringUp();
  host.route("red", 7, 300);
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  host.vrf("red", 7);
  host.address(7, "10.0.0.1", "Ethernet1");
  sm().initializedIs(false);
  host.route("blue", 8, 300);
  host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewriteIs(Pex::VrfId(8));
  host.mount->bfnMacRewriteAgentStatus()->vrfStatusIs(Pex::VrfId(8));
  EXPECT_EQ(sm().hwRouteVrfStatus(L3::VrfName("blue")), nullptr);
  EXPECT_EQ(sm().agentVrfConfig(Pex::VrfId(8)), nullptr);
  EXPECT_EQ(sm().macRewriteVrfStatus(Pex::VrfId(8)), nullptr);
  host.routeStatus->vrfStatusDel(L3::VrfName("red"));
  host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewriteDel(Pex::VrfId(7));
  host.mount->bfnMacRewriteAgentStatus()->vrfStatusDel(Pex::VrfId(7));
  EXPECT_NE(sm().hwRouteVrfStatus(L3::VrfName("red")), nullptr);
  EXPECT_NE(sm().agentVrfConfig(Pex::VrfId(7)), nullptr);
  EXPECT_NE(sm().macRewriteVrfStatus(Pex::VrfId(7)), nullptr);
}

}  // namespace
