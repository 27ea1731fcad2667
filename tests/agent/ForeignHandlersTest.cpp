// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "tests/agent/AgentSmStagesTest.h"
#include "tests/support/RecordingDriver.h"
#include "tests/support/Watcher.h"

// Foreign handlers on what the agent touches, which mutate it or release it meanwhile.
namespace {

using BfnTest::Watcher;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using ForeignHandlersTest = BfnTest::AgentSmStagesTest;

TEST_F(ForeignHandlersTest, AForeignHandlerMayStartTheMachinesWhileTheTablesAreAskedFor) {
  auto const watcher = Kiv::makeActive<Watcher>(host.l3Shared->bfnL3Output());
  host.createAgent();  // registers after the watcher
  host.capability->overlaySrcMacRewriteSupportedIs(true);
  watcher->then = [this] { output().startMacRewriteSmIs(true); };
  output().initMacRewriteTablesIs(true);
  EXPECT_TRUE(agent().overlaySrcMacRewriteManager());
  EXPECT_FALSE(agent().bfnMacRewriteSm());
  EXPECT_FALSE(host.capability->overlaySrcMacRewriteSupported());
}

TEST_F(ForeignHandlersTest, AForeignHandlerMayAskForTheTablesWhileTheMachinesAreStarted) {
  auto const watcher = Kiv::makeActive<Watcher>(host.l3Shared->bfnL3Output());
  host.createAgent();
  watcher->then = [this] { output().initMacRewriteTablesIs(true); };
  output().startMacRewriteSmIs(true);
  EXPECT_TRUE(agent().bfnMacRewriteSm());
  EXPECT_TRUE(host.capability->overlaySrcMacRewriteSupported());
}

TEST_F(ForeignHandlersTest, AForeignHandlerMayDropTheAgentInStageOne) {
  host.createAgent();
  auto const watcher = Kiv::makeActive<Watcher>(host.profileEntry->tableList());
  watcher->then = [this] { host.agent.reset(); };
  output().initMacRewriteTablesIs(true);
  EXPECT_FALSE(host.agent);
  EXPECT_TRUE(host.profileEntry->tableList()->hwTables().empty());
}

TEST_F(ForeignHandlersTest, AForeignHandlerMayDropTheAgentWhileTheMergeIsMade) {
  host.port("Ethernet1", 100, 7);
  host.createAgent();
  host.stage1();
  auto const watcher = Kiv::makeActive<Watcher>(agent().intfIdToRoutingStatus());
  watcher->then = [this] { host.agent.reset(); };
  host.stage2();
  EXPECT_FALSE(host.agent);
  traces();
  host.port("Ethernet2", 100, 7);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(ForeignHandlersTest, AForeignHandlerMayDropTheAgentWhileTheFirstRowIsWritten) {
  host.createAgent();
  host.stage1();
  row();
  auto const watcher = Kiv::makeActive<Watcher>(
      agent().overlaySrcMacRewriteManager()->overlaySrcMacRewriteTable()->status());
  watcher->then = [this] { host.agent.reset(); };
  host.stage2();
  EXPECT_FALSE(host.agent);
  EXPECT_EQ(host.rows().size(), 1u);
}

TEST_F(ForeignHandlersTest, AForeignHandlerMayDropTheAgentWhileTheTranslatorIsMade) {
  host.createAgent();
  host.stage1();
  row();
  auto const watcher = Kiv::makeActive<Watcher>(host.mount->bfnMacRewriteAgentConfig());
  watcher->then = [this] { host.agent.reset(); };
  host.stage2();
  EXPECT_FALSE(host.agent);
  EXPECT_TRUE(host.capability->overlaySrcMacRewriteSupported());
}

TEST_F(ForeignHandlersTest, AForeignHandlerMayDropTheAgentAtARunningEvent) {
  host.bringUp();
  row();
  auto const watcher = Kiv::makeActive<Watcher>(
      agent().overlaySrcMacRewriteManager()->overlaySrcMacRewriteTable()->status());
  watcher->then = [this] { host.agent.reset(); };
  host.address(7, "10.0.0.2", "Ethernet1");
  EXPECT_FALSE(host.agent);
  EXPECT_EQ(host.rows().size(), 2u);
}

// The same from below: the driver is the host's.
TEST_F(ForeignHandlersTest, TheDriverMayDropTheAgentOrAMachineAtAnyCall) {
  struct Event {
    char const* what;
    void (*run)(BfnTest::PluginHost& host);
  };
  constexpr Event kEvents[] = {
      {"a new address", [](auto& h) { h.address(7, "10.0.0.9", "Ethernet1"); }},
      {"an address again", [](auto& h) { h.address(7, "10.0.0.1", "Ethernet1", true); }},
      {"an address less", [](auto& h) { h.addressDel(7, "10.0.0.1"); }},
      {"another MAC", [](auto& h) { h.rewrite("red", "10.0.0.1", "02:00:00:00:00:09"); }},
      {"another status of the interface", [](auto& h) { h.port("Ethernet1", 101, 7); }},
      {"no status of the interface", [](auto& h) { h.portDel("Ethernet1"); }},
      {"another forwarding VLAN", [](auto& h) { h.route("red", 7, 301); }},
      {"no forwarding VLAN", [](auto& h) { h.route("red", 7, 0); }},
      {"a VRF that returns",
       [](auto& h) {
         h.l3Status->vrfDel(L3::VrfName("red"));
         h.vrf("red", 7);
       }},
  };
  constexpr void (*kDrops[])(BfnTest::PluginHost & host) = {
      [](auto& h) { h.agent.reset(); },
      [](auto& h) { h.agent->bfnMacRewriteSmDel(); },
      [](auto& h) { h.agent->overlaySrcMacRewriteCliConfigSmDel(); },
      [](auto& h) { h.agent->bfnMacRewriteIntfRoutingStatusSmDel(); },
  };
  for (Event const& event : kEvents) {
    for (int round = 0; round < 16; ++round) {
      int const call = round / 4 + 1;
      auto const drop = kDrops[round % 4];
      SCOPED_TRACE(std::string(event.what) + ", round " + std::to_string(round));
      BfnTest::PluginHost own;
      own.createAgent();
      own.l3Shared->bfnL3Output()->initMacRewriteTablesIs(true);
      BfnTest::RecordingDriver driver(own.chip);
      BfnAgentLib::TableInitialization with;
      with.dlHandle = driver.opaque();
      ASSERT_EQ(BfnAgentLib::initializeTables(own.profileEntry, with), 1u);
      own.stage2();
      own.vrf("red", 7);
      own.route("red", 7, 300);
      own.port("Ethernet1", 100, 7);
      own.address(7, "10.0.0.1", "Ethernet1");
      own.address(7, "10.0.0.2", "Ethernet1");
      own.address(7, "10.0.0.3", "Ethernet1", true);
      own.address(7, "10.0.0.4", "Ethernet1", true);
      own.rewrite("red", "10.0.0.1", "02:00:00:00:00:01");
      own.rewrite("red", "10.0.0.2", "02:00:00:00:00:02");
      int calls = 0;
      driver.then = [&] {
        if (++calls == call) drop(own);
      };
      event.run(own);
      EXPECT_GT(calls, 0);
      bool const whole = own.agent && own.agent->bfnMacRewriteSm() &&
                         own.agent->overlaySrcMacRewriteCliConfigSm() &&
                         own.agent->bfnMacRewriteIntfRoutingStatusSm();
      EXPECT_EQ(whole, calls < call);
    }
  }
}

// A reactor handles what its record holds while it is made, and is not yet known to its machine.

TEST_F(ForeignHandlersTest, AForeignHandlerMayDropTheAgentWhileAVrfStatusIsTakenUp) {
  host.bringUp();
  host.port("Ethernet1", 100, 7);
  auto const status = host.mount->bfnMacRewriteAgentStatus();
  agent().bfnMacRewriteSm()->hasNotificationActiveIs(false);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.address(7, "10.0.0.2", "Ethernet1");
  auto const watcher = Kiv::makeActive<Watcher>(
      agent().overlaySrcMacRewriteManager()->overlaySrcMacRewriteTable()->status());
  watcher->then = [this] { host.agent.reset(); };
  agent().bfnMacRewriteSm()->hasNotificationActiveIs(true);
  Pex::VrfId const key(7);
  status->notify(BfnMacRewrite::Agent::Status::kVrfStatus.id, &key);
  EXPECT_FALSE(host.agent);
  EXPECT_EQ(host.rows().size(), 2u);
  traces();
  host.address(7, "10.0.0.3", "Ethernet1");
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(ForeignHandlersTest, AForeignHandlerMayDropTheAgentWhileARouteStatusIsTakenUp) {
  host.bringUp();
  host.port("Ethernet1", 100, 7);
  host.route("red", 7, 300);
  host.address(7, "10.0.0.1", "Ethernet1", true);
  host.address(7, "10.0.0.2", "Ethernet1", true);
  host.routeStatus->vrfStatusDel(L3::VrfName("red"));
  auto const watcher = Kiv::makeActive<Watcher>(
      agent().overlaySrcMacRewriteManager()->overlaySrcMacRewriteTable()->status());
  watcher->then = [this] { host.agent.reset(); };
  host.route("red", 7, 301);
  EXPECT_FALSE(host.agent);
  EXPECT_EQ(host.rows().size(), 2u);
}

TEST_F(ForeignHandlersTest, AForeignHandlerMayRunStageTwoWithinItself) {
  host.createAgent();
  host.stage1();
  row();
  auto const watcher = Kiv::makeActive<Watcher>(host.mount->bfnMacRewriteAgentConfig());
  watcher->then = [&] {
    watcher->then = nullptr;
    host.stage2();
  };
  host.stage2();
  EXPECT_TRUE(agent().overlaySrcMacRewriteCliConfigSm()->hasNotificationActive());
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 02:00:00:00:00:01"));
  traces();
  host.rewrite("red", "10.0.0.1", "02:00:00:00:00:02");
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 02:00:00:00:00:02"));
  // One translator only reacts: the other one went with the run that it was made in.
  auto const lines = traces();
  EXPECT_EQ(std::ranges::count(lines,
                               "OverlaySrcMacRewriteCliConfigSm::"
                               "handleOverlaySrcMacRewriteEntry: vrfName: red, ip "
                               "address: 10.0.0.1"),
            1);
}

TEST_F(ForeignHandlersTest, AStageOneAskedForWithinStageOneRunsAfterIt) {
  for (bool const otherEntry : {false, true}) {
    SCOPED_TRACE(otherEntry);
    host.createAgent();
    auto const list = host.profileEntry->tableList();
    auto const other = host.profileData->profileDataEntryIs("other");
    profileIs("other", true);
    output().profileEntryIs(host.profileEntry);
    auto const watcher = Kiv::makeActive<Watcher>(list);
    watcher->then = [&] {
      watcher->then = nullptr;
      if (otherEntry) output().profileEntryIs(other);
      output().initMacRewriteTablesIs(!output().initMacRewriteTables());
    };
    output().initMacRewriteTablesIs(!output().initMacRewriteTables());
    auto const manager = agent().overlaySrcMacRewriteManager();
    auto const& entry = otherEntry ? other : host.profileEntry;
    EXPECT_EQ(manager->profileEntry(), entry);
    EXPECT_EQ(entry->tableList()->manager(Kiv::Name("overlaySrcMacRewrite")), manager);
    EXPECT_EQ(list->hwTables().empty(), otherEntry);
    host.agent.reset();
  }
}

TEST_F(ForeignHandlersTest, AStageTwoAskedForWithinStageOneHasTheManager) {
  host.createAgent();
  auto const watcher = Kiv::makeActive<Watcher>(host.profileEntry->tableList());
  watcher->then = [&] { output().startMacRewriteSmIs(true); };
  output().initMacRewriteTablesIs(true);
  ASSERT_TRUE(agent().bfnMacRewriteSm());
  EXPECT_TRUE(agent().overlaySrcMacRewriteManager());
  EXPECT_EQ(agent().bfnMacRewriteSm()->overlaySrcMacRewriteManager(),
            agent().overlaySrcMacRewriteManager());
}

TEST_F(ForeignHandlersTest, AStageTwoAskedForWhileRowsAreWrittenCountsEachOnce) {
  host.createAgent();
  host.stage1();
  row();
  auto const watcher = Kiv::makeActive<Watcher>(
      agent().overlaySrcMacRewriteManager()->overlaySrcMacRewriteTable()->status());
  watcher->then = [&] {
    watcher->then = nullptr;
    host.stage2();
  };
  host.stage2();
  EXPECT_EQ(refCounts(), std::vector<unsigned>{1});
}

TEST_F(ForeignHandlersTest, TheOldChildrenStayUntilTheNewOnesAreComplete) {
  host.bringUp();
  row();
  host.vrf("blue", 8);
  auto const manager = agent().overlaySrcMacRewriteManager();
  auto const translator = agent().overlaySrcMacRewriteCliConfigSm();
  auto const other = Kiv::makeActive<BfnMacRewrite::Input::Config>();
  other->overlaySrcMacRewriteEntryIs(
      {L3::VrfName("blue"), BfnTest::ip("10.0.0.1"), BfnTest::mac("02:00:00:00:00:01")});
  auto const records = Kiv::makeActive<Watcher>(host.mount->bfnMacRewriteAgentConfig());
  records->then = [&] {
    EXPECT_EQ(agent().overlaySrcMacRewriteCliConfigSm(), translator);
    EXPECT_TRUE(translator->hasNotificationActive());
  };
  agent().overlaySrcMacRewriteCliConfigSmIs(Kiv::Ptr<BfnMacRewrite::Input::Config const>(other),
                                            host.mount->bfnMacRewriteAgentConfig(),
                                            Kiv::Ptr<Pex::L3Status const>(host.l3Status));
  EXPECT_EQ(records->changes.size(), 1u);
  EXPECT_NE(agent().overlaySrcMacRewriteCliConfigSm(), translator);
  EXPECT_FALSE(translator->hasNotificationActive());

  auto const entry = host.profileData->profileDataEntryIs("other");
  profileIs("other", true);
  output().profileEntryIs(entry);
  auto const tables = Kiv::makeActive<Watcher>(entry->tableList());
  tables->then = [&] { EXPECT_EQ(agent().overlaySrcMacRewriteManager(), manager); };
  host.stage1();
  EXPECT_EQ(tables->changes.size(), 1u);
  EXPECT_NE(agent().overlaySrcMacRewriteManager(), manager);
}

TEST_F(ForeignHandlersTest, StageTwoReportsTheCapabilitiesThatItStartedWith) {
  host.createAgent();
  host.stage1();
  row();
  auto const watcher = Kiv::makeActive<Watcher>(host.mount->bfnMacRewriteAgentConfig());
  watcher->then = [&] { agent().chipCapabilitiesIs({}); };
  host.stage2();
  EXPECT_FALSE(watcher->changes.empty());
  EXPECT_TRUE(host.capability->overlaySrcMacRewriteSupported());
}

// Rows while a driver's handler changes what they are made of.

class RowsInPassTest : public ForeignHandlersTest {
 protected:
  BfnTest::RecordingDriver driver{host.chip};

  void SetUp() override {
    ForeignHandlersTest::SetUp();
    host.createAgent();
    output().initMacRewriteTablesIs(true);
    BfnAgentLib::TableInitialization with;
    with.dlHandle = driver.opaque();
    ASSERT_EQ(BfnAgentLib::initializeTables(host.profileEntry, with), 1u);
    host.stage2();
    host.vrf("red", 7);
    host.route("red", 7, 300);
    for (char const* const address : kAddresses) host.address(7, address, "Ethernet1");
  }
  void TearDown() override {
    host.agent.reset();
    ForeignHandlersTest::TearDown();
  }
  void once(std::function<void()> const& run) {
    driver.then = [this, run] {
      auto const now = run;  // this lambda goes with the next statement
      driver.then = nullptr;
      now();
    };
  }
  static constexpr char const* kAddresses[] = {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"};
};

TEST_F(RowsInPassTest, AddressesRemovedWhileTheirRowsAreDeletedLeaveNothing) {
  host.port("Ethernet1", 100, 7);
  once([&] {
    for (char const* const address : kAddresses) host.addressDel(7, address);
  });
  host.portDel("Ethernet1");
  EXPECT_THAT(host.rows(), IsEmpty());
  EXPECT_THAT(refCounts(), IsEmpty());
}

TEST_F(RowsInPassTest, AnAddressAddedWhileRowsAreDeletedWaitsForTheInterface) {
  host.port("Ethernet1", 100, 7);
  once([&] {
    for (char const* const address : {"10.0.0.5", "10.0.0.6", "10.0.0.7", "10.0.0.8"}) {
      host.address(7, address, "Ethernet1");
    }
  });
  host.portDel("Ethernet1");
  EXPECT_THAT(host.rows(), IsEmpty());
  host.port("Ethernet1", 100, 7);
  EXPECT_EQ(host.rows().size(), 8u);
  EXPECT_EQ(refCounts(), std::vector<unsigned>(8, 1));
}

TEST_F(RowsInPassTest, AStatusThatReturnsWhileRowsAreDeletedCountsNoRowTwice) {
  host.port("Ethernet1", 100, 7);
  once([&] { host.port("Ethernet1", 200, 7); });
  host.portDel("Ethernet1");
  EXPECT_GE(refCounts().size(), 3u);
  for (unsigned const count : refCounts()) EXPECT_EQ(count, 1u);
}

TEST_F(RowsInPassTest, AddressesAddedAndRemovedWhileRowsAreAddedAreCountedOnce) {
  once([&] {
    for (char const* const address : {"10.0.0.5", "10.0.0.6", "10.0.0.7", "10.0.0.8"}) {
      host.address(7, address, "Ethernet1");
    }
  });
  host.port("Ethernet1", 100, 7);
  EXPECT_EQ(refCounts(), std::vector<unsigned>(8, 1));
  host.portDel("Ethernet1");
  // All but the one whose row is being written.
  size_t left = 8;
  once([&] {
    for (char const* const address : kAddresses) {
      if (host.rows()[0].find(address) != std::string::npos) continue;
      host.addressDel(7, address);
      --left;
    }
    host.rewrite("red", "10.0.0.5", "02:00:00:00:00:05");
  });
  host.port("Ethernet1", 100, 7);
  EXPECT_EQ(host.rows().size(), left);
  EXPECT_EQ(refCounts(), std::vector<unsigned>(left, 1));
}

TEST_F(RowsInPassTest, AnAddressThatGoesWhileItIsAddedAgainStaysAway) {
  host.port("Ethernet1", 100, 7);
  once([&] { host.addressDel(7, "10.0.0.1"); });
  host.address(7, "10.0.0.1", "Ethernet1", true);
  EXPECT_EQ(host.rows().size(), 3u);
  EXPECT_FALSE(
      agent().bfnMacRewriteSm()->localVrfIpToIntf({Pex::VrfId(7), BfnTest::ip("10.0.0.1")}));
}

TEST_F(RowsInPassTest, AnAddressThatMovesWhileItIsAddedAgainIsWhereItMovedTo) {
  host.port("Ethernet1", 100, 7);
  host.port("Ethernet2", 200, 7);
  once([&] {
    host.addressDel(7, "10.0.0.1");
    host.address(7, "10.0.0.1", "Ethernet2");
  });
  host.address(7, "10.0.0.1", "Ethernet1", true);
  EXPECT_EQ(agent().bfnMacRewriteSm()->localVrfIpToIntf({Pex::VrfId(7), BfnTest::ip("10.0.0.1")}),
            Ovra::IntfId("Ethernet2"));
  EXPECT_EQ(host.rows().size(), 4u);
  EXPECT_EQ(refCounts(), std::vector<unsigned>(4, 1));
}

TEST_F(RowsInPassTest, AnAddressThatGoesAndReturnsWhileItIsAddedAgainIsCountedOnce) {
  host.port("Ethernet1", 100, 7);
  bool ran = false;
  once([&] {
    ran = true;
    host.addressDel(7, "10.0.0.1");
    host.address(7, "10.0.0.1", "Ethernet1", true);
  });
  host.address(7, "10.0.0.1", "Ethernet1", true);
  EXPECT_TRUE(ran);
  EXPECT_EQ(host.rows().size(), 4u);
  EXPECT_EQ(refCounts(), std::vector<unsigned>(4, 1));
}

TEST_F(RowsInPassTest, ASelfIpWhoseVlanGoesWhileItIsAddedAgainWaits) {
  host.port("Ethernet1", 100, 7);
  once([&] { host.route("red", 7, 0); });
  host.address(7, "10.0.0.1", "Ethernet1", true);
  EXPECT_EQ(host.rows().size(), 3u);
  host.route("red", 7, 301);
  EXPECT_EQ(host.rows().size(), 4u);
  EXPECT_EQ(refCounts(), std::vector<unsigned>(4, 1));
}

}  // namespace
