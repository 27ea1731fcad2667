// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/SlabKeyManager.h"
#include "framework/platform/StatusManager.h"
#include "framework/platform/TableInitialization.h"
#include "framework/trace/TraceHandle.h"
#include "tests/support/PluginTest.h"
#include "tests/support/RecordingDriver.h"
#include "tests/support/Watcher.h"
#include "tests/tablemgr/OverlaySrcMacRewriteManagerTest.h"

// How the manager declares its table, binds it and reports on it.
namespace {

using BfnAgentLib::TableKey;
using BfnMacRewrite::OverlaySrcMacRewriteManager;
using BfnTest::diesAs;
using BfnTest::RecordingDriver;
using BfnTest::TraceCapture;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char const* kTable = "overlaySrcMacRewrite";

class OverlaySrcMacRewriteManagerSetupTest : public BfnTest::PluginTest {
 protected:
  void SetUp() override { TraceCapture::clear(); }
  Kiv::Ptr<OverlaySrcMacRewriteManager> make() {
    return BfnMacRewrite::overlaySrcMacRewriteManagerFactory(host.profileEntry, host.systemStatus,
                                                             nullptr, host.l3Status);
  }
  void capabilitiesAre(bool supported, unsigned size) {
    BfnSystem::ChipCapabilities capabilities;
    capabilities.overlaySrcMacRewriteSupported = supported;
    capabilities.overlaySrcMacRewriteTableSize = static_cast<Kiv::U16>(size);
    host.systemStatus->profileInfoIs(BfnTest::PluginHost::kProfile)
        ->chipCapabilitiesIs(capabilities);
  }
  void initialize(OverlaySrcMacRewriteManager& manager, char const* name = kTable) {
    manager.initializeTable(TableKey(name, 0, BfnId::BfnPipeId(3)), host.chip.opaque(),
                            BfnDriver::BfnDevProfile("p"), 1, nullptr, nullptr, nullptr);
  }
};

TEST_F(OverlaySrcMacRewriteManagerSetupTest, TheFactoryDeclaresTheTableAndSwitchesTheManagerOn) {
  auto const manager = make();
  EXPECT_TRUE(manager->hasNotificationActive());
  EXPECT_TRUE(manager->initialized());
  EXPECT_EQ(manager->pendingTableCount(), 1);
  EXPECT_FALSE(manager->initTableDone());
  EXPECT_FALSE(manager->overlaySrcMacRewriteTable());
  EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
  EXPECT_EQ(manager->profileEntry(), host.profileEntry);
  EXPECT_EQ(manager->systemStatus(), host.systemStatus);
  EXPECT_EQ(manager->l3Status(), host.l3Status);
  ASSERT_EQ(host.profileEntry->tableList()->hwTables().size(), 1u);
  auto const* const declared = host.profileEntry->tableList()->hwTable(kTable);
  ASSERT_NE(declared, nullptr);
  EXPECT_EQ(static_cast<int>(declared->scope), 0);
  EXPECT_TRUE(declared->needsInitialization);
  EXPECT_TRUE(declared->hasStats);
  EXPECT_FALSE(declared->persistent);
  EXPECT_EQ(declared->manager, manager.get());
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest,
       DeclaringItselfNeitherDeletesTheManagerNorKeepsItAlive) {
  auto manager = make();
  EXPECT_EQ(manager->kivRefCount(), 1u);
  manager.reset();
  EXPECT_TRUE(host.profileEntry->tableList()->hwTables().empty());
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest,
       TheTableIsDeclaredBeforeItIsPendingAndBothBeforeInitialized) {
  auto const list = host.profileEntry->tableList();
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(list);
  unsigned calls = 0;
  watcher->then = [&] {
    if (++calls > 1) return;  // the second one is the manager's end
    auto const declared = list->manager(kTable);
    ASSERT_TRUE(declared);
    EXPECT_EQ(declared->pendingTableCount(), 0);
    EXPECT_FALSE(declared->initTableDone());
    EXPECT_FALSE(declared->initialized());
  };
  auto const manager = make();
  EXPECT_EQ(calls, 1u);
  EXPECT_EQ(manager->pendingTableCount(), 1);
  EXPECT_TRUE(manager->initialized());
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest, TheTableListIsUpdatedBeforeTheManagerIsInitialized) {
  auto const manager = make();
  manager->initializedIs(false);
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(manager);
  manager->handleInitialized();
  using Mgr = BfnAgentLib::BfnTableMgr;
  EXPECT_THAT(watcher->changes, ElementsAre(Mgr::kInitialized.id));
  watcher->changes.clear();
  initialize(*manager);
  manager->initializedIs(false);
  watcher->changes.clear();
  manager->handleInitialized();
  EXPECT_THAT(watcher->changes, ElementsAre(Mgr::kPendingTableCount.id, Mgr::kInitTableDone.id,
                                            Mgr::kInitialized.id));
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest, TracesOfAConstruction) {
  capabilitiesAre(true, 65535);
  make();
  EXPECT_THAT(
      TraceCapture::texts(),
      ElementsAre("virtual void BfnMacRewrite::OverlaySrcMacRewriteManager::handleInitialized(): ",
                  "virtual void BfnMacRewrite::OverlaySrcMacRewriteManager::updateTableList(): "
                  "overlaySrcMacRewriteTableSize: 65535",
                  "virtual void BfnMacRewrite::OverlaySrcMacRewriteManager::updateTableList(): "
                  "Tables pending initialization: 1"));
  for (auto const& trace : TraceCapture::records()) {
    EXPECT_EQ(trace.statement->facility(), "BfnMacRewriteTableMgr");
    EXPECT_EQ(trace.statement->level(), 9u);
  }
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest, AChipWithoutTheTableDeclaresNothing) {
  capabilitiesAre(false, 1000);
  auto const manager = make();
  EXPECT_EQ(manager->pendingTableCount(), 0);
  EXPECT_TRUE(manager->initTableDone());
  EXPECT_TRUE(manager->initialized());
  EXPECT_TRUE(host.profileEntry->tableList()->hwTables().empty());
  EXPECT_FALSE(manager->overlaySrcMacRewriteTable());
  EXPECT_THAT(
      traces(),
      ElementsAre("OverlaySrcMacRewriteManager::handleInitialized: ",
                  "OverlaySrcMacRewriteManager::updateTableList: overlaySrcMacRewriteTableSize: "
                  "1000",
                  "OverlaySrcMacRewriteManager::updateTableList: Tables pending initialization: "
                  "0"));
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest, NullInputsReadAsAChipWithoutTheTable) {
  for (bool const entry : {false, true}) {
    auto const manager = BfnMacRewrite::overlaySrcMacRewriteManagerFactory(
        entry ? host.profileEntry : nullptr, entry ? nullptr : host.systemStatus, nullptr, nullptr);
    EXPECT_TRUE(manager->initialized());
    EXPECT_EQ(manager->pendingTableCount(), 0);
  }
  EXPECT_TRUE(host.profileEntry->tableList()->hwTables().empty());
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest,
       ALaterCapabilityReachesTheStatisticsAndNotTheDeclaration) {
  auto const manager = make();
  initialize(*manager);
  capabilitiesAre(false, 65535);
  EXPECT_NE(host.profileEntry->tableList()->hwTable(kTable), nullptr);
  EXPECT_EQ(manager->pendingTableCount(), 0);
  EXPECT_EQ(manager->createCliTableStats(kTable), (BfnLib::CliTableStats{0, 65535, -1}));
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest, InitialisationBindsTheTableWithWhatItIsGiven) {
  auto const manager = make();
  RecordingDriver driver(host.chip);
  auto const slabs = Kiv::makeActive<MbbSlabKey::SlabKeyManager>();
  auto const statuses = Kiv::makeActive<BfnTableStatusManager::StatusManager>();
  manager->initializeTable(TableKey(kTable, 9, BfnId::BfnPipeId(65535)), driver.opaque(),
                           BfnDriver::BfnDevProfile("wide"), 0x80000001, slabs, nullptr, statuses);
  EXPECT_EQ(driver.session, 0x80000001u);
  EXPECT_EQ(driver.device, 9u);
  EXPECT_EQ(driver.pipe, 65535u);
  EXPECT_EQ(driver.profile, "wide");
  EXPECT_EQ(driver.table, kTable);
  ASSERT_TRUE(manager->overlaySrcMacRewriteTable());
  EXPECT_EQ(statuses->status(kTable), manager->overlaySrcMacRewriteTable()->status().get());
  EXPECT_NE(manager->overlaySrcMacRewriteTable()->slabKey(), 0u);
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest, InitialisationCountsDownAndTraces) {
  auto const manager = make();
  TraceCapture::clear();
  initialize(*manager);
  EXPECT_EQ(manager->pendingTableCount(), 0);
  EXPECT_TRUE(manager->initTableDone());
  EXPECT_THAT(
      TraceCapture::texts(),
      ElementsAre(AllOf(StartsWith("virtual void BfnMacRewrite::OverlaySrcMacRewriteManager::"
                                   "initializeTable("),
                        EndsWith("): Initializing table: overlaySrcMacRewrite pipeId: 3")),
                  EndsWith("): Table remaining: 0")));
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest,
       ASecondInitialisationReplacesTheBindingAndTheCountWraps) {
  auto const manager = make();
  initialize(*manager);
  auto const first = manager->overlaySrcMacRewriteTable();
  traces();
  initialize(*manager);
  EXPECT_NE(manager->overlaySrcMacRewriteTable(), first);
  EXPECT_EQ(first->kivRefCount(), 1u);
  EXPECT_EQ(manager->pendingTableCount(), 255);
  EXPECT_EQ(traces().back(), "OverlaySrcMacRewriteManager::initializeTable: Table remaining: 255");
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest, ABindingThatFailsLeavesTheManagerAsItWas) {
  auto const manager = make();
  RecordingDriver driver(host.chip);
  driver.refuses = true;
  EXPECT_THROW(
      manager->initializeTable(TableKey(kTable, 0, BfnId::BfnPipeId(0)), driver.opaque(),
                               BfnDriver::BfnDevProfile("p"), 1, nullptr, nullptr, nullptr),
      BfTable::BfTableException);
  EXPECT_FALSE(manager->overlaySrcMacRewriteTable());
  EXPECT_EQ(manager->pendingTableCount(), 1);
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest,
       TheDriverMayLetGoOfTheManagerOrReplaceItsBindingAtAnyCall) {
  RecordingDriver driver(host.chip);
  Ovra::IntfId const intf("Ethernet1");
  Ovra::IpAddr const sip = BfnTest::ip("10.0.0.1");
  Ovra::EthAddr const mac = BfnTest::mac("02:00:00:00:00:01");
  for (bool const replaced : {false, true}) {
    for (int call = 0; call < 4; ++call) {
      SCOPED_TRACE(call);
      driver.then = nullptr;
      auto manager = make();
      auto& raw = *manager;
      auto const bind = [&] {
        raw.initializeTable(TableKey(kTable, 0, BfnId::BfnPipeId(0)), driver.opaque(),
                            BfnDriver::BfnDevProfile("p"), 1, nullptr, nullptr, nullptr);
      };
      bind();
      if (call > 0) (void)raw.addEntry(L3::VrfName("red"), Bridging::VlanId(100), intf, sip, mac);
      driver.then = [&] { replaced ? bind() : manager.reset(); };
      if (call == 2) {
        raw.updateEntry(intf, sip, mac);
      } else if (call == 3) {
        raw.deleteEntry(intf, sip);
      } else {
        EXPECT_EQ(raw.addEntry(L3::VrfName("red"), Bridging::VlanId(100), intf, sip, mac),
                  PexTypes::TableAddStatus::Success);
      }
      EXPECT_EQ(manager != nullptr, replaced);
      EXPECT_EQ(host.rows().size(), call == 3 ? 0u : 1u);
    }
  }
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest, AHandlerOfThePendingCountMayLetGoOfTheManager) {
  auto manager = make();
  auto& raw = *manager;
  auto watcher = Kiv::makeActive<BfnTest::Watcher>(manager);
  watcher->then = [&] {
    watcher.reset();
    manager.reset();
  };
  TraceCapture::clear();
  initialize(raw);
  EXPECT_FALSE(manager);
  EXPECT_EQ(traces().back(), "OverlaySrcMacRewriteManager::initializeTable: Table remaining: 0");
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest, AnExceptionOfTheDeclarationComesOutOfTheFactory) {
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(host.profileEntry->tableList());
  watcher->then = [&] {
    watcher->then = nullptr;
    throw std::runtime_error("not this table");
  };
  EXPECT_THROW((void)make(), std::runtime_error);
  EXPECT_TRUE(host.profileEntry->tableList()->hwTables().empty());
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest,
       ASecondManagerWhoseDeclarationFailsLeavesTheFirstOnes) {
  auto const first = make();
  auto const list = host.profileEntry->tableList();
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(list);
  watcher->then = [&] {
    watcher->then = nullptr;
    throw std::runtime_error("not this table");
  };
  EXPECT_THROW((void)make(), std::runtime_error);
  EXPECT_EQ(list->manager(kTable), first);
  EXPECT_EQ(watcher->changes.size(), 2u) << "the second one, and the first one again";
}

TEST_F(OverlaySrcMacRewriteManagerSetupTest, StatisticsCountTheRowsInUse) {
  auto const manager = make();
  initialize(*manager);
  EXPECT_EQ(manager->createCliTableStats(kTable), (BfnLib::CliTableStats{0, 1000, -1}));
  for (char const* const address : {"10.0.0.1", "10.0.0.2"}) {
    (void)manager->addEntry(L3::VrfName("red"), Bridging::VlanId(100), Ovra::IntfId("Ethernet1"),
                            BfnTest::ip(address), BfnTest::mac("02:00:00:00:00:01"));
  }
  EXPECT_EQ(manager->createCliTableStats(kTable), (BfnLib::CliTableStats{2, 1000, -1}));
  manager->deleteEntry(Ovra::IntfId("Ethernet1"), BfnTest::ip("10.0.0.1"));
  EXPECT_EQ(manager->createCliTableStats(kTable).entriesInUse, 1u);
  EXPECT_EQ(manager->populateAndReturnStats(kTable, BfnId::BfnPipeId(2)),
            (BfnLib::CliTableStats{1, 1000, -1}));
}

using OverlaySrcMacRewriteManagerSetupDeathTest = OverlaySrcMacRewriteManagerSetupTest;

TEST_F(OverlaySrcMacRewriteManagerSetupDeathTest,
       InitialisationOfAnotherTableIsFatalAfterItsTrace) {
  auto const manager = make();
  Kiv::TraceHandle::levelsAre("BfnMacRewriteTableMgr", ~Kiv::U32{0});
  EXPECT_DEATH(
      initialize(*manager, "other"),
      AllOf(diesAs("tableKey.tableName() == \"overlaySrcMacRewrite\"", "Unknown table name: other"),
            ::testing::ContainsRegex("Initializing table: other pipeId: 3\nFailed")));
  Kiv::TraceHandle::levelsAre("BfnMacRewriteTableMgr", 0);
}

TEST_F(OverlaySrcMacRewriteManagerSetupDeathTest,
       InitialisationOfAnotherTableIsFatalBeforeTheChipIsAsked) {
  auto const manager = make();
  RecordingDriver driver(host.chip);
  driver.refuses = true;
  EXPECT_DEATH(
      manager->initializeTable(TableKey("other", 0, BfnId::BfnPipeId(0)), driver.opaque(),
                               BfnDriver::BfnDevProfile("p"), 1, nullptr, nullptr, nullptr),
      "Unknown table name: other");
}

TEST_F(OverlaySrcMacRewriteManagerSetupDeathTest, StatisticsOfAnotherTableAreFatal) {
  auto const manager = make();
  initialize(*manager);
  EXPECT_DEATH((void)manager->createCliTableStats("other"),
               diesAs("hwTable == \"overlaySrcMacRewrite\"", "Invalid table name: other"));
}

TEST_F(OverlaySrcMacRewriteManagerSetupDeathTest, StatisticsBeforeInitialisationAreFatal) {
  auto const manager = make();
  EXPECT_DEATH((void)manager->createCliTableStats(kTable), "null Kiv::Ptr dereferenced");
}

}  // namespace
