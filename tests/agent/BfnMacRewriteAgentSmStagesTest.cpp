// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "framework/core/Exceptions.h"
#include "tests/agent/AgentSmStagesTest.h"
#include "tests/support/Watcher.h"

// The two stages of bring-up, and what running them again replaces.
namespace {

using BfnMacRewrite::AgentSm;
using BfnTest::AgentSmStagesTest;
using BfnTest::TraceCapture;
using BfnTest::Watcher;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(AgentSmStagesTest, StageOneSetsTheTableUp) {
  host.createAgent();
  output().initMacRewriteTablesIs(true);
  ASSERT_TRUE(agent().intfIdToRoutingStatus());
  EXPECT_TRUE(agent().intfIdToRoutingStatus()->hasNotificationActive());
  EXPECT_TRUE(agent().chipCapabilities().overlaySrcMacRewriteSupported);
  EXPECT_EQ(agent().chipCapabilities().overlaySrcMacRewriteTableSize, 1000);
  auto const manager = agent().overlaySrcMacRewriteManager();
  ASSERT_TRUE(manager);
  EXPECT_TRUE(manager->hasNotificationActive());
  EXPECT_EQ(manager->profileEntry(), host.profileEntry);
  EXPECT_EQ(manager->systemStatus(), host.systemStatus);
  EXPECT_EQ(manager->intfIdToRoutingStatus(), agent().intfIdToRoutingStatus());
  EXPECT_EQ(manager->l3Status(), host.l3Status);
  EXPECT_FALSE(agent().bfnMacRewriteSm());
  EXPECT_FALSE(manager->overlaySrcMacRewriteTable());
}

TEST_F(AgentSmStagesTest, WhenTheTableIsDeclaredTheCollectionAndTheCapabilitiesAreThere) {
  host.createAgent();
  auto const watcher = Kiv::makeActive<Watcher>(host.profileEntry->tableList());
  watcher->then = [this] {
    EXPECT_TRUE(agent().intfIdToRoutingStatus());
    EXPECT_EQ(agent().chipCapabilities().overlaySrcMacRewriteTableSize, 1000);
    EXPECT_FALSE(agent().overlaySrcMacRewriteManager());
  };
  output().initMacRewriteTablesIs(true);
  EXPECT_EQ(watcher->changes.size(), 1u);
}

TEST_F(AgentSmStagesTest, WhenTheCapabilityIsWrittenTheMachinesAreThere) {
  host.createAgent();
  host.stage1();
  auto const watcher = Kiv::makeActive<Watcher>(host.capability);
  watcher->then = [this] {
    EXPECT_TRUE(agent().bfnMacRewriteIntfRoutingStatusSm());
    EXPECT_TRUE(agent().bfnMacRewriteSm());
    EXPECT_TRUE(agent().overlaySrcMacRewriteCliConfigSm());
  };
  host.stage2();
  EXPECT_EQ(watcher->changes.size(), 1u);
}

TEST_F(AgentSmStagesTest, StageTwoMakesTheThreeMachinesInTheirOrder) {
  host.createAgent();
  host.stage1();
  TraceCapture::clear();
  output().startMacRewriteSmIs(true);
  auto const texts = TraceCapture::texts();
  ASSERT_FALSE(texts.empty());
  EXPECT_EQ(texts[0], "void BfnMacRewrite::AgentSm::handleStartMacRewriteSm(): ");
  std::vector<std::string> starts;
  for (auto const& trace : traces()) {
    if (trace.find("Sm::handleInitialized: ") != std::string::npos) starts.push_back(trace);
  }
  EXPECT_THAT(starts, ElementsAre("BfnMacRewriteIntfRoutingStatusSm::handleInitialized: ",
                                  "BfnMacRewriteSm::handleInitialized: ",
                                  "OverlaySrcMacRewriteCliConfigSm::handleInitialized: "));
  auto const merge = agent().bfnMacRewriteIntfRoutingStatusSm();
  EXPECT_EQ(merge->l3PortAndLagRoutingStatus(), host.ports);
  EXPECT_EQ(merge->vlanIntfRoutingStatus(), host.vlans);
  EXPECT_EQ(merge->l3SubIntfRoutingStatus(), host.subIntfs);
  EXPECT_EQ(merge->intfIdToRoutingStatus(), agent().intfIdToRoutingStatus());
  auto const sm = agent().bfnMacRewriteSm();
  EXPECT_EQ(sm->macRewriteStatus(), host.mount->bfnMacRewriteAgentStatus());
  EXPECT_EQ(sm->overlaySrcMacRewriteAgentConfig(), host.mount->bfnMacRewriteAgentConfig());
  EXPECT_EQ(sm->intfIdToRoutingStatus(), agent().intfIdToRoutingStatus());
  EXPECT_EQ(sm->overlaySrcMacRewriteManager(), agent().overlaySrcMacRewriteManager());
  EXPECT_EQ(sm->l3Status(), host.l3Status);
  EXPECT_EQ(sm->routingHwRouteStatus(), host.routeStatus);
  auto const cli = agent().overlaySrcMacRewriteCliConfigSm();
  EXPECT_EQ(cli->overlaySrcMacRewriteCliConfig(), host.cliConfig);
  EXPECT_EQ(cli->overlaySrcMacRewriteAgentConfig(), host.mount->bfnMacRewriteAgentConfig());
  EXPECT_EQ(cli->l3Status(), host.l3Status);
  EXPECT_TRUE(merge->hasNotificationActive() && sm->hasNotificationActive() &&
              cli->hasNotificationActive());
  EXPECT_TRUE(host.capability->overlaySrcMacRewriteSupported());
}

TEST_F(AgentSmStagesTest, StageTwoBeforeStageOneReportsUnsupported) {
  host.createAgent();
  host.capability->overlaySrcMacRewriteSupportedIs(true);
  host.stage2();
  EXPECT_FALSE(agent().bfnMacRewriteIntfRoutingStatusSm());
  EXPECT_FALSE(agent().bfnMacRewriteSm());
  EXPECT_FALSE(agent().overlaySrcMacRewriteCliConfigSm());
  EXPECT_FALSE(host.capability->overlaySrcMacRewriteSupported());
  EXPECT_THAT(traces(), ::testing::Not(Contains(HasSubstr("AgentSm"))));
}

TEST_F(AgentSmStagesTest, AChipWithoutTheTableStaysWithoutMachines) {
  profileIs(BfnTest::PluginHost::kProfile, false);
  host.capability->overlaySrcMacRewriteSupportedIs(true);
  TraceCapture::clear();
  host.bringUp();
  EXPECT_TRUE(agent().overlaySrcMacRewriteManager());
  EXPECT_TRUE(agent().intfIdToRoutingStatus());
  EXPECT_FALSE(agent().bfnMacRewriteIntfRoutingStatusSm());
  EXPECT_FALSE(agent().bfnMacRewriteSm());
  EXPECT_FALSE(agent().overlaySrcMacRewriteCliConfigSm());
  EXPECT_FALSE(host.capability->overlaySrcMacRewriteSupported());
  EXPECT_THAT(traces(), ::testing::Not(Contains(HasSubstr("AgentSm::handleStart"))));
}

TEST_F(AgentSmStagesTest, AnUnknownProfileReadsAsAChipWithoutTheTable) {
  host.createAgent();
  output().profileNameIs("absent");
  host.stage1();
  host.stage2();
  EXPECT_EQ(agent().chipCapabilities(), BfnSystem::ChipCapabilities());
  EXPECT_FALSE(agent().bfnMacRewriteSm());
  EXPECT_FALSE(host.capability->overlaySrcMacRewriteSupported());
}

TEST_F(AgentSmStagesTest, OnlyTheSupportedFlagIsWrittenAndOnlyOnce) {
  host.createAgent();
  host.stage1();
  auto const watcher = Kiv::makeActive<Watcher>(host.capability);
  host.stage2();
  host.stage2();
  EXPECT_EQ(watcher->changes.size(), 1u);
}

TEST_F(AgentSmStagesTest, RunningAStageAgainWithTheSameInputsChangesNothingWhateverTheFlags) {
  host.bringUp();
  row();
  auto const collection = agent().intfIdToRoutingStatus();
  auto const manager = agent().overlaySrcMacRewriteManager();
  auto const merge = agent().bfnMacRewriteIntfRoutingStatusSm();
  auto const sm = agent().bfnMacRewriteSm();
  auto const cli = agent().overlaySrcMacRewriteCliConfigSm();
  host.journal();
  traces();
  for (bool const flag : {false, true}) {
    output().initMacRewriteTablesIs(flag);
    output().startMacRewriteSmIs(flag);
  }
  EXPECT_EQ(agent().intfIdToRoutingStatus(), collection);
  EXPECT_EQ(agent().overlaySrcMacRewriteManager(), manager);
  EXPECT_EQ(agent().bfnMacRewriteIntfRoutingStatusSm(), merge);
  EXPECT_EQ(agent().bfnMacRewriteSm(), sm);
  EXPECT_EQ(agent().overlaySrcMacRewriteCliConfigSm(), cli);
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_TRUE(host.capability->overlaySrcMacRewriteSupported());
  EXPECT_THAT(traces(), ElementsAre("AgentSm::handleStartMacRewriteSm: ",
                                    "AgentSm::handleStartMacRewriteSm: "));
}

TEST_F(AgentSmStagesTest, AStageTwoThatMeetsAVlanOutOfRangeLeavesTheRowsBeforeIt) {
  host.createAgent();
  host.stage1();
  row();
  for (int last = 2; last < 20; ++last) {
    host.address(7, ("10.0.0." + std::to_string(last)).c_str(), "Ethernet1");
  }
  host.route("red", 7, 4095);
  host.address(7, "10.0.0.20", "Ethernet1", true);
  EXPECT_THROW(host.stage2(), Kiv::RangeException);
  EXPECT_FALSE(agent().bfnMacRewriteSm());
  EXPECT_FALSE(host.capability->overlaySrcMacRewriteSupported());
  size_t const left = host.rows().size();
  EXPECT_EQ(refCounts(), std::vector<unsigned>(left, 1));
  host.route("red", 7, 300);
  host.stage2();
  EXPECT_EQ(host.rows().size(), 20u);
  auto const counts = refCounts();
  EXPECT_EQ(static_cast<size_t>(std::ranges::count(counts, 2u)), left);
}

TEST_F(AgentSmStagesTest, TheMachinesStayWhenTheCapabilityIsLost) {
  host.bringUp();
  auto const merge = agent().bfnMacRewriteIntfRoutingStatusSm();
  auto const sm = agent().bfnMacRewriteSm();
  auto const cli = agent().overlaySrcMacRewriteCliConfigSm();
  profileIs(BfnTest::PluginHost::kProfile, false);
  host.stage1();
  host.stage2();
  EXPECT_FALSE(host.capability->overlaySrcMacRewriteSupported());
  EXPECT_EQ(agent().bfnMacRewriteIntfRoutingStatusSm(), merge);
  EXPECT_EQ(agent().bfnMacRewriteSm(), sm);
  EXPECT_EQ(agent().overlaySrcMacRewriteCliConfigSm(), cli);
  EXPECT_TRUE(cli->hasNotificationActive());
}

TEST_F(AgentSmStagesTest, NullInputsKeepTheChildrenToo) {
  host.cliConfig = nullptr;
  host.capability = nullptr;
  host.l3Status = nullptr;
  host.routeStatus = nullptr;
  host.ports = host.vlans = host.subIntfs = nullptr;
  host.bringUp();
  auto const merge = agent().bfnMacRewriteIntfRoutingStatusSm();
  auto const sm = agent().bfnMacRewriteSm();
  auto const cli = agent().overlaySrcMacRewriteCliConfigSm();
  ASSERT_TRUE(merge && sm && cli);
  host.stage1();
  host.stage2();
  EXPECT_EQ(agent().bfnMacRewriteIntfRoutingStatusSm(), merge);
  EXPECT_EQ(agent().bfnMacRewriteSm(), sm);
  EXPECT_EQ(agent().overlaySrcMacRewriteCliConfigSm(), cli);
  host.address(7, "10.0.0.1", "Ethernet1");
  EXPECT_THAT(host.journal(), IsEmpty());
}

TEST_F(AgentSmStagesTest, ANullProfileEntryReadsAsAChipWithoutTheTableForTheManager) {
  host.createAgent();
  output().profileEntryIs(nullptr);
  host.stage1();
  EXPECT_EQ(agent().overlaySrcMacRewriteManager()->pendingTableCount(), 0);
  host.stage2();
  EXPECT_TRUE(agent().bfnMacRewriteSm());
}

TEST_F(AgentSmStagesTest, MissingRecordsOfTheMountMeanNoContribution) {
  host.createAgent();
  host.mount->bfnMacRewriteAgentConfigDel();
  host.mount->bfnMacRewriteAgentStatusDel();
  host.stage1();
  host.stage2();
  EXPECT_TRUE(agent().bfnMacRewriteSm());
  host.vrf("red", 7);
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  EXPECT_THAT(host.journal(), IsEmpty());
}

TEST_F(AgentSmStagesTest, ANewProfileEntryReplacesTheManagerAndTheCoreMachineFollowsInStageTwo) {
  host.bringUp();
  auto const manager = agent().overlaySrcMacRewriteManager();
  auto const sm = agent().bfnMacRewriteSm();
  auto const cli = agent().overlaySrcMacRewriteCliConfigSm();
  output().profileEntryIs(
      Kiv::makeActive<BfnAgentLib::BfnProfileDataEntry>(BfnTest::PluginHost::kProfile));
  host.stage1();
  EXPECT_NE(agent().overlaySrcMacRewriteManager(), manager);
  EXPECT_EQ(agent().bfnMacRewriteSm(), sm);
  EXPECT_EQ(sm->overlaySrcMacRewriteManager(), manager);
  host.stage2();
  EXPECT_NE(agent().bfnMacRewriteSm(), sm);
  EXPECT_EQ(agent().bfnMacRewriteSm()->overlaySrcMacRewriteManager(),
            agent().overlaySrcMacRewriteManager());
  EXPECT_EQ(agent().overlaySrcMacRewriteCliConfigSm(), cli);
}

TEST_F(AgentSmStagesTest, ANewManagerOnTheSameListTakesTheDeclarationOver) {
  host.bringUp();
  host.l3Shared->l3StatusIs(Kiv::makeActive<Pex::L3Status>());
  host.stage1();
  host.stage2();
  auto const* const declared = host.profileEntry->tableList()->hwTable("overlaySrcMacRewrite");
  ASSERT_NE(declared, nullptr);
  EXPECT_EQ(declared->manager, agent().overlaySrcMacRewriteManager().get());
}

TEST_F(AgentSmStagesTest, ALostCapabilityLeavesTheMachinesRunning) {
  host.bringUp();
  auto const sm = agent().bfnMacRewriteSm();
  profileIs(BfnTest::PluginHost::kProfile, false);
  output().initMacRewriteTablesIs(false);
  traces();
  host.stage2();
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_EQ(agent().bfnMacRewriteSm(), sm);
  EXPECT_TRUE(sm->hasNotificationActive());
  EXPECT_FALSE(host.capability->overlaySrcMacRewriteSupported());
}

// The machines may meet VLANs out of range, which the host set long before.
TEST_F(AgentSmStagesTest, AMachineThatThrowsInTheMakingLeavesNothingRegistered) {
  host.vrf("red", 7);
  host.port("Ethernet1", 0, 7);
  host.createAgent();
  host.address(7, "10.0.0.1", "Ethernet1");
  host.stage1();
  host.capability->overlaySrcMacRewriteSupportedIs(false);
  EXPECT_THROW(host.stage2(), Kiv::RangeException);
  EXPECT_TRUE(agent().bfnMacRewriteIntfRoutingStatusSm());
  EXPECT_FALSE(agent().bfnMacRewriteSm());
  EXPECT_FALSE(agent().overlaySrcMacRewriteCliConfigSm());
  EXPECT_FALSE(host.capability->overlaySrcMacRewriteSupported());
  host.port("Ethernet1", 100, 7);
  EXPECT_THAT(host.journal(), IsEmpty());
  host.stage2();
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 00:00:00:00:00:00"));
  EXPECT_TRUE(host.capability->overlaySrcMacRewriteSupported());
}

TEST_F(AgentSmStagesTest, AReplacementThatThrowsLeavesTheOldMachineInPlace) {
  host.bringUp();
  auto const sm = agent().bfnMacRewriteSm();
  host.mount->bfnMacRewriteAgentStatusDel();
  host.mount->bfnMacRewriteAgentStatusIs();
  host.address(7, "10.0.0.1", "Ethernet1");
  host.port("Ethernet1", 0, 7);
  EXPECT_THROW(host.stage2(), Kiv::RangeException);
  EXPECT_EQ(agent().bfnMacRewriteSm(), sm);
  EXPECT_TRUE(sm->hasNotificationActive());
}

/// One input is replaced; which of the children go by it.
struct Replacement {
  char const* input;
  void (*replace)(BfnTest::PluginHost& host);
  bool manager, merge, core, translator;
};

void PrintTo(Replacement const& replacement, std::ostream* out) {
  *out << replacement.input;
}

class ReplacedInputTest : public BfnTest::PluginTest,
                          public ::testing::WithParamInterface<Replacement> {};

TEST_P(ReplacedInputTest, ReplacesItsUsersAndTheOldOnesAreSilent) {
  host.bringUp();
  auto const manager = host.agent->overlaySrcMacRewriteManager();
  auto const merge = host.agent->bfnMacRewriteIntfRoutingStatusSm();
  auto const core = host.agent->bfnMacRewriteSm();
  auto const translator = host.agent->overlaySrcMacRewriteCliConfigSm();
  auto const status = host.mount->bfnMacRewriteAgentStatus();
  auto const config = host.mount->bfnMacRewriteAgentConfig();
  auto const collection = host.agent->intfIdToRoutingStatus();
  GetParam().replace(host);
  host.stage1();
  host.stage2();
  EXPECT_EQ(host.agent->overlaySrcMacRewriteManager() != manager, GetParam().manager);
  EXPECT_EQ(host.agent->bfnMacRewriteIntfRoutingStatusSm() != merge, GetParam().merge);
  EXPECT_EQ(host.agent->bfnMacRewriteSm() != core, GetParam().core);
  EXPECT_EQ(host.agent->overlaySrcMacRewriteCliConfigSm() != translator, GetParam().translator);
  EXPECT_TRUE(host.agent->bfnMacRewriteIntfRoutingStatusSm()->hasNotificationActive());
  EXPECT_TRUE(host.agent->bfnMacRewriteSm()->hasNotificationActive());
  EXPECT_TRUE(host.agent->overlaySrcMacRewriteCliConfigSm()->hasNotificationActive());

  // With the present children off, whatever is traced comes from the old ones.
  static_cast<Kiv::PtrInterface&>(*host.agent).hasNotificationActiveIs(false);
  traces();
  host.vrf("red", 7);
  host.l3Shared->l3Status()->vrfIs(L3::VrfName("red"), Pex::VrfId(7));
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
  Pex::PortVlanPair const key(Ovra::IntfId("Ethernet1"), 0);
  for (auto const& source : {host.ports, host.vlans, host.subIntfs}) {
    source->l3IntfRoutingStatusIs(key);
  }
  collection->l3IntfRoutingStatusIs(
      Ovra::IntfId("Ethernet1"),
      Kiv::Ptr<BfnL3::L3IntfRoutingStatus>(host.ports->l3IntfRoutingStatus(key)));
  host.route("red", 7, 300);
  status->vrfStatusIs(Pex::VrfId(7));
  config->overlaySrcMacRewriteIs(Pex::VrfId(7));
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(host.journal(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, ReplacedInputTest,
    ::testing::Values(
        Replacement{"Ports",
                    [](BfnTest::PluginHost& h) {
                      h.l3Shared->l3PortAndLagRoutingStatusIs(
                          Kiv::makeActive<BfnL3::L3RoutingStatus>());
                    },
                    false, true, false, false},
        Replacement{"Vlans",
                    [](BfnTest::PluginHost& h) {
                      h.l3Shared->vlanIntfRoutingStatusIs(
                          Kiv::makeActive<BfnL3::L3RoutingStatus>());
                    },
                    false, true, false, false},
        Replacement{"SubInterfaces",
                    [](BfnTest::PluginHost& h) {
                      h.l3Shared->l3SubIntfRoutingStatusIs(
                          Kiv::makeActive<BfnL3::L3RoutingStatus>());
                    },
                    false, true, false, false},
        Replacement{"AgentStatus",
                    [](BfnTest::PluginHost& h) {
                      h.mount->bfnMacRewriteAgentStatusDel();
                      h.mount->bfnMacRewriteAgentStatusIs();
                    },
                    false, false, true, false},
        Replacement{"AgentConfig",
                    [](BfnTest::PluginHost& h) {
                      h.mount->bfnMacRewriteAgentConfigDel();
                      h.mount->bfnMacRewriteAgentConfigIs();
                    },
                    false, false, true, true},
        Replacement{"CliConfig",
                    [](BfnTest::PluginHost& h) {
                      h.mount->bfnMacRewriteCliConfigIs(
                          Kiv::makeActive<BfnMacRewrite::Input::Config>());
                    },
                    false, false, false, true},
        Replacement{"NoCliConfig",
                    [](BfnTest::PluginHost& h) { h.mount->bfnMacRewriteCliConfigIs(nullptr); },
                    false, false, false, true},
        Replacement{"L3Status",
                    [](BfnTest::PluginHost& h) {
                      h.l3Shared->l3StatusIs(Kiv::makeActive<Pex::L3Status>());
                    },
                    true, false, true, true},
        Replacement{"ProfileEntry",
                    [](BfnTest::PluginHost& h) {
                      h.l3Shared->bfnL3Output()->profileEntryIs(
                          Kiv::makeActive<BfnAgentLib::BfnProfileDataEntry>(
                              BfnTest::PluginHost::kProfile));
                    },
                    true, false, true, false},
        Replacement{"Collection",
                    [](BfnTest::PluginHost& h) { h.agent->intfIdToRoutingStatusDel(); }, true, true,
                    true, false}),
    [](auto const& instance) { return std::string(instance.param.input); });

}  // namespace
