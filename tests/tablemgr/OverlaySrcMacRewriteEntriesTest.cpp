#include <algorithm>
#include <array>
#include <sstream>
#include <stdexcept>

#include "framework/generic/GenericValue.h"
#include "framework/generic/Type.h"
#include "framework/log/LogHandle.h"
#include "framework/log/LogService.h"
#include "framework/platform/BfTableException.h"
#include "tests/support/AllocationCount.h"
#include "tests/support/PluginTest.h"
#include "tests/support/RecordingDriver.h"
#include "tests/support/Watcher.h"

// Rows of the chip: written once, shared, counted.
namespace {

using BfnMacRewrite::MatchSpecAndRefCount;
using BfnMacRewrite::OverlaySrcMacRewriteManager;
using BfnTest::ip;
using BfnTest::mac;
using Bridging::VlanId;
using PexTypes::TableAddStatus;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr char const* kMac = "02:11:22:33:44:55";
constexpr char const* kOtherMac = "02:11:22:33:44:66";
constexpr char const* kLogName = "BFN_VXLAN_MAC_REWRITE_TABLE_FULL";

class EntriesTest : public BfnTest::PluginTest {
 protected:
  void SetUp() override {
    Kiv::LogService::reset();
    Kiv::LogService::clockIs([this] { return clock; });
    Kiv::LogService::sinkIs([this](Kiv::LogMessage const& message) { logged.push_back(message); });
    host.createAgent();
    host.stage1();
    manager = host.agent->overlaySrcMacRewriteManager();
    host.journal();
    TraceCapture::clear();
  }
  void TearDown() override {
    manager.reset();
    PluginTest::TearDown();
    Kiv::LogService::reset();
  }

  TableAddStatus add(char const* intf, char const* ipText, char const* macText = kMac,
                     unsigned vlan = 100, char const* vrfName = "red") {
    return manager->addEntry(L3::VrfName(vrfName), VlanId(vlan), Ovra::IntfId(intf), ip(ipText),
                             mac(macText));
  }
  Kiv::Ptr<MatchSpecAndRefCount> record(char const* intf, char const* ipText) {
    return manager->matchSpecAndRefCount({ip(ipText), Ovra::IntfId(intf), false});
  }
  void failNext(BfnChip::Fault::Kind kind, Kiv::U64 count = 1) {
    host.chip.faults().failNext(count, {kind, nullptr});
  }

  Kiv::Ptr<OverlaySrcMacRewriteManager> manager;
  std::vector<Kiv::LogMessage> logged;
  double clock = 1000;
};

TEST_F(EntriesTest, ANewKeyIsWrittenAndRememberedOnce) {
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

TEST_F(EntriesTest, TheLargestValuesReachTheChipWhole) {
  add("Ethernet1", "255.254.253.252", "ff:fe:fd:fc:fb:fa", 4094);
  EXPECT_THAT(host.rows(), ElementsAre("4094 255.254.253.252 ff:fe:fd:fc:fb:fa"));
}

TEST_F(EntriesTest, TracesOfANewKey) {
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

TEST_F(EntriesTest, AKeyThatIsThereGetsTheNewMacAndKeepsItsVlan) {
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

TEST_F(EntriesTest, ARowLeavesWithItsLastReference) {
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

TEST_F(EntriesTest, AnUpdateRewritesTheActionOnly) {
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

TEST_F(EntriesTest, OneAddressOnTwoInterfacesIsTwoRecordsAlsoInOneVlan) {
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

TEST_F(EntriesTest, OneAddressInTwoVlansOfTwoInterfacesIsTwoRows) {
  add("Ethernet1", "10.0.0.1", kMac, 100);
  add("Ethernet2", "10.0.0.1", kOtherMac, 200);
  EXPECT_THAT(host.rows(),
              ElementsAre("100 10.0.0.1 02:11:22:33:44:55", "200 10.0.0.1 02:11:22:33:44:66"));
}

TEST_F(EntriesTest, AKeyNeverHasTheSelfIpFlag) {
  add("Ethernet1", "10.0.0.1");
  EXPECT_FALSE(manager->matchSpecAndRefCount({ip("10.0.0.1"), Ovra::IntfId("Ethernet1"), true}));
  EXPECT_FALSE(record("Ethernet1", "10.0.0.1")->ipAndIntfId().selfIp);
}

TEST_F(EntriesTest, AFullTableIsReportedLoggedAndForgotten) {
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

TEST_F(EntriesTest, AChipAtItsCapacityRefusesTheNextKeyOnly) {
  host.chip.tableIs("overlaySrcMacRewrite", 1);
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::Success);
  EXPECT_EQ(add("Ethernet1", "10.0.0.2"), TableAddStatus::ResourcesExhausted);
  EXPECT_EQ(add("Ethernet1", "10.0.0.1", kOtherMac), TableAddStatus::Success);
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.1 02:11:22:33:44:66"));
}

TEST_F(EntriesTest, ExhaustedSystemResourcesDifferInTheTraceAlone) {
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

TEST_F(EntriesTest, AFailedKeyIsTriedAgainAndLoggedOncePerMinute) {
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

TEST_F(EntriesTest, APercentSignInAVrfNameIsData) {
  failNext(BfnChip::Fault::Kind::TableFull);
  add("Ethernet1", "10.0.0.1", kMac, 100, "%s%n%d");
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_EQ(logged[0].text,
            "Failed to program VXLAN forwarding source MAC address rewrite action for VRF: %s%n%d "
            "source IP: 10.0.0.1 due to hardware resource exhaustion.");
}

TEST_F(EntriesTest, TheLogMessageIsRegisteredWithItsTexts) {
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

TEST_F(EntriesTest, AnyOtherExceptionPassesThroughAndLeavesNoRecord) {
  host.chip.faults().failNext(
      1, {BfnChip::Fault::Kind::Exception, std::make_exception_ptr(std::out_of_range("odd"))});
  EXPECT_THROW(add("Ethernet1", "10.0.0.1"), std::out_of_range);
  failNext(BfnChip::Fault::Kind::Error);
  EXPECT_THROW(add("Ethernet1", "10.0.0.1"), BfTable::BfTableException);
  EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
  EXPECT_THAT(logged, IsEmpty());
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::Success);
}

TEST_F(EntriesTest, AnUpdateCatchesNothingAlsoWithinADuplicateAdd) {
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

TEST_F(EntriesTest, TheCountWrapsAtBothEndsUnchecked) {
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

TEST_F(EntriesTest, KeyToMatchSpecGetIsCalledByName) {
  add("Ethernet1", "10.0.0.1");
  std::array<Kiv::GenericValue, 2> const arguments{Kiv::GenericValue::of(Ovra::IntfId("Ethernet1")),
                                                   Kiv::GenericValue("10.0.0.1")};
  auto const spec =
      manager->genericIfAttributeOp(Kiv::GenericOp::Call, "keyToMatchSpecGet", arguments);
  EXPECT_EQ(spec.object(), record("Ethernet1", "10.0.0.1")->overlaySrcMacRewriteMatchSpec());
  EXPECT_EQ(manager->keyToMatchSpecGet(Ovra::IntfId("Ethernet1"), ip("10.0.0.1")),
            record("Ethernet1", "10.0.0.1")->overlaySrcMacRewriteMatchSpec());
}

TEST_F(EntriesTest, EveryOperationIsReachedByName) {
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

TEST_F(EntriesTest, TheVrfNameOfAnInterfaceIsEmptyWhenItsVrfHasNone) {
  auto const status =
      Kiv::makeActive<BfnL3::L3IntfRoutingStatus>(Pex::PortVlanPair(Ovra::IntfId("Ethernet1"), 0));
  status->vrfIdIs(Pex::VrfId(7));
  host.agent->intfIdToRoutingStatus()->l3IntfRoutingStatusIs(Ovra::IntfId("Ethernet1"), status);
  EXPECT_EQ(manager->intfIdToVrfName(Ovra::IntfId("Ethernet1")), L3::VrfName());
  host.vrf("red", 7);
  EXPECT_EQ(manager->intfIdToVrfName(Ovra::IntfId("Ethernet1")), L3::VrfName("red"));
}

TEST_F(EntriesTest, DestructionLeavesTheRows) {
  add("Ethernet1", "10.0.0.1");
  auto const kept = record("Ethernet1", "10.0.0.1");
  host.journal();
  host.agent.reset();
  manager.reset();
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(host.rows().size(), 1u);
  EXPECT_EQ(kept->refCount(), 1);
}

TEST_F(EntriesTest, RecordsAreFoundMadeAndRemovedByKey) {
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

// What the records look like from within a write, and what may be done to them there.
class EntriesWithinWritesTest : public EntriesTest {
 protected:
  void SetUp() override {
    EntriesTest::SetUp();
    BfnAgentLib::TableInitialization with;
    with.dlHandle = driver.opaque();
    BfnAgentLib::initializeTable(*manager, "overlaySrcMacRewrite", with);
    watcher = Kiv::makeActive<BfnTest::Watcher>(manager);
    host.journal();
    traces();
  }
  void TearDown() override {
    watcher.reset();
    EntriesTest::TearDown();
  }
  void del(char const* intf, char const* ipText) {
    manager->deleteEntry(Ovra::IntfId(intf), ip(ipText));
  }
  size_t announced() const {
    return static_cast<size_t>(std::ranges::count(
        watcher->changes, OverlaySrcMacRewriteManager::kMatchSpecAndRefCount.id));
  }
  /// Runs `what` within the next call of the driver, after the chip's part of it.
  void within(std::function<void()> what) {
    driver.then = [this, what] {
      auto const now = what;  // this goes with the line after
      driver.then = nullptr;
      now();
    };
  }

  BfnTest::RecordingDriver driver{host.chip};
  Kiv::Ptr<BfnTest::Watcher> watcher;
};

TEST_F(EntriesWithinWritesTest, TheRecordIsCompleteBeforeTheRowIsWrittenAndAnnouncedAfterwards) {
  bool seen = false;
  within([&] {
    auto const made = record("Ethernet1", "10.0.0.1");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->refCount(), 1);
    ASSERT_TRUE(made->overlaySrcMacRewriteMatchSpec());
    EXPECT_EQ(made->overlaySrcMacRewriteMatchSpec()->vlan(), 100);
    EXPECT_TRUE(made->hasNotificationActive());
    EXPECT_EQ(announced(), 0u);
    seen = true;
  });
  add("Ethernet1", "10.0.0.1");
  EXPECT_TRUE(seen);
  EXPECT_EQ(announced(), 1u);
}

TEST_F(EntriesWithinWritesTest, ARowThatIsNotWrittenIsNeverAnnounced) {
  for (auto const kind : {BfnChip::Fault::Kind::TableFull, BfnChip::Fault::Kind::NoSysResources}) {
    failNext(kind);
    EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::ResourcesExhausted);
    EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
  }
  for (auto const kind : {BfnChip::Fault::Kind::Error, BfnChip::Fault::Kind::Exception}) {
    failNext(kind);
    EXPECT_THROW(add("Ethernet1", "10.0.0.1"), std::runtime_error);
    EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
  }
  EXPECT_EQ(announced(), 0u);
}

TEST_F(EntriesWithinWritesTest, ARemovalWithinTheWriteTakesTheRowAlong) {
  within([&] { del("Ethernet1", "10.0.0.1"); });
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::Success);
  EXPECT_THAT(host.rows(), IsEmpty());
  EXPECT_EQ(manager->matchSpecAndRefCount().size(), 0u);
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::Success);
  EXPECT_EQ(host.rows().size(), 1u);
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 1);
}

TEST_F(EntriesWithinWritesTest, ASecondAdditionWithinTheWriteCountsASecondReference) {
  within([&] { add("Ethernet1", "10.0.0.1", kOtherMac); });
  EXPECT_EQ(add("Ethernet1", "10.0.0.1"), TableAddStatus::Success);
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 2);
  del("Ethernet1", "10.0.0.1");
  EXPECT_EQ(host.rows().size(), 1u);
  del("Ethernet1", "10.0.0.1");
  EXPECT_THAT(host.rows(), IsEmpty());
}

TEST_F(EntriesWithinWritesTest, ARemovalAndAnAdditionWithinAFailedWriteKeepTheLaterRecord) {
  within([&] {
    del("Ethernet1", "10.0.0.1");
    add("Ethernet1", "10.0.0.1", kOtherMac);
    throw std::out_of_range("late");
  });
  EXPECT_THROW(add("Ethernet1", "10.0.0.1"), std::out_of_range);
  ASSERT_TRUE(record("Ethernet1", "10.0.0.1"));
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 1);
  EXPECT_EQ(host.rows().size(), 1u);
}

TEST_F(EntriesWithinWritesTest, AnAdditionWithinAFailedWriteKeepsItsReferenceAndIsAnnounced) {
  within([&] {
    add("Ethernet1", "10.0.0.1", kOtherMac);
    throw std::out_of_range("late");
  });
  EXPECT_THROW(add("Ethernet1", "10.0.0.1"), std::out_of_range);
  ASSERT_TRUE(record("Ethernet1", "10.0.0.1"));
  EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 1);
  EXPECT_EQ(announced(), 1u);
}

TEST_F(EntriesWithinWritesTest, TheRowGoesBeforeItsRecord) {
  add("Ethernet1", "10.0.0.1");
  bool seen = false;
  within([&] {
    EXPECT_THAT(host.rows(), IsEmpty());
    ASSERT_TRUE(record("Ethernet1", "10.0.0.1"));
    EXPECT_EQ(record("Ethernet1", "10.0.0.1")->refCount(), 0);
    seen = true;
  });
  del("Ethernet1", "10.0.0.1");
  EXPECT_TRUE(seen);
  EXPECT_FALSE(record("Ethernet1", "10.0.0.1"));
}

// The n-th allocation of an event fails, for every n: nothing has changed then, and asking again
// works. At each size the records and the chip are about to grow, or are not.
TEST_F(EntriesTest, AnAdditionWithoutMemoryChangesNothingAndCanBeRepeated) {
  add("Ethernet9", "10.9.0.1");  // describes the traces on its way
  manager->deleteEntry(Ovra::IntfId("Ethernet9"), ip("10.9.0.1"));
  Ovra::EthAddr const someMac = mac(kMac);
  for (unsigned size = 0; size <= 60; ++size) {
    std::string const address = "10.0.0." + std::to_string(size + 1);
    Ovra::IpAddr const sip = ip(address.c_str());
    Ovra::IntfId const intf("Ethernet1");
    L3::VrfName const vrfName("red");
    auto const rows = host.rows();
    host.journal();
    ASSERT_GT(BfnTest::failEachAllocation(
                  [&] { (void)manager->addEntry(vrfName, VlanId(100), intf, sip, someMac); },
                  [&](std::size_t n) {
                    EXPECT_EQ(manager->matchSpecAndRefCount().size(), size) << n;
                    EXPECT_EQ(host.rows(), rows) << n;
                    EXPECT_EQ(manager->overlaySrcMacRewriteTable()->entryCount(), size) << n;
                    EXPECT_THAT(host.journal(), IsEmpty()) << n;
                  }),
              2u);
    ASSERT_TRUE(record("Ethernet1", address.c_str())) << size;
    EXPECT_EQ(record("Ethernet1", address.c_str())->refCount(), 1);
    EXPECT_EQ(host.rows().size(), size + 1);
  }
}

TEST_F(EntriesTest, ARemovalAllocatesNothing) {
  for (unsigned n = 1; n <= 60; ++n) add("Ethernet1", ("10.0.0." + std::to_string(n)).c_str());
  host.chip.journal().limitIs(0);  // which grows with every erase
  manager->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.60"));
  for (unsigned n = 1; n < 60; ++n) {
    Ovra::IntfId const intf("Ethernet1");
    Ovra::IpAddr const address = ip(("10.0.0." + std::to_string(n)).c_str());
    std::size_t const before = BfnTest::allocationCount();
    manager->deleteEntry(intf, address);
    EXPECT_EQ(BfnTest::allocationCount(), before) << n;
  }
  EXPECT_THAT(host.rows(), IsEmpty());
}

TEST(MatchSpecAndRefCount, CountsModulo65536) {
  auto const record = Kiv::make<MatchSpecAndRefCount>(BfnMacRewrite::Agent::IpAndIntfId{});
  EXPECT_EQ(record->refCountDec(1), 65535);
  EXPECT_EQ(record->refCountInc(1), 0);
  EXPECT_EQ(record->refCountInc(65535), 65535);
  EXPECT_EQ(record->refCountInc(3), 2);
  EXPECT_EQ(record->refCountDec(5), 65533);
  record->refCountIs(7);
  EXPECT_EQ(record->refCount(), 7);
}

TEST(MatchSpecAndRefCount, TheMatchSpecItHoldsAlreadyIsNotCountedTwice) {
  auto const record = Kiv::make<MatchSpecAndRefCount>(BfnMacRewrite::Agent::IpAndIntfId{});
  auto const spec = Kiv::makeActive<MatchSpecAndRefCount::MatchSpec>();
  record->overlaySrcMacRewriteMatchSpecIs(spec);
  Kiv::U32 const count = spec->kivRefCount();
  record->overlaySrcMacRewriteMatchSpecIs(spec);
  EXPECT_EQ(record->overlaySrcMacRewriteMatchSpec(), spec);
  EXPECT_EQ(spec->kivRefCount(), count);
}

using EntriesDeathTest = EntriesTest;

// The whole of standard error: the line, with no end of its own, runs into the assertion's.
auto diesAs(std::string const& line, std::string const& condition) {
  return AllOf(HasSubstr("Failed(" + condition + ") " + line), HasSubstr("BfnMacRewriteTableMgr"),
               HasSubstr("\"" + condition + "\" == nullptr"),
               ::testing::Not(HasSubstr("Failed(" + condition + ") " + line + "\n")));
}

TEST_F(EntriesDeathTest, AnUpdateOfAnUnknownKeyIsFatal) {
  EXPECT_DEATH(manager->updateEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"), mac(kMac)),
               diesAs("Entry doesn't exist. intfId: Ethernet1, overlaySip: 10.0.0.1",
                      "localMatchSpecAndRefCount"));
}

TEST_F(EntriesDeathTest, ADeletionOfAnUnknownKeyIsFatal) {
  EXPECT_DEATH(manager->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1")),
               diesAs("Entry doesn't exist. intfId: Ethernet1, overlaySip: 10.0.0.1",
                      "localMatchSpecAndRefCount"));
}

TEST_F(EntriesDeathTest, AKeyThatFailedIsUnknown) {
  failNext(BfnChip::Fault::Kind::NoSysResources);
  add("Ethernet1", "10.0.0.1");
  EXPECT_DEATH(manager->deleteEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1")),
               "Entry doesn't exist");
  EXPECT_DEATH(manager->updateEntry(Ovra::IntfId("Ethernet1"), ip("10.0.0.1"), mac(kMac)),
               "Entry doesn't exist");
}

TEST_F(EntriesDeathTest, TheMatchSpecOfAnUnknownKeyIsFatal) {
  EXPECT_DEATH((void)manager->keyToMatchSpecGet(Ovra::IntfId("Ethernet1"), ip("10.0.0.1")),
               "null Kiv::Ptr dereferenced");
}

TEST_F(EntriesDeathTest, TheVrfNameOfAnInterfaceWithoutRoutingStatusIsFatal) {
  EXPECT_DEATH((void)manager->intfIdToVrfName(Ovra::IntfId("Ethernet1")),
               diesAs("interface routing status doesn't exist for intfId: Ethernet1",
                      "l3IntfRoutingStatus"));
}

TEST_F(EntriesDeathTest, AnEntryBeforeTheTableIsInitialisedIsFatal) {
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
