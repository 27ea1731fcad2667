// SPDX-License-Identifier: Apache-2.0
#include <set>
#include <string>

#include "framework/core/Exceptions.h"
#include "rewrite/BfnMacRewriteSm.h"
#include "tests/support/PluginTest.h"

// Which rows exist, and with what in them.
namespace {

using BfnMacRewrite::BfnMacRewriteSm;
using BfnTest::ip;
using BfnTest::mac;
using BfnTest::TraceCapture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr char const* kZero = "00:00:00:00:00:00";

class BfnMacRewriteSmEntriesTest : public BfnTest::PluginTest {
 protected:
  void SetUp() override {
    host.bringUp();
    host.vrf("red", 7);
    host.journal();
    TraceCapture::clear();
  }
  BfnMacRewriteSm& sm() { return *host.agent->bfnMacRewriteSm(); }
  Ovra::IntfId indexed(unsigned vrfId, char const* ipText) {
    return sm().localVrfIpToIntf({Pex::VrfId(vrfId), ip(ipText)});
  }
  Kiv::U16 refCount(char const* intf, char const* ipText) {
    auto const record = host.agent->overlaySrcMacRewriteManager()->matchSpecAndRefCount(
        {ip(ipText), Ovra::IntfId(intf), false});
    return record ? record->refCount() : Kiv::U16{0};
  }
  void config(unsigned vrfId, char const* ipText, char const* macText) {
    host.mount->bfnMacRewriteAgentConfig()
        ->overlaySrcMacRewriteIs(Pex::VrfId(vrfId))
        ->ipAndMacIs({ip(ipText), mac(macText)});
  }
};

TEST_F(BfnMacRewriteSmEntriesTest, AConfiguredMacAloneWritesNothingAndIsInTheLaterRow) {
  config(7, "10.0.0.1", "02:00:00:00:00:01");
  host.port("Ethernet1", 100);
  EXPECT_THAT(host.journal(), IsEmpty());
  host.address(7, "10.0.0.1", "Ethernet1");
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 02:00:00:00:00:01"));
}

TEST_F(BfnMacRewriteSmEntriesTest, AnAddressWithoutRoutingStatusIsOnlyIndexed) {
  host.address(7, "10.0.0.1", "Ethernet1");
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(indexed(7, "10.0.0.1"), Ovra::IntfId("Ethernet1"));
  host.port("Ethernet1", 100);
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 00:00:00:00:00:00"));
}

TEST_F(BfnMacRewriteSmEntriesTest, RemovingAnAddressWithoutRoutingStatusClearsTheIndexesOnly) {
  host.address(7, "10.0.0.1", "Ethernet1");
  host.addressDel(7, "10.0.0.1");
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_FALSE(indexed(7, "10.0.0.1"));
  EXPECT_EQ(sm().localIntfToVrfIp(Ovra::IntfId("Ethernet1")), nullptr);
}

TEST_F(BfnMacRewriteSmEntriesTest, RoutingStatusThatGoesTakesTheRowsAndItsReturnBringsThemBack) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.address(8, "10.0.0.1", "Ethernet2");
  host.address(7, "10.0.0.2", "Ethernet1");
  host.journal();
  host.portDel("Ethernet1");
  EXPECT_THAT(host.journal(), UnorderedElementsAre("erase 100 10.0.0.1", "erase 100 10.0.0.2"));
  EXPECT_EQ(indexed(7, "10.0.0.1"), Ovra::IntfId("Ethernet1"));
  host.port("Ethernet1", 101);
  EXPECT_THAT(host.journal(), UnorderedElementsAre("write 101 10.0.0.1 00:00:00:00:00:00",
                                                   "write 101 10.0.0.2 00:00:00:00:00:00"));
}

TEST_F(BfnMacRewriteSmEntriesTest, AReplacedRoutingStatusCountsAReferenceAndKeepsTheOldVlan) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.journal();
  host.port("Ethernet1", 200);
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 00:00:00:00:00:00"));
  EXPECT_EQ(refCount("Ethernet1", "10.0.0.1"), 2);
  host.addressDel(7, "10.0.0.1");
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(refCount("Ethernet1", "10.0.0.1"), 1);
}

TEST_F(BfnMacRewriteSmEntriesTest, AChangeOfAnAddressOnTheSameInterfaceDeletesAndAddsItsRow) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.route("red", 7, 300);
  host.journal();
  host.address(7, "10.0.0.1", "Ethernet1", true);
  EXPECT_THAT(host.journal(),
              ElementsAre("erase 100 10.0.0.1", "write 300 10.0.0.1 00:00:00:00:00:00"));
  EXPECT_EQ(refCount("Ethernet1", "10.0.0.1"), 1);
}

TEST_F(BfnMacRewriteSmEntriesTest, AnAddressThatBecomesASelfIpWithoutVlanKeepsItsRowForNow) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.journal();
  host.address(7, "10.0.0.1", "Ethernet1", true);
  EXPECT_THAT(host.journal(), IsEmpty());
  host.route("red", 7, 300);
  EXPECT_THAT(host.journal(),
              ElementsAre("erase 100 10.0.0.1", "write 300 10.0.0.1 00:00:00:00:00:00"));
}

TEST_F(BfnMacRewriteSmEntriesTest, RemovingAWaitingSelfIpDoesNothing) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1", true);
  host.addressDel(7, "10.0.0.1");
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_FALSE(indexed(7, "10.0.0.1"));
}

TEST_F(BfnMacRewriteSmEntriesTest, RemovingAWaitingSelfIpDoesNothingWhateverTheEmptyInterfaceHas) {
  host.port("", 100);
  host.address(7, "10.0.0.1", "Ethernet1", true);
  host.addressDel(7, "10.0.0.1");
  EXPECT_THAT(host.journal(), IsEmpty());
}

TEST_F(BfnMacRewriteSmEntriesTest, OneAddressLessLeavesTheOthersOfItsInterface) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  host.address(7, "10.0.0.2", "Ethernet1");
  host.address(8, "10.0.0.2", "Ethernet1");
  host.addressDel(7, "10.0.0.2");
  auto const pairs = sm().localIntfToVrfIp(Ovra::IntfId("Ethernet1"));
  ASSERT_TRUE(pairs);
  EXPECT_EQ(pairs->vrfAndIpAddr().size(), 2u);
  EXPECT_FALSE(indexed(7, "10.0.0.2"));
  EXPECT_EQ(indexed(7, "10.0.0.1"), Ovra::IntfId("Ethernet1"));
  EXPECT_EQ(indexed(8, "10.0.0.2"), Ovra::IntfId("Ethernet1"));
  host.journal();
  host.portDel("Ethernet1");
  EXPECT_THAT(host.journal(), UnorderedElementsAre("erase 100 10.0.0.1", "erase 100 10.0.0.2"));
  host.addressDel(7, "10.0.0.1");
  host.addressDel(8, "10.0.0.2");
  EXPECT_FALSE(sm().localIntfToVrfIp(Ovra::IntfId("Ethernet1")));
}

TEST_F(BfnMacRewriteSmEntriesTest, AnAddressOnNoInterfaceIsNotIndexed) {
  host.port("", 100);
  host.address(7, "10.0.0.1", "");
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(sm().localIntfToVrfIp(Ovra::IntfId()), nullptr);
}

TEST_F(BfnMacRewriteSmEntriesTest, AForwardingVlanChangeRebuildsSelfIpsOnly) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1", true);
  host.address(7, "10.0.0.2", "Ethernet1");
  host.journal();
  traces();
  host.route("red", 7, 300);
  EXPECT_THAT(host.journal(), ElementsAre("write 300 10.0.0.1 00:00:00:00:00:00"));
  EXPECT_THAT(traces(), ::testing::Not(::testing::Contains(HasSubstr("removeIpAndIntfId"))));
  EXPECT_TRUE(sm().hwRouteVrfStatus(L3::VrfName("red"))->initialized());
  host.route("red", 7, 301);
  EXPECT_THAT(host.journal(),
              ElementsAre("erase 300 10.0.0.1", "write 301 10.0.0.1 00:00:00:00:00:00"));
  host.route("red", 7, 0);
  EXPECT_THAT(host.journal(), ElementsAre("erase 301 10.0.0.1"));
  EXPECT_FALSE(indexed(7, "10.0.0.1"));
  EXPECT_TRUE(sm().fwdVlanIdPerVrfHas(7));
  EXPECT_THAT(host.rows(), ElementsAre("100 10.0.0.2 00:00:00:00:00:00"));
}

TEST_F(BfnMacRewriteSmEntriesTest, ARouteStatusWithoutVrfIdIsIgnoredUnlessItIsTheDefaultVrf) {
  host.route("red", 0, 300);
  EXPECT_FALSE(sm().fwdVlanIdPerVrfHas(0));
  host.route("default", 0, 300);
  EXPECT_EQ(sm().fwdVlanIdPerVrf(0), 300u);
  host.port("Ethernet1", 100);
  host.address(0, "10.0.0.1", "Ethernet1", true);
  EXPECT_THAT(host.journal(), ElementsAre("write 300 10.0.0.1 00:00:00:00:00:00"));
}

TEST_F(BfnMacRewriteSmEntriesTest, TheDefaultVrfWithAnotherIdIsTakenUnderThatId) {
  host.route("default", 9, 300);
  EXPECT_EQ(sm().fwdVlanIdPerVrf(9), 300u);
  EXPECT_FALSE(sm().fwdVlanIdPerVrfHas(0));
}

TEST_F(BfnMacRewriteSmEntriesTest, AVrfIdChangeAloneIsNotReactedTo) {
  host.route("red", 7, 300);
  host.routeStatus->vrfStatus(L3::VrfName("red"))->vrfIdIs(8);
  EXPECT_FALSE(sm().fwdVlanIdPerVrfHas(8));
}

TEST_F(BfnMacRewriteSmEntriesTest, AConfiguredMacUpdatesTheRowInPlaceAndItsRemovalLeavesIt) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  config(7, "10.0.0.1", "02:00:00:00:00:01");
  host.journal();
  config(7, "10.0.0.1", "02:00:00:00:00:02");
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 02:00:00:00:00:02"));
  EXPECT_EQ(refCount("Ethernet1", "10.0.0.1"), 1);
  host.mount->bfnMacRewriteAgentConfig()
      ->overlaySrcMacRewriteIs(Pex::VrfId(7))
      ->ipAndMacDel(ip("10.0.0.1"));
  EXPECT_THAT(host.journal(), IsEmpty());
}

TEST_F(BfnMacRewriteSmEntriesTest, AConfiguredZeroMacIsAConfiguredMac) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  config(7, "10.0.0.1", "02:00:00:00:00:01");
  host.journal();
  config(7, "10.0.0.1", kZero);
  EXPECT_THAT(host.journal(), ElementsAre("write 100 10.0.0.1 00:00:00:00:00:00"));
}

TEST_F(BfnMacRewriteSmEntriesTest, AMacForAnAddressWithoutRoutingStatusWritesNothing) {
  host.address(7, "10.0.0.1", "Ethernet1");
  config(7, "10.0.0.1", "02:00:00:00:00:01");
  EXPECT_THAT(host.journal(), IsEmpty());
}

TEST_F(BfnMacRewriteSmEntriesTest,
       AMacForAnAddressThatIsNotIndexedWritesNothingWhateverTheEmptyInterfaceHas) {
  host.port("", 100);
  traces();
  config(7, "10.0.0.1", "02:00:00:00:00:01");
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(traces().back(),
            "BfnMacRewriteSm::KivAgentVrfConfig::handleIpAndMac: AgentConfig::IpAndMac is "
            "populated, overlayRewriteSrcMac: 02:00:00:00:00:01");
}

TEST_F(BfnMacRewriteSmEntriesTest, TheVrfNameOfAnAddIsTheOneOfThatMoment) {
  host.port("Ethernet1", 100);
  host.l3Status->vrfNameIs(Pex::VrfId(7), L3::VrfName("blue"));
  traces();
  host.address(7, "10.0.0.1", "Ethernet1");
  EXPECT_THAT(traces(), ::testing::Contains(HasSubstr("addEntry: vrfName: blue l3Aintf: 100")));
  host.l3Status->vrfNameDel(Pex::VrfId(7));
  EXPECT_EQ(host.journal().size(), 1u);
  traces();
  host.address(7, "10.0.0.2", "Ethernet1");
  EXPECT_THAT(traces(), ::testing::Contains(HasSubstr("addEntry: vrfName:  l3Aintf: 100")));
}

TEST_F(BfnMacRewriteSmEntriesTest, AnInterfaceVlanOutOfRangeThrowsAndLeavesThePairIndexed) {
  for (unsigned const vlan : {0u, 4095u}) {
    SCOPED_TRACE(vlan);
    std::string const intf = "Ethernet" + std::to_string(vlan);
    host.port(intf.c_str(), vlan);
    try {
      host.address(7, vlan == 0 ? "10.0.0.1" : "10.0.0.2", intf.c_str());
      ADD_FAILURE() << "nothing thrown";
    } catch (Kiv::RangeException const& exception) {
      EXPECT_STREQ(exception.what(), "VlanId::value < 1 or > 4094 not allowed");
    }
  }
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(indexed(7, "10.0.0.1"), Ovra::IntfId("Ethernet0"));
}

TEST_F(BfnMacRewriteSmEntriesTest, AnInvalidInterfaceVlanThrowsForASelfIpToo) {
  host.route("red", 7, 300);
  host.port("Ethernet1", 0);
  EXPECT_THROW(host.address(7, "10.0.0.1", "Ethernet1", true), Kiv::RangeException);
  EXPECT_THAT(host.journal(), IsEmpty());
}

TEST_F(BfnMacRewriteSmEntriesTest, AForwardingVlanOutOfRangeThrowsAndLeavesThePairIndexed) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1", true);
  EXPECT_THROW(host.route("red", 7, 4095), Kiv::RangeException);
  EXPECT_THAT(host.journal(), IsEmpty());
  EXPECT_EQ(indexed(7, "10.0.0.1"), Ovra::IntfId("Ethernet1"));
}

TEST_F(BfnMacRewriteSmEntriesTest, AFlapAfterTheWholeStatusHasGoneReadsNoSelfIp) {
  host.route("red", 7, 300);
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1", true);
  host.journal();
  host.mount->bfnMacRewriteAgentStatus()->vrfStatusDel(Pex::VrfId(7));
  EXPECT_THAT(host.journal(), IsEmpty());
  host.portDel("Ethernet1");
  host.port("Ethernet1", 100);
  EXPECT_THAT(host.journal(),
              ElementsAre("erase 300 10.0.0.1", "write 100 10.0.0.1 00:00:00:00:00:00"));
}

TEST_F(BfnMacRewriteSmEntriesTest, TracesOfAnAddressThatBecomesARow) {
  host.port("Ethernet1", 100);
  traces();
  host.address(7, "10.0.0.1", "Ethernet1");
  EXPECT_THAT(
      traces(),
      ElementsAre(
          "BfnMacRewriteSm::KivMacRewriteVrfStatus::handleInitialized: vrfId: 7",
          "BfnMacRewriteSm::KivMacRewriteVrfStatus::handleIpAndIntfId: vrfId: 7",
          "BfnMacRewriteSm::KivMacRewriteVrfStatus::handleIpAndIntfId: vrfId: 7, ip-address: "
          "10.0.0.1",
          "BfnMacRewriteSm::KivMacRewriteVrfStatus::addIpAndIntfId: vrfId: 7, ip-address: 10.0.0.1",
          "BfnMacRewriteSm::addOverlaySrcMacRewriteTableEntry: vrfId: 7, ipAddr: 10.0.0.1 intfId: "
          "Ethernet1",
          "BfnMacRewriteSm::addOverlaySrcMacRewriteTableEntry: intfId: Ethernet1, l3Aintf: 100, "
          "macAddr: 00:00:00:00:00:00",
          "OverlaySrcMacRewriteManager::addEntry: vrfName: red l3Aintf: 100 intfId: Ethernet1, "
          "overlaySip: 10.0.0.1, overlayRewriteSrcMac: 00:00:00:00:00:00",
          "OverlaySrcMacRewriteManager::addEntry: Table programming successful"));
}

TEST_F(BfnMacRewriteSmEntriesTest, TracesOfAMacThatUpdatesARow) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  config(7, "10.0.0.1", "02:00:00:00:00:01");
  traces();
  config(7, "10.0.0.1", "02:00:00:00:00:02");
  EXPECT_THAT(
      traces(),
      ElementsAre(
          "BfnMacRewriteSm::KivAgentVrfConfig::handleIpAndMac: vrfId: 7, ipAddr: 10.0.0.1",
          "BfnMacRewriteSm::KivAgentVrfConfig::handleIpAndMac: AgentConfig::IpAndMac is populated, "
          "overlayRewriteSrcMac: 02:00:00:00:00:02",
          "BfnMacRewriteSm::updateOverlaySrcMacRewriteTableEntry: vrfId: 7, ipAddr: 10.0.0.1 "
          "intfId: Ethernet1",
          "OverlaySrcMacRewriteManager::updateEntry: intfd: Ethernet1, overlaySip: 10.0.0.1, "
          "overlayRewriteSrcMac: 02:00:00:00:00:02"));
}

TEST_F(BfnMacRewriteSmEntriesTest, TracesOfAForwardingVlan) {
  host.port("Ethernet1", 100);
  traces();
  host.address(7, "10.0.0.1", "Ethernet1", true);
  EXPECT_EQ(traces().back(),
            "BfnMacRewriteSm::KivMacRewriteVrfStatus::addIpAndIntfId: fwdVlan not set yet, "
            "returning");
  host.route("blue", 0, 5);
  EXPECT_THAT(traces(),
              ElementsAre("BfnMacRewriteSm::KivHwRouteVrfStatus::handleInitialized: vrfName: "
                          "bluevrfId: 0",
                          "BfnMacRewriteSm::KivHwRouteVrfStatus::handleFwdVlanId: vrfName: "
                          "bluevrfId: 0",
                          "BfnMacRewriteSm::KivHwRouteVrfStatus::handleFwdVlanId: vrfId not set"));
  host.route("red", 7, 300);
  traces();
  host.route("red", 7, 0);
  EXPECT_THAT(
      traces(),
      ElementsAre(
          "BfnMacRewriteSm::KivHwRouteVrfStatus::handleFwdVlanId: vrfName: redvrfId: 7",
          "BfnMacRewriteSm::KivMacRewriteVrfStatus::handleFwdVlanIdChange: vrfId: 7 old: 300 new: "
          "0",
          "BfnMacRewriteSm::KivMacRewriteVrfStatus::removeIpAndIntfId: vrfId: 7, ip-address: "
          "10.0.0.1",
          "BfnMacRewriteSm::deleteOverlaySrcMacRewriteTableEntry: vrfId: 7, ipAddr: 10.0.0.1 "
          "intfId: Ethernet1",
          "OverlaySrcMacRewriteManager::deleteEntry: intfId: Ethernet1, overlaySip: 10.0.0.1",
          "BfnMacRewriteSm::KivMacRewriteVrfStatus::handleIpAndIntfId: vrfId: 7, ip-address: "
          "10.0.0.1",
          "BfnMacRewriteSm::KivMacRewriteVrfStatus::addIpAndIntfId: vrfId: 7, ip-address: 10.0.0.1",
          "BfnMacRewriteSm::KivMacRewriteVrfStatus::addIpAndIntfId: fwdVlan not set yet, "
          "returning"));
}

TEST_F(BfnMacRewriteSmEntriesTest, AFlapAfterTheForwardingVlanHasGoneTracesThatItIsNotSet) {
  host.route("red", 7, 300);
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1", true);
  sm().fwdVlanIdPerVrfDel(7);
  host.portDel("Ethernet1");
  traces();
  host.journal();
  host.port("Ethernet1", 100);
  EXPECT_EQ(traces().back(),
            "BfnMacRewriteSm::addOverlaySrcMacRewriteTableEntry: fwdVlan not set, returning");
  EXPECT_THAT(host.journal(), IsEmpty());
}

TEST_F(BfnMacRewriteSmEntriesTest, TracesCarryTheFullSignatureFileAndLevels) {
  host.port("Ethernet1", 100);
  TraceCapture::clear();
  host.address(7, "10.0.0.1", "Ethernet1");
  int entries = 0;
  for (auto const& record : TraceCapture::records()) {
    if (record.text.find("addOverlaySrcMacRewriteTableEntry") == std::string::npos) continue;
    ++entries;
    EXPECT_THAT(record.text,
                HasSubstr("void BfnMacRewrite::BfnMacRewriteSm::addOverlaySrcMacRewriteTableEntry("
                          "Pex::VrfId, Ovra::IntfId, Ovra::IpAddr): "));
    EXPECT_EQ(record.statement->facility(), "BfnMacRewriteSm");
    EXPECT_EQ(record.statement->level(), entries == 1 ? 9 : 4);
  }
  EXPECT_EQ(entries, 2);
}

// "vrfId: 7" and the like are entries; what is decided within them is not, except for two texts.
TEST_F(BfnMacRewriteSmEntriesTest, LevelsAreFourForDecisionsAndNineForTheRest) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1", true);
  host.address(7, "10.0.0.2", "Ethernet1");
  config(7, "10.0.0.2", "02:00:00:00:00:01");
  host.route("blue", 0, 300);
  host.route("red", 7, 300);
  host.route("red", 7, 301);
  sm().fwdVlanIdPerVrfDel(7);
  host.port("Ethernet1", 100);
  host.addressDel(7, "10.0.0.2");
  host.portDel("Ethernet1");
  sm().handleL3IntfRoutingStatus();
  sm().handleInitialized();
  std::set<std::string> decisions;
  std::set<std::string> functions;
  for (auto const& record : TraceCapture::records()) {
    if (record.statement->facility() != "BfnMacRewriteSm") continue;
    std::string const message = record.text.substr(record.text.find("): ") + 3);
    functions.insert(record.statement->function());
    if (record.statement->level() == 4) {
      decisions.insert(message.substr(0, message.find_first_of(",:")));
    } else {
      EXPECT_EQ(record.statement->level(), 9u) << record.text;
    }
  }
  EXPECT_THAT(decisions, ElementsAre("AgentConfig", "fwdVlan not set", "intfId"));
  EXPECT_THAT(functions,
              ElementsAre("addIpAndIntfId", "addOverlaySrcMacRewriteTableEntry",
                          "deleteOverlaySrcMacRewriteTableEntry", "handleFwdVlanId",
                          "handleFwdVlanIdChange", "handleInitialized", "handleIpAndIntfId",
                          "handleIpAndMac", "handleL3IntfRoutingStatus", "removeIpAndIntfId",
                          "updateOverlaySrcMacRewriteTableEntry"));
}

TEST_F(BfnMacRewriteSmEntriesTest, TracesOfAnInterface) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  traces();
  host.portDel("Ethernet1");
  EXPECT_THAT(traces(),
              ::testing::IsSupersetOf(
                  {"BfnMacRewriteSm::handleL3IntfRoutingStatus: intfId: Ethernet1",
                   "BfnMacRewriteSm::deleteOverlaySrcMacRewriteTableEntry: vrfId: 7, ipAddr: "
                   "10.0.0.1 intfId: Ethernet1"}));
  host.portDel("Ethernet2");
  host.port("Ethernet2", 100);
  EXPECT_THAT(traces(),
              ::testing::Contains("BfnMacRewriteSm::handleL3IntfRoutingStatus: intfId: Ethernet2"));
}

TEST_F(BfnMacRewriteSmEntriesTest, AForwardingVlanThatIsReportedAgainRebuildsItsRowsAllTheSame) {
  host.port("Ethernet1", 100);
  host.route("red", 7, 300);
  host.address(7, "10.0.0.1", "Ethernet1", true);
  host.journal();
  traces();
  sm().hwRouteVrfStatus(L3::VrfName("red"))->handleFwdVlanId();
  EXPECT_THAT(host.journal(),
              ElementsAre("erase 300 10.0.0.1", "write 300 10.0.0.1 00:00:00:00:00:00"));
  EXPECT_THAT(traces(),
              ::testing::Contains("BfnMacRewriteSm::KivMacRewriteVrfStatus::handleFwdVlanIdChange: "
                                  "vrfId: 7 old: 300 new: 300"));
}

TEST_F(BfnMacRewriteSmEntriesTest,
       AForwardingVlanIsStoredBeforeItIsPropagatedAndAlsoWithoutAStatus) {
  host.route("red", 7, 300);
  EXPECT_EQ(sm().fwdVlanIdPerVrf(7), 300u);
  EXPECT_THAT(traces(), ::testing::Not(::testing::Contains(HasSubstr("handleFwdVlanIdChange"))));
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1", true);
  host.chip.faults().failNext(1, {BfnChip::Fault::Kind::Error, nullptr});
  EXPECT_ANY_THROW(host.route("red", 7, 301));
  EXPECT_EQ(sm().fwdVlanIdPerVrf(7), 301u);
}

TEST_F(BfnMacRewriteSmEntriesTest, AReactorThatIsNotInitializedIsSilent) {
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  config(7, "10.0.0.1", "02:00:00:00:00:01");
  auto* const status = sm().macRewriteVrfStatus(Pex::VrfId(7));
  auto* const rewrites = sm().agentVrfConfig(Pex::VrfId(7));
  EXPECT_TRUE(status->initialized());
  EXPECT_TRUE(rewrites->initialized());
  status->initializedIs(false);
  rewrites->initializedIs(false);
  host.journal();
  traces();
  host.address(7, "10.0.0.2", "Ethernet1");
  host.addressDel(7, "10.0.0.1");
  config(7, "10.0.0.1", "02:00:00:00:00:02");
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(host.journal(), IsEmpty());
}

using BfnMacRewriteSmEntriesDeathTest = BfnMacRewriteSmEntriesTest;

// The whole passes of the two reactors differ in a full stop.
TEST_F(BfnMacRewriteSmEntriesDeathTest, TheWholePassesOfTheReactorsAssertTheirOwnInitialization) {
  host.address(7, "10.0.0.1", "Ethernet1");
  config(7, "10.0.0.1", "02:00:00:00:00:01");
  auto* const status = sm().macRewriteVrfStatus(Pex::VrfId(7));
  auto* const rewrites = sm().agentVrfConfig(Pex::VrfId(7));
  status->initializedIs(false);
  rewrites->initializedIs(false);
  auto const uninitialized = HasSubstr("\"initialized()\" == nullptr");
  EXPECT_DEATH(
      status->handleIpAndIntfId(),
      ::testing::AllOf(HasSubstr("Failed(initialized()) Sm not initialized yet."), uninitialized));
  EXPECT_DEATH(rewrites->handleIpAndMac(),
               ::testing::AllOf(::testing::ContainsRegex(
                                    "Failed\\(initialized\\(\\)\\) Sm not initialized yet[^.]"),
                                uninitialized));
}

TEST_F(BfnMacRewriteSmEntriesDeathTest, AnAddressThatMovesWithoutADeleteIsFatal) {
  host.address(7, "10.0.0.1", "Ethernet1");
  EXPECT_DEATH(
      host.address(7, "10.0.0.1", "Ethernet2"),
      ::testing::AllOf(
          HasSubstr("Failed(!oldIntfId || oldIntfId == intfId) (Vrf, Ip)->Intf mapping shouldn't "
                    "change dynamically, without an explicit delete and add"),
          HasSubstr("\"!oldIntfId || oldIntfId == intfId\" == nullptr"),
          HasSubstr("BfnMacRewriteSm.cpp")));
}

TEST_F(BfnMacRewriteSmEntriesDeathTest, ASelfIpWithoutVlanThatMovesIsNotLookedAt) {
  host.address(7, "10.0.0.1", "Ethernet1");
  host.address(7, "10.0.0.1", "Ethernet2", true);
  EXPECT_EQ(indexed(7, "10.0.0.1"), Ovra::IntfId("Ethernet1"));
}

TEST_F(BfnMacRewriteSmEntriesDeathTest,
       ADeleteBeforeInitializationIsFatalWhereAddAndUpdateAreSilent) {
  sm().initializedIs(false);
  Pex::VrfId const vrfId(7);
  Ovra::IntfId const intfId("Ethernet1");
  sm().addOverlaySrcMacRewriteTableEntry(vrfId, intfId, ip("10.0.0.1"));
  sm().updateOverlaySrcMacRewriteTableEntry(vrfId, intfId, ip("10.0.0.1"));
  sm().handleL3IntfRoutingStatus(intfId);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_DEATH(
      sm().deleteOverlaySrcMacRewriteTableEntry(vrfId, intfId, ip("10.0.0.1")),
      ::testing::AllOf(
          ::testing::ContainsRegex("Failed\\(initialized\\(\\)\\) Sm not initialized yet[^.]"),
          HasSubstr("\"initialized()\" == nullptr"), HasSubstr("BfnMacRewriteSm.cpp")));
}

TEST_F(BfnMacRewriteSmEntriesDeathTest, ARowOnAnInterfaceWithoutRoutingStatusIsFatal) {
  EXPECT_DEATH(sm().addOverlaySrcMacRewriteTableEntry(Pex::VrfId(7), Ovra::IntfId("Ethernet9"),
                                                      ip("10.0.0.1")),
               HasSubstr("Failed(l3IntfRoutingStatus) intfId: Ethernet9"));
}

TEST_F(BfnMacRewriteSmEntriesDeathTest, TheBulkPassAssertsInitialization) {
  sm().initializedIs(false);
  EXPECT_DEATH(sm().handleL3IntfRoutingStatus(),
               ::testing::AllOf(HasSubstr("Failed(initialized()) Sm not initialized yet."),
                                HasSubstr("\"initialized()\" == nullptr")));
}

TEST_F(BfnMacRewriteSmEntriesDeathTest, AFailedAddStaysIndexedAndItsDeletionIsFatal) {
  host.chip.faults().failNext(1, {BfnChip::Fault::Kind::TableFull, nullptr});
  host.port("Ethernet1", 100);
  host.address(7, "10.0.0.1", "Ethernet1");
  EXPECT_EQ(indexed(7, "10.0.0.1"), Ovra::IntfId("Ethernet1"));
  EXPECT_DEATH(host.addressDel(7, "10.0.0.1"),
               HasSubstr("Failed(localMatchSpecAndRefCount) Entry doesn't exist. intfId: "
                         "Ethernet1, overlaySip: 10.0.0.1"));
}

}  // namespace
