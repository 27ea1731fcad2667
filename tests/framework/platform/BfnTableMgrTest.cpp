// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/BfnTableMgr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/core/AllocTrack.h"
#include "framework/core/Exceptions.h"
#include "framework/platform/TableInitialization.h"
#include "tests/support/AllocationCount.h"
#include "tests/support/Watcher.h"

namespace {

using BfnAgentLib::BfnProfileDataEntry;
using BfnAgentLib::BfnTableMgr;
using BfnAgentLib::HwTable;
using BfnAgentLib::TableKey;
using BfnAgentLib::TableList;
using BfnAgentLib::TableScope;
using BfnSystem::ChipCapabilities;
using BfnSystem::SystemStatus;
using Kiv::Ptr;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Call {
  std::string table;
  unsigned device;
  unsigned pipe;
  Kiv::VoidPtr dlHandle;
  std::string profile;
  Kiv::U32 session;
  bool hasStatus;
};

// Declares the tables it is given, from its own constructor.
class SomeManager final : public BfnTableMgr {
 public:
  SomeManager(Ptr<BfnProfileDataEntry> const& entry, Ptr<SystemStatus const> const& status,
              std::vector<std::string> tables = {"some"})
      : BfnTableMgr(entry, status), tables_(std::move(tables)) {
    handleInitialized();
  }
  void updateTableList() override {
    if (!profileEntry()) return;
    for (std::string const& table : tables_) {
      profileEntry()->tableList()->hwTablesIs(table, TableScope::Device, true, true, false,
                                              Ptr<BfnTableMgr>(this));
    }
    pendingTableCountIs(static_cast<Kiv::U8>(tables_.size()));
  }
  void initializeTable(TableKey const& key, Kiv::VoidPtr dlHandle,
                       BfnDriver::BfnDevProfile const& profile, Kiv::U32 session,
                       Ptr<MbbSlabKey::SlabKeyManager> const&,
                       Ptr<BfnTableStatus::Status> const& status,
                       Ptr<BfnTableStatusManager::StatusManager> const&) override {
    calls.push_back({key.tableName().stdString(), key.device(), key.pipeId().value(), dlHandle,
                     profile.name(), session, status != nullptr});
    if (fail) throw std::runtime_error("no");
    if (onInitialize) onInitialize->hwTablesDel(tables_.back());
    pendingTableCountDec(1);
  }
  BfnLib::CliTableStats createCliTableStats(Kiv::Name hwTable) override {
    return {static_cast<Kiv::U32>(hwTable.view().size()), 10, -1};
  }

  std::vector<Call> calls;
  bool fail = false;
  Ptr<TableList> onInitialize;

 private:
  std::vector<std::string> tables_;
};

std::vector<std::string> names(TableList const& list) {
  std::vector<std::string> result;
  for (HwTable const& table : list.hwTables()) result.push_back(table.name.stdString());
  return result;
}

class BfnTableMgrTest : public ::testing::Test {
 protected:
  Kiv::U64 const liveBefore_ = Kiv::AllocTrackTypeInfo::liveObjects();
  Ptr<BfnProfileDataEntry> entry = Kiv::makeActive<BfnProfileDataEntry>("l3");
  Ptr<SystemStatus> system = Kiv::makeActive<SystemStatus>();
  Ptr<TableList> list = entry->tableList();

  Ptr<SomeManager> manager(std::vector<std::string> tables = {"some"}) {
    return Kiv::makeActive<SomeManager>(entry, system, std::move(tables));
  }
  void TearDown() override {
    entry.reset();
    system.reset();
    list.reset();
    EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), liveBefore_);
  }
};

TEST_F(BfnTableMgrTest, DeclaringFromTheConstructorKeepsTheManagerAliveOnlyThroughItsOwner) {
  auto mgr = manager();
  EXPECT_EQ(mgr->kivRefCount(), 1u);
  EXPECT_EQ(list->manager("some").get(), mgr.get());
  EXPECT_TRUE(mgr->initialized());
}

TEST_F(BfnTableMgrTest, DeclarationCarriesScopeAndFlags) {
  auto const mgr = manager({});
  list->hwTablesIs("a", TableScope{0}, true, true, false, mgr);
  HwTable const* const table = list->hwTable("a");
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->scope, TableScope::Device);
  EXPECT_TRUE(table->needsInitialization);
  EXPECT_TRUE(table->hasStats);
  EXPECT_FALSE(table->persistent);
  EXPECT_EQ(list->hwTable("b"), nullptr);
  EXPECT_EQ(list->manager("b"), nullptr);
}

TEST_F(BfnTableMgrTest, DyingManagerTakesItsTablesOut) {
  auto first = manager({"a", "b"});
  auto const second = manager({"c"});
  first.reset();
  EXPECT_THAT(names(*list), ElementsAre("c"));
}

TEST_F(BfnTableMgrTest, DyingManagerLeavesADeclarationThatAnotherHasTakenOver) {
  auto first = manager();
  auto const second = manager();
  first.reset();
  EXPECT_EQ(list->manager("some").get(), second.get());
}

TEST_F(BfnTableMgrTest, ListOutlivesItsProfileEntryWhileAManagerIsDeclaredThere) {
  auto mgr = manager();
  entry.reset();
  system.reset();
  EXPECT_EQ(list->manager("some").get(), mgr.get());
  mgr.reset();
  EXPECT_THAT(names(*list), IsEmpty());
}

TEST_F(BfnTableMgrTest, ADyingManagerAllocatesNothing) {
  auto mgr = manager({"a", "b", "a name of many more characters than fit into an object"});
  auto const other = manager({"c"});
  size_t const before = BfnTest::allocationCount();
  mgr.reset();
  EXPECT_EQ(BfnTest::allocationCount(), before);
  EXPECT_THAT(names(*list), ElementsAre("c"));
}

TEST_F(BfnTableMgrTest, AManagerThatIsMadeWithoutMemoryLeavesTheEarlierDeclarationOrItsOwn) {
  auto const first = manager();
  Ptr<SomeManager> second;
  size_t const failures =
      BfnTest::failEachAllocation([&] { second = Kiv::makeActive<SomeManager>(entry, system); },
                                  [&](size_t n) {
                                    EXPECT_EQ(list->manager("some"), first) << n;
                                    EXPECT_THAT(names(*list), ElementsAre("some")) << n;
                                  });
  EXPECT_GT(failures, 2u);
  EXPECT_EQ(list->manager("some"), second);
  second.reset();
  EXPECT_THAT(names(*list), IsEmpty());
}

TEST_F(BfnTableMgrTest, HandlersThatThrowAtAManagersDeathHearOfEachTableAndNoneIsLeft) {
  auto mgr = manager({"a", "b"});
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(list);
  watcher->then = [&] {
    EXPECT_THAT(names(*list), IsEmpty());
    throw std::runtime_error("no");
  };
  mgr.reset();
  EXPECT_EQ(watcher->changes.size(), 2u);
}

TEST_F(BfnTableMgrTest, ADeclarationWhoseHandlerThrowsIsTakenBackAndCanBeRepeated) {
  auto const first = manager();
  auto const second = manager({});
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(list);
  auto const declare = [&](char const* name) {
    list->hwTablesIs(name, TableScope::Pipe, false, false, true, second);
  };
  watcher->then = [&] {
    if (watcher->changes.size() % 2 == 1) throw std::runtime_error("no");
  };
  EXPECT_THROW(declare("some"), std::runtime_error);
  EXPECT_EQ(list->manager("some"), first);
  EXPECT_EQ(list->hwTable("some")->scope, TableScope::Device);
  EXPECT_THROW(declare("other"), std::runtime_error);
  EXPECT_THAT(names(*list), ElementsAre("some"));
  EXPECT_EQ(watcher->changes.size(), 4u);
  watcher->then = nullptr;
  declare("some");
  declare("other");
  EXPECT_EQ(list->manager("some"), second);
  EXPECT_THAT(names(*list), ElementsAre("some", "other"));
}

TEST_F(BfnTableMgrTest, AHandlerThatThrowsMayHaveReleasedTheEarlierManager) {
  auto first = manager();
  auto const second = manager({});
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(list);
  watcher->then = [&] {
    watcher->then = nullptr;
    first.reset();
    throw std::runtime_error("no");
  };
  EXPECT_THROW(list->hwTablesIs("some", TableScope::Device, true, true, false, second),
               std::runtime_error);
  EXPECT_THAT(names(*list), IsEmpty());
}

TEST_F(BfnTableMgrTest, AHandlerThatThrowsMayHaveDeclaredTheTableAnew) {
  auto const first = manager();
  auto const second = manager({});
  auto const third = manager({});
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(list);
  watcher->then = [&] {
    watcher->then = nullptr;
    list->hwTablesIs("some", TableScope::Device, true, true, false, third);
    throw std::runtime_error("no");
  };
  EXPECT_THROW(list->hwTablesIs("some", TableScope::Device, true, true, false, second),
               std::runtime_error);
  EXPECT_EQ(list->manager("some"), third);
}

TEST_F(BfnTableMgrTest, NullManagerCannotDeclare) {
  EXPECT_THROW(list->hwTablesIs("a", TableScope::Device, true, true, false, nullptr),
               Kiv::NullPointerException);
  EXPECT_THAT(names(*list), IsEmpty());
}

TEST_F(BfnTableMgrTest, TablesCanBeTakenOutByName) {
  auto const mgr = manager({"a", "b"});
  list->hwTablesDel("a");
  list->hwTablesDel("never");
  EXPECT_THAT(names(*list), ElementsAre("b"));
}

TEST_F(BfnTableMgrTest, CapabilitiesAreThoseOfTheEntrysProfileReadAfreshByEachCall) {
  auto const mgr = manager();
  EXPECT_EQ(mgr->chipCapabilities(), ChipCapabilities());
  system->profileInfoIs("other")->chipCapabilitiesIs({true, 1});
  EXPECT_EQ(mgr->chipCapabilities(), ChipCapabilities());
  system->profileInfoIs("l3")->chipCapabilitiesIs({true, 65535});
  EXPECT_EQ(mgr->chipCapabilities(), ChipCapabilities(true, 65535));
  system->profileInfoIs("l3")->chipCapabilitiesIs({false, 9});
  EXPECT_EQ(mgr->chipCapabilities(), ChipCapabilities(false, 9));
  system->profileInfoDel("l3");
  EXPECT_EQ(mgr->chipCapabilities(), ChipCapabilities());
}

TEST_F(BfnTableMgrTest, CapabilitiesAreDefaultWithoutSystemStatusOrEntry) {
  system->profileInfoIs("")->chipCapabilitiesIs({true, 1});
  auto const withoutStatus = Kiv::make<SomeManager>(entry, nullptr);
  EXPECT_EQ(withoutStatus->chipCapabilities(), ChipCapabilities());
  auto const withoutEntry = Kiv::make<SomeManager>(nullptr, system);
  EXPECT_EQ(withoutEntry->chipCapabilities(), ChipCapabilities());
}

TEST_F(BfnTableMgrTest, PendingCountWrapsAndItsFirstZeroEndsInitialisation) {
  auto const mgr = manager({"a", "b"});
  EXPECT_EQ(mgr->pendingTableCount(), 2u);
  EXPECT_FALSE(mgr->initTableDone());
  EXPECT_EQ(mgr->pendingTableCountDec(1), 1u);
  EXPECT_FALSE(mgr->initTableDone());
  EXPECT_EQ(mgr->pendingTableCountDec(1), 0u);
  EXPECT_TRUE(mgr->initTableDone());
  EXPECT_EQ(mgr->pendingTableCountDec(1), 255u);
  EXPECT_TRUE(mgr->initTableDone());
  mgr->pendingTableCountIs(3);
  EXPECT_FALSE(mgr->initTableDone());
}

TEST_F(BfnTableMgrTest, StatsOfAPipeAreThoseOfTheTable) {
  auto const mgr = manager();
  EXPECT_EQ(mgr->populateAndReturnStats("four", BfnId::BfnPipeId(2)),
            (BfnLib::CliTableStats{4, 10, -1}));
}

class TableInitializationTest : public BfnTableMgrTest {
 protected:
  int chip = 0;
  BfnAgentLib::TableInitialization with{
      &chip, BfnDriver::BfnDevProfile("prof"), 7, 2, BfnId::BfnPipeId(3), nullptr, nullptr};
};

TEST_F(TableInitializationTest, EachDeclaredTableIsInitialisedOnceInOrder) {
  auto const mgr = manager({"b", "a"});
  EXPECT_EQ(initializeTables(entry, with), 2u);
  ASSERT_EQ(mgr->calls.size(), 2u);
  EXPECT_EQ(mgr->calls[0].table, "b");
  EXPECT_EQ(mgr->calls[1].table, "a");
  EXPECT_EQ(mgr->calls[0].device, 2u);
  EXPECT_EQ(mgr->calls[0].pipe, 3u);
  EXPECT_EQ(mgr->calls[0].dlHandle, &chip);
  EXPECT_EQ(mgr->calls[0].profile, "prof");
  EXPECT_EQ(mgr->calls[0].session, 7u);
  EXPECT_FALSE(mgr->calls[0].hasStatus);
  EXPECT_EQ(initializeTables(entry, with), 0u);
}

TEST_F(TableInitializationTest, StatusManagerGivesEachTableItsStatus) {
  auto const mgr = manager();
  with.statusManager = Kiv::makeActive<BfnTableStatusManager::StatusManager>();
  initializeTables(entry, with);
  EXPECT_TRUE(mgr->calls.at(0).hasStatus);
  EXPECT_NE(with.statusManager->status("some"), nullptr);
  with.statusManager.reset();
}

TEST_F(TableInitializationTest, NothingIsInitialisedWithoutEntryOrForADeadManager) {
  EXPECT_EQ(initializeTables(nullptr, with), 0u);
  manager().reset();
  EXPECT_EQ(initializeTables(entry, with), 0u);
}

TEST_F(TableInitializationTest, TableThatNeedsNoInitialisationIsLeftAlone) {
  auto const mgr = manager({});
  list->hwTablesIs("quiet", TableScope::Device, false, true, false, mgr);
  mgr->pendingTableCountIs(1);
  EXPECT_EQ(initializeTables(entry, with), 0u);
}

TEST_F(TableInitializationTest, TableThatAnEarlierOneTakesOutIsSkipped) {
  auto const mgr = manager({"a", "b"});
  mgr->onInitialize = list;
  EXPECT_EQ(initializeTables(entry, with), 1u);
  mgr->onInitialize.reset();
}

TEST_F(TableInitializationTest, ExceptionEndsTheWalkAndLeavesTheTablePending) {
  auto const mgr = manager();
  mgr->fail = true;
  EXPECT_THROW(initializeTables(entry, with), std::runtime_error);
  EXPECT_EQ(mgr->pendingTableCount(), 1u);
  mgr->fail = false;
  EXPECT_EQ(initializeTables(entry, with), 1u);
}

}  // namespace
