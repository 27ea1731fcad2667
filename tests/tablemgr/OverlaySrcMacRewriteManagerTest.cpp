// SPDX-License-Identifier: Apache-2.0
#include "tests/tablemgr/OverlaySrcMacRewriteManagerTest.h"

#include <array>
#include <sstream>
#include <stdexcept>

#include "framework/generic/GenericValue.h"
#include "framework/generic/Type.h"
#include "framework/log/LogHandle.h"
#include "framework/log/LogService.h"
#include "framework/platform/BfTableException.h"
#include "tests/support/AllocationCount.h"
#include "tests/support/RecordingDriver.h"
#include "tests/support/TraceStatements.h"
#include "tests/support/Watcher.h"

// Rows of the chip: written once, shared, counted.
namespace {

using BfnMacRewrite::MatchSpecAndRefCount;
using BfnMacRewrite::OverlaySrcMacRewriteManager;
using BfnTest::diesAs;
using BfnTest::ip;
using BfnTest::kMac;
using BfnTest::kOtherMac;
using BfnTest::mac;
using BfnTest::OverlaySrcMacRewriteManagerTest;
using BfnTest::TraceCapture;
using Bridging::VlanId;
using PexTypes::TableAddStatus;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr char const* kLogName = "BFN_VXLAN_MAC_REWRITE_TABLE_FULL";

TEST_F(OverlaySrcMacRewriteManagerTest, ANewKeyIsWrittenAndRememberedOnce) {
  EXPECT_EQ(static_cast<unsigned>(add("Ethernet1", "10.0.0.1")), 0u);
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 02:11:22:33:44:55"));
  ASSERT_EQ(manager->matchSpecAndRefCount().size(), 1u);
  auto const made = record("Ethernet1", "10.0.0.1");
  ASSERT_TRUE(made);
  EXPECT_EQ(made->refCount(), 1);
  EXPECT_TRUE(made->hasNotificationActive());
  auto const spec = made->overlaySrcMacRewriteMatchSpec();
  ASSERT_TRUE(spec);
  EXPECT_EQ(spec->matchType(), 5);
  EXPECT_EQ(spec->vlan(), 100);
  EXPECT_EQ(spec->sourceIp(), 0x0100000Au);
  EXPECT_EQ(spec->valid(), 1);
  EXPECT_TRUE(spec->hasNotificationActive());
  auto const entry = manager->overlaySrcMacRewriteTable()->entry(spec);
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry.actionSpec()->oui(), 0x021122u);
  EXPECT_EQ(entry.actionSpec()->station(), 0x334455u);
}

TEST_F(OverlaySrcMacRewriteManagerTest, TheLargestValuesReachTheChipWhole) {
  add("Ethernet1", "255.254.253.252", "ff:fe:fd:fc:fb:fa", 4094);
  EXPECT_THAT(host.rows(), ElementsAre("4094 255.254.253.252 ff:fe:fd:fc:fb:fa"));
}

TEST_F(OverlaySrcMacRewriteManagerTest, TracesOfANewKey) {
  add("Ethernet1", "10.0.0.1");
  EXPECT_THAT(TraceCapture::texts(),
              ElementsAre(AllOf(StartsWith("PexTypes::TableAddStatus BfnMacRewrite::"
                                           "OverlaySrcMacRewriteManager::addEntry(L3::VrfName, "
                                           "Bridging::VlanId, Ovra::IntfId, Ovra::IpAddr, "),
                                ::testing::EndsWith("): vrfName: red l3Aintf: 100 intfId: "
                                                    "Ethernet1, overlaySip: 10.0.0.1, "
                                                    "overlayRewriteSrcMac: 02:11:22:33:44:55")),
                          ::testing::EndsWith("): Table programming successful")));
  for (auto const& trace : TraceCapture::records()) {
    EXPECT_EQ(trace.statement->facility(), "BfnMacRewriteTableMgr");
    EXPECT_EQ(trace.statement->level(), 9u);
  }
}

TEST_F(OverlaySrcMacRewriteManagerTest, EveryTraceHasItsLevel) {
  add("Ethernet1", "10.0.0.1");
  add("Ethernet1", "10.0.0.1");
  manager->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"));
  failNext(BfnChip::Fault::Kind::TableFull);
  add("Ethernet2", "10.0.0.2");
  failNext(BfnChip::Fault::Kind::NoSysResources);
  add("Ethernet2", "10.0.0.2");
  EXPECT_THAT(
      BfnTest::traceStatements("BfnMacRewriteTableMgr"),
      ElementsAre(
          "9 addEntry: Duplicate match spec exists, update the table entry and upthe ref count.",
          "9 addEntry: System resources exhausted, hardware programming failed",
          "9 addEntry: Table is full, hardware programming failed",
          "9 addEntry: Table programming successful",
          "9 addEntry: vrfName: %s l3Aintf: %s intfId: %s, overlaySip: %s, overlayRewriteSrcMac: "
          "%s",
          "9 deleteEntry: intfId: %s, overlaySip: %s",
          "9 handleInitialized: ", "9 initializeTable: Initializing table: %s pipeId: %s",
          "9 initializeTable: Table remaining: %s",
          "9 updateEntry: intfd: %s, overlaySip: %s, overlayRewriteSrcMac: %s",
          "9 updateTableList: Tables pending initialization: %s",
          "9 updateTableList: overlaySrcMacRewriteTableSize: %s"));
}

TEST_F(OverlaySrcMacRewriteManagerTest, AKeyThatIsThereGetsTheNewMacAndKeepsItsVlan) {
  add("Ethernet1", "10.0.0.1");
  auto const before = record("Ethernet1", "10.0.0.1");
  auto const spec = before->overlaySrcMacRewriteMatchSpec();
  host.journal();
  traces();
  EXPECT_EQ(add("Ethernet1", "10.0.0.1", kOtherMac, 200, "blue"), TableAddStatus::Success);
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 02:11:22:33:44:66"));
  EXPECT_EQ(record("Ethernet1", "10.0.0.1"), before);
  EXPECT_EQ(before->overlaySrcMacRewriteMatchSpec(), spec);
  EXPECT_EQ(before->refCount(), 2);
  for (auto const& trace : TraceCapture::records()) EXPECT_EQ(trace.statement->level(), 9u);
  EXPECT_THAT(traces(),
              ElementsAre("OverlaySrcMacRewriteManager::addEntry: vrfName: blue l3Aintf: 200 "
                          "intfId: Ethernet1, overlaySip: 10.0.0.1, overlayRewriteSrcMac: "
                          "02:11:22:33:44:66",
                          "OverlaySrcMacRewriteManager::addEntry: Duplicate match spec exists, "
                          "update the table entry and upthe ref count.",
                          "OverlaySrcMacRewriteManager::updateEntry: intfd: Ethernet1, "
                          "overlaySip: 10.0.0.1, overlayRewriteSrcMac: 02:11:22:33:44:66"));
}

TEST_F(OverlaySrcMacRewriteManagerTest, ARowLeavesWithItsLastReference) {
  add("Ethernet1", "10.0.0.1");
  add("Ethernet1", "10.0.0.1");
  host.journal();
  traces();
  manager->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"));
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 1);
  EXPECT_THAT(traces(), ElementsAre("OverlaySrcMacRewriteManager::deleteEntry: intfId: Ethernet1, "
                                    "overlaySip: 10.0.0.1"));
  manager->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"));
  EXPECT_THAT(host.journal(), ElementsAre("erase 100 10.0.0.1"));
  EXPECT_FALSE(record("Ethernet1", "10.0.0.1"));
}

TEST_F(OverlaySrcMacRewriteManagerTest, AnUpdateRewritesTheActionOnly) {
  add("Ethernet1", "10.0.0.1");
  auto const spec = record("Ethernet1", "10.0.0.1")->overlaySrcMacRewriteMatchSpec();
  host.journal();
  traces();
  manager->updateEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"), mac(kOtherMac));
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 02:11:22:33:44:66"));
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->overlaySrcMacRewriteMatchSpec(), spec);
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 1);
  EXPECT_THAT(traces(), ElementsAre("OverlaySrcMacRewriteManager::updateEntry: intfd: Ethernet1, "
                                    "overlaySip: 10.0.0.1, overlayRewriteSrcMac: "
                                    "02:11:22:33:44:66"));
}

TEST_F(OverlaySrcMacRewriteManagerTest, OneAddressOnTwoInterfacesIsTwoRecordsAlsoInOneVlan) {
  add("Ethernet1", "10.0.0.1");
  add("Ethernet2", "10.0.0.1");
  EXPECT_EQ(host.journal().size(), 2u);
  EXPECT_EQ(manager->matchSpecAndRefCount().size(), 2u);
  EXPECT_EQ(host.rows().size(), 1u);
  manager->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"));
  manager->deleteEntry(Ovra::IntfId("Ethernet2"), ip("10.0.0.1"));
  EXPECT_THAT(host.journal(), ElementsAre("erase 100 10.0.0.1", HasSubstr("erase 100 10.0.0.1")));
  EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
}

TEST_F(OverlaySrcMacRewriteManagerTest, OneAddressInTwoVlansOfTwoInterfacesIsTwoRows) {
  add("Ethernet1", "10.0.0.1", kMac, 100);
  add("Ethernet2", "10.0.0.1", kOtherMac, 200);
  EXPECT_THAT(host.rows(),
              ElementsAre("100 10.0.0.1 02:11:22:33:44:55", "200 10.0.0.1 02:11:22:33:44:66"));
}

TEST_F(OverlaySrcMacRewriteManagerTest, AKeyNeverHasTheSelfIpFlag) {
  add("Ethernet1", "10.0.0.1");
  EXPECT_FALSE(manager->matchSpecAndRefCount({ip("10.0.0.1"), Ovra::IntfId("Ethernet1"), true}));
  EXPECT_FALSE(record("Ethernet1", "10.0.0.1")->ipAndIntfId().selfIp);
}

TEST_F(OverlaySrcMacRewriteManagerTest, AFullTableIsReportedLoggedAndForgotten) {
  failNext(BfnChip::Fault::Kind::TableFull);
  EXPECT_EQ(static_cast<unsigned>(add("Ethernet1", "10.0.0.1")), 2u);
  EXPECT_THAT(host.journal(), ElementsAre(StartsWith("write 100 10.0.0.1 02:11:22:33:44:55 ")));
  EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
  EXPECT_THAT(traces(), ElementsAre(HasSubstr("addEntry: vrfName: red"),
                                    "OverlaySrcMacRewriteManager::addEntry: Table is full, "
                                    "hardware programming failed"));
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_EQ(logged[0].name, kLogName);
  EXPECT_EQ(static_cast<int>(logged[0].severity), 4);
  EXPECT_EQ(logged[0].text,
            "Failed to program VXLAN forwarding source MAC address rewrite action for VRF: red "
            "source IP: 10.0.0.1 due to hardware resource exhaustion.");
}

TEST_F(OverlaySrcMacRewriteManagerTest, AChipAtItsCapacityRefusesTheNextKeyOnly) {
  host.chip.tableIs("overlaySrcMacRewrite", 1);
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::Success);
  EXPECT_EQ(add("Ethernet1", "10.0.0.2"), TableAddStatus::ResourcesExhausted);
  EXPECT_EQ(add("Ethernet1", "10.0.0.1", kOtherMac), TableAddStatus::Success);
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 02:11:22:33:44:66"));
}

TEST_F(OverlaySrcMacRewriteManagerTest, ExhaustedSystemResourcesDifferInTheTraceAlone) {
  failNext(BfnChip::Fault::Kind::NoSysResources);
  EXPECT_EQ(static_cast<unsigned>(add("Ethernet1", "10.0.0.1")), 2u);
  EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
  EXPECT_THAT(traces(), ElementsAre(HasSubstr("addEntry: vrfName: red"),
                                    "OverlaySrcMacRewriteManager::addEntry: System resources "
                                    "exhausted, hardware programming failed"));
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_EQ(logged[0].text,
            "Failed to program VXLAN forwarding source MAC address rewrite action for VRF: red "
            "source IP: 10.0.0.1 due to hardware resource exhaustion.");
}

TEST_F(OverlaySrcMacRewriteManagerTest, AFailedKeyIsTriedAgainAndLoggedOncePerMinute) {
  failNext(BfnChip::Fault::Kind::TableFull, 3);
  add("Ethernet1", "10.0.0.1");
  clock += 59.9;
  add("Ethernet1", "10.0.0.2");
  EXPECT_EQ(logged.size(), 1u);
  clock += 0.2;
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::ResourcesExhausted);
  ASSERT_EQ(logged.size(), 2u);
  EXPECT_EQ(logged[1].heldBack, 1u);
  EXPECT_EQ(host.journal().size(), 3u);
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::Success);
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 1);
}

TEST_F(OverlaySrcMacRewriteManagerTest, ARefusedRowIsTracedBeforeItIsLogged) {
  std::vector<std::string> traced;
  Kiv::LogService::sinkIs([&](Kiv::LogMessage const&) { traced.push_back(traces().back()); });
  failNext(BfnChip::Fault::Kind::TableFull);
  add("Ethernet1", "10.0.0.1");
  clock += 61;
  failNext(BfnChip::Fault::Kind::NoSysResources);
  add("Ethernet1", "10.0.0.1");
  EXPECT_THAT(traced, ElementsAre(HasSubstr("Table is full"), HasSubstr("resources exhausted")));
}

TEST_F(OverlaySrcMacRewriteManagerTest, APercentSignInAVrfNameIsData) {
  failNext(BfnChip::Fault::Kind::TableFull);
  add("Ethernet1", "10.0.0.1", kMac, 100, "%s%n%d");
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_EQ(logged[0].text,
            "Failed to program VXLAN forwarding source MAC address rewrite action for VRF: %s%n%d "
            "source IP: 10.0.0.1 due to hardware resource exhaustion.");
}

TEST_F(OverlaySrcMacRewriteManagerTest, TheLogMessageIsRegisteredWithItsTexts) {
  Kiv::LogHandle const* const handle = Kiv::LogHandle::find(kLogName);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(static_cast<int>(handle->severity()), 4);
  EXPECT_EQ(handle->format(),
            "Failed to program VXLAN forwarding source MAC address rewrite action for VRF: %s "
            "source IP: %s due to hardware resource exhaustion.");
  EXPECT_EQ(handle->explanation(),
            "The switch failed to program the hardware entry to perform a source MAC address "
            "rewrite action for VXLAN forwarded packets matching the specified VRF and source "
            "IPv4 address. This occurred because the hardware resources used to perform this "
            "action are exhausted.");
  EXPECT_EQ(handle->recommendedAction(),
            "Remove some of the entries configured with the vxlan forwarding match vrf <VRF> "
            "src-ip <IP> action rewrite src-mac <M> to make room for the new entry being "
            "configured.");
  EXPECT_EQ(handle->interval(), 60.0);
  EXPECT_EQ(handle->burst(), 1.0);
  EXPECT_FALSE(handle->rateLimitArgs());
  int handles = 0;
  Kiv::LogHandle::forEach([&](Kiv::LogHandle& each) { handles += each.name() == kLogName; });
  EXPECT_EQ(handles, 1);
}

TEST_F(OverlaySrcMacRewriteManagerTest, AnyOtherExceptionPassesThroughAndLeavesNoRecord) {
  host.chip.faults().failNext(
      1, {BfnChip::Fault::Kind::Exception, std::make_exception_ptr(std::out_of_range("odd"))});
  EXPECT_THROW(add("Ethernet1", "10.0.0.1"), std::out_of_range);
  failNext(BfnChip::Fault::Kind::Error);
  EXPECT_THROW(add("Ethernet1", "10.0.0.1"), BfTable::BfTableException);
  EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
  EXPECT_THAT(logged, IsEmpty());
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::Success);
}

TEST_F(OverlaySrcMacRewriteManagerTest, AnUpdateCatchesNothingAlsoWithinADuplicateAdd) {
  add("Ethernet1", "10.0.0.1");
  failNext(BfnChip::Fault::Kind::TableFull, 2);
  EXPECT_THROW(manager->updateEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"), mac(kOtherMac)),
               BfTable::BfTableFull);
  EXPECT_THROW(add("Ethernet1", "10.0.0.1", kOtherMac), BfTable::BfTableFull);
  failNext(BfnChip::Fault::Kind::NoSysResources);
  EXPECT_THROW(add("Ethernet1", "10.0.0.1", kOtherMac), BfTable::BfNoSysResources);
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 1);
  EXPECT_THAT(logged, IsEmpty());
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 02:11:22:33:44:55"));
}

TEST_F(OverlaySrcMacRewriteManagerTest, TheCountWrapsAtBothEndsUnchecked) {
  add("Ethernet1", "10.0.0.1");
  auto const shared = record("Ethernet1", "10.0.0.1");
  shared->refCountIs(65535);
  add("Ethernet1", "10.0.0.1");
  EXPECT_EQ(shared->refCount(), 0);
  host.journal();
  manager->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"));
  EXPECT_EQ(shared->refCount(), 65535);
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(record("Ethernet1", "10.0.0.1"), shared);
}

TEST_F(OverlaySrcMacRewriteManagerTest, KeyToMatchSpecGetIsCalledByName) {
  add("Ethernet1", "10.0.0.1");
  std::array<Kiv::GenericValue, 2> const arguments{Kiv::GenericValue::of(Ovra::IntfId("Ethernet1")),
                                                   Kiv::GenericValue("10.0.0.1")};
  auto const spec =
      manager->genericIfAttributeOp(Kiv::GenericOp::Call, "keyToMatchSpecGet", arguments);
  EXPECT_EQ(spec.object(), record("Ethernet1", "10.0.0.1")->overlaySrcMacRewriteMatchSpec());
  EXPECT_EQ(manager->keyToMatchSpecGet(Ovra::IntfId("Ethernet1"), ip("10.0.0.1")),
            record("Ethernet1", "10.0.0.1")->overlaySrcMacRewriteMatchSpec());
}

TEST_F(OverlaySrcMacRewriteManagerTest, EveryOperationIsReachedByName) {
  using Kiv::GenericValue;
  auto const call = [this](std::string_view operation, std::vector<GenericValue> arguments) {
    return manager->genericIfAttributeOp(Kiv::GenericOp::Call, operation, arguments);
  };
  GenericValue const intf = GenericValue::of(Ovra::IntfId("Ethernet1"));
  EXPECT_EQ(call("addEntry", {GenericValue::of(L3::VrfName("red")), "100", intf, "10.0.0.1", kMac})
                .strep(),
            "0");
  call("updateEntry", {intf, "10.0.0.1", kOtherMac});
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 02:11:22:33:44:66"));
  host.vrf("red", 7);
  host.port("Ethernet1", 100, 7);
  host.stage2();
  EXPECT_EQ(call("intfIdToVrfName", {intf}).as<L3::VrfName>(), L3::VrfName("red"));
  call("deleteEntry", {intf, "10.0.0.1"});
  EXPECT_THAT(host.rows(), IsEmpty());
}

TEST_F(OverlaySrcMacRewriteManagerTest, TheVrfNameOfAnInterfaceIsEmptyWhenItsVrfHasNone) {
  auto const status =
      Kiv::makeActive<BfnL3::L3IntfRoutingStatus>(Pex::PortVlanPair(Ovra::IntfId("Ethernet1"), 0));
  status->vrfIdIs(Pex::VrfId(7));
  host.agent->intfIdToRoutingStatus()->l3IntfRoutingStatusIs(Ovra::IntfId("Ethernet1"), status);
  EXPECT_EQ(manager->intfIdToVrfName(Ovra::IntfId("Ethernet1")), L3::VrfName());
  host.vrf("red", 7);
  EXPECT_EQ(manager->intfIdToVrfName(Ovra::IntfId("Ethernet1")), L3::VrfName("red"));
}

TEST_F(OverlaySrcMacRewriteManagerTest, DestructionLeavesTheRows) {
  add("Ethernet1", "10.0.0.1");
  auto const kept = record("Ethernet1", "10.0.0.1");
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(kept);
  host.journal();
  host.agent.reset();
  manager.reset();
  EXPECT_FALSE(kept->parent());
  EXPECT_THAT(watcher->changes, ElementsAre(Kiv::Entity::kParent.id)) << "removed, not orphaned";
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(host.rows().size(), 1u);
  EXPECT_EQ(kept->refCount(), 1);
}

TEST_F(OverlaySrcMacRewriteManagerTest, RecordsAreFoundMadeAndRemovedByKey) {
  BfnMacRewrite::Agent::IpAndIntfId const key{ip("10.0.0.1"), Ovra::IntfId("Ethernet1"), false};
  EXPECT_FALSE(manager->matchSpecAndRefCount(key));
  EXPECT_FALSE(manager->matchSpecAndRefCountDel(key));
  auto const made = manager->matchSpecAndRefCountIs(key);
  EXPECT_EQ(made->ipAndIntfId(), key);
  EXPECT_EQ(made->refCount(), 0);
  EXPECT_FALSE(made->overlaySrcMacRewriteMatchSpec());
  EXPECT_TRUE(made->hasNotificationActive());
  EXPECT_EQ(manager->matchSpecAndRefCountIs(key), made);
  EXPECT_EQ(manager->matchSpecAndRefCount(key), made);
  EXPECT_EQ(manager->matchSpecAndRefCountDel(key), made);
  EXPECT_FALSE(manager->matchSpecAndRefCount(key));
  manager->matchSpecAndRefCountIs(key);
  manager->matchSpecAndRefCountDelAll();
  EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
}

using OverlaySrcMacRewriteManagerDeathTest = OverlaySrcMacRewriteManagerTest;

TEST_F(OverlaySrcMacRewriteManagerDeathTest, AnUpdateOfAnUnknownKeyIsFatal) {
  EXPECT_DEATH(manager->updateEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"), mac(kMac)),
               diesAs("localMatchSpecAndRefCount",
                      "Entry doesn't exist. intfId: Ethernet1, overlaySip: 10.0.0.1"));
}

TEST_F(OverlaySrcMacRewriteManagerDeathTest, ADeletionOfAnUnknownKeyIsFatal) {
  EXPECT_DEATH(manager->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1")),
               diesAs("localMatchSpecAndRefCount",
                      "Entry doesn't exist. intfId: Ethernet1, overlaySip: 10.0.0.1"));
}

TEST_F(OverlaySrcMacRewriteManagerDeathTest, AKeyThatFailedIsUnknown) {
  failNext(BfnChip::Fault::Kind::NoSysResources);
  add("Ethernet1", "10.0.0.1");
  EXPECT_DEATH(manager->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1")),
               "Entry doesn't exist");
  EXPECT_DEATH(manager->updateEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"), mac(kMac)),
               "Entry doesn't exist");
}

TEST_F(OverlaySrcMacRewriteManagerDeathTest, TheMatchSpecOfAnUnknownKeyIsFatal) {
  EXPECT_DEATH((void)manager->keyToMatchSpecGet(Ovra::IntfId("Ethernet1"), ip("10.0.0.1")),
               "null Kiv::Ptr dereferenced");
}

TEST_F(OverlaySrcMacRewriteManagerDeathTest, TheVrfNameOfAnInterfaceWithoutRoutingStatusIsFatal) {
  EXPECT_DEATH((void)manager->intfIdToVrfName(Ovra::IntfId("Ethernet1")),
               diesAs("l3IntfRoutingStatus",
                      "interface routing status doesn't exist for intfId: Ethernet1"));
}

TEST_F(OverlaySrcMacRewriteManagerDeathTest, AnEntryBeforeTheTableIsInitialisedIsFatal) {
  auto const early = BfnMacRewrite::overlaySrcMacRewriteManagerFactory(
      host.profileEntry, host.systemStatus, nullptr, nullptr);
  EXPECT_DEATH((void)early->addEntry(L3::VrfName("red"), VlanId(100), Ovra::IntfId("Ethernet1"),
                                     ip("10.0.0.1"), mac(kMac)),
               "null Kiv::Ptr dereferenced");
  early->matchSpecAndRefCountIs({ip("10.0.0.1"), Ovra::IntfId("Ethernet1"), false});
  EXPECT_DEATH(early->updateEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"), mac(kMac)),
               "null Kiv::Ptr dereferenced");
  early->matchSpecAndRefCount({ip("10.0.0.1"), Ovra::IntfId("Ethernet1"), false})->refCountIs(1);
  EXPECT_DEATH(early->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1")),
               "null Kiv::Ptr dereferenced");
}

}  // namespace
