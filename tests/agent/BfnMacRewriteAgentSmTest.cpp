// SPDX-License-Identifier: Apache-2.0
#include "framework/generic/Type.h"
#include "framework/trace/MsgDesc.h"
#include "tests/support/PluginTest.h"
#include "tests/support/Watcher.h"

// What the entry object is made of, and how it goes.
namespace {

using BfnMacRewrite::AgentSm;
using BfnTest::TraceCapture;
using BfnTest::Watcher;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AgentSmTest : public BfnTest::PluginTest {
 protected:
  void SetUp() override { TraceCapture::clear(); }
  AgentSm& agent() { return *host.agent; }
  // The machine as its holders see it: its reactors are its own affair.
  Kiv::PtrInterface& everything() { return *host.agent; }
  void lastRow() {
    host.vrf("red", 7);
    host.port("Ethernet1", 100, 7);
    host.address(7, "10.0.0.1", "Ethernet1");
  }
};

TEST_F(AgentSmTest, TheFactoryKeepsItsArgumentsAndStartsNothing) {
  host.l3Shared->bfnL3Output()->initMacRewriteTablesIs(true);
  host.l3Shared->bfnL3Output()->startMacRewriteSmIs(true);
  host.createAgent();
  EXPECT_EQ(agent().systemStatus(), host.systemStatus);
  EXPECT_EQ(agent().profileData(), host.profileData);
  EXPECT_EQ(agent().agentMount(), host.mount);
  EXPECT_EQ(agent().bfnMacRewriteL3Shared(), host.l3Shared);
  EXPECT_EQ(agent().routingHwRouteStatus(), host.routeStatus);
  EXPECT_EQ(agent().bfnL3Output(), host.l3Shared->bfnL3Output());
  EXPECT_TRUE(agent().initialized());
  EXPECT_TRUE(agent().hasNotificationActive());
  EXPECT_FALSE(agent().intfIdToRoutingStatus());
  EXPECT_FALSE(agent().overlaySrcMacRewriteManager());
  EXPECT_FALSE(agent().overlaySrcMacRewriteCliConfigSm());
  EXPECT_FALSE(agent().bfnMacRewriteSm());
  EXPECT_FALSE(agent().bfnMacRewriteIntfRoutingStatusSm());
  EXPECT_FALSE(agent().chipCapabilities().overlaySrcMacRewriteSupported);
}

TEST_F(AgentSmTest, ANullSystemStatusIsNotWatchedAndReadsAsAnUnknownProfile) {
  host.systemStatus = nullptr;
  host.bringUp();
  EXPECT_FALSE(agent().systemStatus());
  EXPECT_TRUE(agent().overlaySrcMacRewriteManager());
  EXPECT_FALSE(agent().bfnMacRewriteSm());
  EXPECT_FALSE(host.capability->overlaySrcMacRewriteSupported());
}

TEST_F(AgentSmTest, ChangesOfTheSystemStatusAreNotWatched) {
  host.bringUp();
  auto const manager = agent().overlaySrcMacRewriteManager();
  traces();
  host.systemStatus->profileInfoDel(BfnTest::PluginHost::kProfile);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_EQ(agent().overlaySrcMacRewriteManager(), manager);
  EXPECT_TRUE(agent().chipCapabilities().overlaySrcMacRewriteSupported);
}

TEST_F(AgentSmTest, ChangesOfTheSharedObjectRunNoStage) {
  host.bringUp();
  auto const sm = agent().bfnMacRewriteSm();
  traces();
  host.l3Shared->l3StatusIs(Kiv::makeActive<Pex::L3Status>());
  host.l3Shared->l3PortAndLagRoutingStatusIs(nullptr);
  host.l3Shared->l3SubIntfRoutingStatusIs(nullptr);
  host.l3Shared->vlanIntfRoutingStatusIs(nullptr);
  host.l3Shared->bfnL3InputDel();
  host.l3Shared->bfnL3InputIs();
  host.l3Shared->initializedIs(false);
  host.l3Shared->bfnL3Output()->profileNameIs("other");
  host.l3Shared->bfnL3Output()->profileEntryIs(nullptr);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_EQ(agent().bfnMacRewriteSm(), sm);
  // The output that was handed over at construction stays the one that is watched.
  auto const watched = agent().bfnL3Output();
  host.l3Shared->bfnL3OutputDel();
  EXPECT_EQ(agent().bfnL3Output(), watched);
}

TEST_F(AgentSmTest, AnotherOutputRunsBothStagesInOrder) {
  host.createAgent();
  auto const other = Kiv::makeActive<BfnMacRewrite::BfnL3Output>();
  other->profileNameIs(BfnTest::PluginHost::kProfile);
  other->profileEntryIs(host.profileEntry);
  agent().bfnL3OutputIs(other);
  EXPECT_EQ(agent().bfnL3Output(), other);
  EXPECT_TRUE(agent().overlaySrcMacRewriteManager());
  EXPECT_TRUE(agent().bfnMacRewriteSm());
  EXPECT_EQ(agent().bfnMacRewriteSm()->overlaySrcMacRewriteManager(),
            agent().overlaySrcMacRewriteManager());
  EXPECT_TRUE(host.capability->overlaySrcMacRewriteSupported());
  agent().overlaySrcMacRewriteManagerDel();
  agent().bfnL3OutputIs(other);
  EXPECT_FALSE(agent().overlaySrcMacRewriteManager());
  // From now on the other one is watched, and the first is not.
  host.l3Shared->bfnL3Output()->initMacRewriteTablesIs(true);
  EXPECT_FALSE(agent().overlaySrcMacRewriteManager());
  other->initMacRewriteTablesIs(true);
  EXPECT_TRUE(agent().overlaySrcMacRewriteManager());
}

TEST_F(AgentSmTest, BeforeInitialisationTheStagesAreSilent) {
  host.createAgent();
  agent().initializedIs(false);
  agent().handleInitMacRewriteTables();
  agent().chipCapabilitiesIs({true, 1000});
  host.capability->overlaySrcMacRewriteSupportedIs(false);
  agent().handleStartMacRewriteSm();
  EXPECT_FALSE(agent().intfIdToRoutingStatus());
  EXPECT_FALSE(agent().bfnMacRewriteIntfRoutingStatusSm());
  EXPECT_FALSE(host.capability->overlaySrcMacRewriteSupported());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(AgentSmTest, NotificationIsPassedToTheMachinesAndTheirReactors) {
  host.bringUp();
  auto const sm = agent().bfnMacRewriteSm();
  auto const cli = agent().overlaySrcMacRewriteCliConfigSm();
  auto const merge = agent().bfnMacRewriteIntfRoutingStatusSm();
  everything().hasNotificationActiveIs(false);
  EXPECT_FALSE(sm->hasNotificationActive());
  EXPECT_FALSE(cli->hasNotificationActive());
  EXPECT_FALSE(merge->hasNotificationActive());
  EXPECT_TRUE(agent().overlaySrcMacRewriteManager()->hasNotificationActive());
  EXPECT_TRUE(agent().intfIdToRoutingStatus()->hasNotificationActive());
  traces();
  host.stage1();
  host.stage2();
  lastRow();
  EXPECT_THAT(traces(), IsEmpty());
  everything().hasNotificationActiveIs(true);
  EXPECT_TRUE(sm->hasNotificationActive());
  host.stage2();
  EXPECT_EQ(traces(), std::vector<std::string>{"AgentSm::handleStartMacRewriteSm: "});
}

TEST_F(AgentSmTest, NotificationIsPassedToTheSystemStatusThenTheOutput) {
  host.createAgent();
  std::vector<Kiv::PtrInterface const*> watched;
  agent().kivEachReactor([&](auto const& reactor) { watched.push_back(reactor.notifierRaw()); });
  EXPECT_THAT(watched, ElementsAre(host.systemStatus.get(), host.l3Shared->bfnL3Output().get()));
}

TEST_F(AgentSmTest, NotificationIsPassedToTheTranslatorThenTheCoreMachineThenTheMerge) {
  host.bringUp();
  std::vector<Kiv::PtrInterface const*> children;
  agent().kivEachChild([&](auto const& child) { children.push_back(child.get()); });
  EXPECT_THAT(children, ElementsAre(agent().overlaySrcMacRewriteCliConfigSm().get(),
                                    agent().bfnMacRewriteSm().get(),
                                    agent().bfnMacRewriteIntfRoutingStatusSm().get()));
}

// Each creator called with what its child holds, then with one argument after the other replaced.

TEST_F(AgentSmTest, AManagerIsKeptWhileEachOfItsInputsIsTheVeryObject) {
  host.bringUp();
  auto const entry = Kiv::makeActive<BfnAgentLib::BfnProfileDataEntry>("other");
  auto const status = Kiv::makeActive<BfnSystem::SystemStatus>();
  auto const collection = Kiv::makeActive<BfnMacRewrite::IntfIdToRoutingStatus>();
  auto const l3Status = Kiv::makeActive<Pex::L3Status>();
  for (unsigned replaced = 0; replaced < 5; ++replaced) {
    SCOPED_TRACE(replaced);
    auto const old = agent().overlaySrcMacRewriteManager();
    auto const made = agent().overlaySrcMacRewriteManagerIs(
        replaced >= 1 ? entry : host.profileEntry, replaced >= 2 ? status : host.systemStatus,
        replaced >= 3 ? collection : agent().intfIdToRoutingStatus(),
        replaced >= 4 ? l3Status : host.l3Status);
    EXPECT_EQ(made, agent().overlaySrcMacRewriteManager());
    EXPECT_EQ(made == old, replaced == 0);
    EXPECT_TRUE(made->hasNotificationActive());
  }
}

TEST_F(AgentSmTest, ATranslatorIsKeptWhileEachOfItsInputsIsTheVeryObject) {
  host.bringUp();
  auto const cliConfig = Kiv::makeActive<BfnMacRewrite::Input::Config>();
  auto const agentConfig = Kiv::makeActive<BfnMacRewrite::Agent::Config>();
  auto const l3Status = Kiv::makeActive<Pex::L3Status>();
  for (unsigned replaced = 0; replaced < 4; ++replaced) {
    SCOPED_TRACE(replaced);
    auto const old = agent().overlaySrcMacRewriteCliConfigSm();
    auto const made = agent().overlaySrcMacRewriteCliConfigSmIs(
        replaced >= 1 ? cliConfig : host.cliConfig,
        replaced >= 2 ? agentConfig : host.mount->bfnMacRewriteAgentConfig(),
        replaced >= 3 ? l3Status : host.l3Status);
    EXPECT_EQ(made, agent().overlaySrcMacRewriteCliConfigSm());
    EXPECT_EQ(made == old, replaced == 0);
    EXPECT_TRUE(made->hasNotificationActive());
    EXPECT_EQ(old->hasNotificationActive(), replaced == 0);
  }
}

TEST_F(AgentSmTest, ACoreMachineIsKeptWhileEachOfItsInputsIsTheVeryObject) {
  host.bringUp();
  auto const status = Kiv::makeActive<BfnMacRewrite::Agent::Status>();
  auto const config = Kiv::makeActive<BfnMacRewrite::Agent::Config>();
  auto const collection = Kiv::makeActive<BfnMacRewrite::IntfIdToRoutingStatus>();
  auto const manager = BfnMacRewrite::overlaySrcMacRewriteManagerFactory(
      host.profileEntry, host.systemStatus, collection, host.l3Status);
  auto const l3Status = Kiv::makeActive<Pex::L3Status>();
  auto const route = Kiv::makeActive<Routing::Hardware::RouteStatus>();
  for (unsigned replaced = 0; replaced < 7; ++replaced) {
    SCOPED_TRACE(replaced);
    auto const old = agent().bfnMacRewriteSm();
    auto const made = agent().bfnMacRewriteSmIs(
        replaced >= 1 ? status : host.mount->bfnMacRewriteAgentStatus(),
        replaced >= 2 ? config : host.mount->bfnMacRewriteAgentConfig(),
        replaced >= 3 ? collection : agent().intfIdToRoutingStatus(),
        replaced >= 4 ? manager : agent().overlaySrcMacRewriteManager(),
        replaced >= 5 ? l3Status : host.l3Status, replaced >= 6 ? route : host.routeStatus);
    EXPECT_EQ(made, agent().bfnMacRewriteSm());
    EXPECT_EQ(made == old, replaced == 0);
    EXPECT_TRUE(made->hasNotificationActive());
    EXPECT_EQ(old->hasNotificationActive(), replaced == 0);
  }
}

TEST_F(AgentSmTest, AMergeIsKeptWhileEachOfItsInputsIsTheVeryObject) {
  host.bringUp();
  auto const other = Kiv::makeActive<BfnL3::L3RoutingStatus>();
  auto const collection = Kiv::makeActive<BfnMacRewrite::IntfIdToRoutingStatus>();
  for (unsigned replaced = 0; replaced < 5; ++replaced) {
    SCOPED_TRACE(replaced);
    auto const old = agent().bfnMacRewriteIntfRoutingStatusSm();
    auto const made = agent().bfnMacRewriteIntfRoutingStatusSmIs(
        replaced >= 1 ? other : host.ports, replaced >= 2 ? other : host.vlans,
        replaced >= 3 ? other : host.subIntfs,
        replaced >= 4 ? collection : agent().intfIdToRoutingStatus());
    EXPECT_EQ(made, agent().bfnMacRewriteIntfRoutingStatusSm());
    EXPECT_EQ(made == old, replaced == 0);
    EXPECT_TRUE(made->hasNotificationActive());
    EXPECT_EQ(old->hasNotificationActive(), replaced == 0);
  }
}

TEST_F(AgentSmTest, TheMachinesAreSwitchedOffBeforeTheyAreReleased) {
  host.bringUp();
  auto const sm = agent().bfnMacRewriteSm();
  auto const cli = agent().overlaySrcMacRewriteCliConfigSm();
  auto const merge = agent().bfnMacRewriteIntfRoutingStatusSm();
  agent().overlaySrcMacRewriteCliConfigSmDel();
  agent().bfnMacRewriteSmDel();
  agent().bfnMacRewriteIntfRoutingStatusSmDel();
  EXPECT_FALSE(agent().bfnMacRewriteSm());
  EXPECT_FALSE(agent().overlaySrcMacRewriteCliConfigSm());
  EXPECT_FALSE(agent().bfnMacRewriteIntfRoutingStatusSm());
  EXPECT_FALSE(sm->hasNotificationActive());
  EXPECT_FALSE(cli->hasNotificationActive());
  EXPECT_FALSE(merge->hasNotificationActive());
  traces();
  lastRow();
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(AgentSmTest, TheManagerAndTheCollectionAreReleasedAsTheyAre) {
  host.bringUp();
  auto const manager = agent().overlaySrcMacRewriteManager();
  auto const collection = agent().intfIdToRoutingStatus();
  agent().overlaySrcMacRewriteManagerDel();
  agent().intfIdToRoutingStatusDel();
  EXPECT_FALSE(agent().overlaySrcMacRewriteManager());
  EXPECT_FALSE(agent().intfIdToRoutingStatus());
  EXPECT_TRUE(manager->hasNotificationActive());
  EXPECT_TRUE(collection->hasNotificationActive());
  agent().bfnMacRewriteSmDel();
  agent().bfnMacRewriteSmDel();  // nothing there: nothing
}

TEST_F(AgentSmTest, AfterDestructionNothingReacts) {
  host.bringUp();
  lastRow();
  auto const sm = agent().bfnMacRewriteSm();
  auto const cli = agent().overlaySrcMacRewriteCliConfigSm();
  auto const merge = agent().bfnMacRewriteIntfRoutingStatusSm();
  auto const collection = agent().intfIdToRoutingStatus();
  host.journal();
  host.agent.reset();
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 00:00:00:00:00:00"));
  traces();
  host.address(7, "10.0.0.2", "Ethernet1");
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  host.portDel("Ethernet1");
  host.route("red", 7, 300);
  collection->l3IntfRoutingStatusDel(Ovra::IntfId("Ethernet1"));
  auto const output = host.l3Shared->bfnL3Output();
  output->initMacRewriteTablesIs(!output->initMacRewriteTables());
  output->startMacRewriteSmIs(!output->startMacRewriteSm());
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(host.journal(), IsEmpty());
}

// The manager is destroyed, and so leaves the table list, when its last holder releases it.
TEST_F(AgentSmTest, DestructionTakesTheCollectionBeforeTheManager) {
  host.createAgent();
  host.stage1();
  auto const collection = agent().intfIdToRoutingStatus();
  Kiv::U32 count = 0;
  auto const watcher = Kiv::makeActive<Watcher>(host.profileEntry->tableList());
  watcher->then = [&] { count = collection->kivRefCount(); };
  host.agent.reset();
  EXPECT_EQ(count, 1u);  // this test's own
}

TEST_F(AgentSmTest, DestructionTakesTheTranslatorThenTheCoreMachineThenTheMerge) {
  host.bringUp();
  auto const cli = agent().overlaySrcMacRewriteCliConfigSm();
  auto const merge = agent().bfnMacRewriteIntfRoutingStatusSm();
  int coreMachineGone = 0;
  auto const watcher = Kiv::makeActive<Watcher>(host.profileEntry->tableList());
  watcher->then = [&] {
    ++coreMachineGone;  // it held the manager last
    EXPECT_EQ(cli->kivRefCount(), 1u);
    EXPECT_FALSE(cli->hasNotificationActive());
    EXPECT_EQ(merge->kivRefCount(), 2u);
    EXPECT_TRUE(merge->hasNotificationActive());
  };
  host.agent.reset();
  EXPECT_EQ(coreMachineGone, 1);
  EXPECT_EQ(merge->kivRefCount(), 1u);
  EXPECT_FALSE(merge->hasNotificationActive());
}

TEST_F(AgentSmTest, AFlagThatChangesWhileTheAgentGoesRunsNoStage) {
  host.createAgent();
  host.stage1();
  auto const output = host.l3Shared->bfnL3Output();
  auto const watcher = Kiv::makeActive<Watcher>(host.profileEntry->tableList());
  watcher->then = [&] {
    output->initMacRewriteTablesIs(!output->initMacRewriteTables());
    output->startMacRewriteSmIs(!output->startMacRewriteSm());
  };
  traces();
  host.agent.reset();
  EXPECT_EQ(watcher->changes.size(), 1u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_FALSE(host.capability->overlaySrcMacRewriteSupported());
}

TEST_F(AgentSmTest, TheCapabilitiesAreACopyWithoutNotification) {
  host.bringUp();
  auto const watcher = Kiv::makeActive<Watcher>(host.agent);
  BfnSystem::ChipCapabilities none;
  host.systemStatus->profileInfoIs(BfnTest::PluginHost::kProfile)->chipCapabilitiesIs(none);
  EXPECT_TRUE(agent().chipCapabilities().overlaySrcMacRewriteSupported);
  agent().chipCapabilitiesIs(none);
  agent().initializedIs(false);
  EXPECT_FALSE(agent().chipCapabilities().overlaySrcMacRewriteSupported);
  EXPECT_THAT(watcher->changes, IsEmpty());
}

TEST_F(AgentSmTest, TheAttributesStandInTheirOrder) {
  std::vector<std::string> names;
  for (auto const& attribute : AgentSm::_kivType().attributes()) {
    names.emplace_back(attribute.name);
  }
  EXPECT_THAT(names,
              ElementsAre("systemStatus", "profileData", "agentMount", "bfnMacRewriteL3Shared",
                          "routingHwRouteStatus", "bfnL3Output", "intfIdToRoutingStatus",
                          "overlaySrcMacRewriteManager", "overlaySrcMacRewriteCliConfigSm",
                          "bfnMacRewriteSm", "bfnMacRewriteIntfRoutingStatusSm", "chipCapabilities",
                          "initialized"));
}

// Those who read recorded rings know this trace by its line. When this fails because something
// above handleStartMacRewriteSm() in agent/BfnMacRewriteAgentSm.cpp has grown or shrunk, move code
// across the handler until the statement is on line 51 again; do not change the number here.
TEST_F(AgentSmTest, TheTraceOfStageTwoNamesItsLine) {
  host.bringUp();
  auto const found = Ringlog::MsgDesc::find("BfnMacRewriteAgentSm", "handleStartMacRewriteSm");
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0]->line(), 51u);
  EXPECT_EQ(found[0]->level(), 9u);
  EXPECT_STREQ(found[0]->function(), "handleStartMacRewriteSm");
  EXPECT_THAT(found[0]->file(), ::testing::EndsWith("BfnMacRewriteAgentSm.cpp"));
  EXPECT_EQ(Ringlog::MsgDesc::find("BfnMacRewriteAgentSm").size(), 1u);
}

}  // namespace
