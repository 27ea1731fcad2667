// SPDX-License-Identifier: Apache-2.0
#include "intfstatus/BfnMacRewriteIntfRoutingStatusSm.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "framework/generic/Type.h"
#include "tests/intfstatus/IntfLog.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/Watcher.h"

namespace {

using BfnL3::L3IntfRoutingStatus;
using BfnL3::L3RoutingStatus;
using BfnMacRewrite::bfnMacRewriteIntfRoutingStatusSmFactory;
using BfnMacRewrite::IntfIdToRoutingStatus;
using BfnTest::TraceCapture;
using Pex::PortVlanPair;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Sm = BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm;

PortVlanPair key(char const* intf, unsigned vlan = 0) {
  return {Ovra::IntfId(intf), static_cast<Kiv::U16>(vlan)};
}

constexpr char const* kInitializedTrace =
    "void BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm::handleInitialized(): ";

/// The text of a handler's trace: "Port: intfId: Ethernet1, vlan: 0".
std::vector<std::string> traces() {
  std::vector<std::string> texts = TraceCapture::texts();
  TraceCapture::clear();
  constexpr std::pair<char const*, char const*> kNames[] = {
      {"void BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm::handleL3PortAndLagRoutingStatus("
       "const Pex::PortVlanPair&)",
       "port"},
      {"void BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm::handleVlanIntfRoutingStatus("
       "const Pex::PortVlanPair&)",
       "vlan"},
      {"void BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm::handleL3SubIntfRoutingStatus("
       "const Pex::PortVlanPair&)",
       "sub"},
      {"void BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm::handleInitialized()", "start"}};
  for (std::string& text : texts) {
    // The compilers write a reference to const in their own ways.
    if (size_t const at = text.find("const Pex::PortVlanPair &)"); at != std::string::npos) {
      text.erase(at + std::string("const Pex::PortVlanPair").size(), 1);
    }
    for (auto const& [signature, name] : kNames) {
      if (text.starts_with(signature)) text.replace(0, std::string(signature).size(), name);
    }
  }
  return texts;
}

class IntfRoutingStatusSmTest : public ::testing::Test {
 protected:
  Kiv::Ptr<L3RoutingStatus> ports = Kiv::makeActive<L3RoutingStatus>();
  Kiv::Ptr<L3RoutingStatus> vlans = Kiv::makeActive<L3RoutingStatus>();
  Kiv::Ptr<L3RoutingStatus> subs = Kiv::makeActive<L3RoutingStatus>();
  Kiv::Ptr<IntfIdToRoutingStatus> merged = Kiv::makeActive<IntfIdToRoutingStatus>();
  Kiv::Ptr<BfnTest::IntfLog> log = Kiv::makeActive<BfnTest::IntfLog>(merged);
  TraceCapture capture;

  Kiv::Ptr<Sm> start() {
    return bfnMacRewriteIntfRoutingStatusSmFactory(ports, vlans, subs, merged);
  }
  L3IntfRoutingStatus const* at(char const* intf) const {
    return merged->l3IntfRoutingStatus(Ovra::IntfId(intf));
  }
};

TEST_F(IntfRoutingStatusSmTest, IsKnownByItsNameWithItsMembersInOrder) {
  auto const sm = start();
  EXPECT_EQ(sm->fwkType().name(), "BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm");
  std::vector<std::string> names;
  for (auto const& attribute : sm->fwkType().attributes()) names.emplace_back(attribute.name);
  EXPECT_THAT(names, ElementsAre("l3PortAndLagRoutingStatus", "vlanIntfRoutingStatus",
                                 "l3SubIntfRoutingStatus", "intfIdToRoutingStatus", "initialized"));
}

TEST_F(IntfRoutingStatusSmTest, EverythingThatIsThereIsMergedWhenTheFactoryReturns) {
  auto const port = ports->l3IntfRoutingStatusIs(key("Ethernet1"));
  auto const vlan = vlans->l3IntfRoutingStatusIs(key("Vlan10", 10));
  auto const sub = subs->l3IntfRoutingStatusIs(key("Ethernet2.7", 7));
  auto const sm = start();
  EXPECT_TRUE(sm->initialized());
  EXPECT_TRUE(sm->hasNotificationActive());
  EXPECT_EQ(sm->l3PortAndLagRoutingStatus(), ports);
  EXPECT_EQ(sm->vlanIntfRoutingStatus(), vlans);
  EXPECT_EQ(sm->l3SubIntfRoutingStatus(), subs);
  EXPECT_EQ(sm->intfIdToRoutingStatus(), merged);
  EXPECT_EQ(at("Ethernet1"), port.get());
  EXPECT_EQ(at("Vlan10"), vlan.get());
  EXPECT_EQ(at("Ethernet2.7"), sub.get());
  EXPECT_THAT(log->changes, ElementsAre("Ethernet1", "Vlan10", "Ethernet2.7"));
}

TEST_F(IntfRoutingStatusSmTest, StartTracesAndWalksPortsThenVlansThenSubInterfaces) {
  ports->l3IntfRoutingStatusIs(key("Ethernet1"));
  vlans->l3IntfRoutingStatusIs(key("Vlan10", 10));
  subs->l3IntfRoutingStatusIs(key("Ethernet2.7", 7));
  auto const sm = start();
  auto const records = TraceCapture::records();
  ASSERT_THAT(records, SizeIs(4));
  EXPECT_EQ(records[0].text, kInitializedTrace);
  for (auto const& record : records) {
    EXPECT_EQ(record.statement->facility(), "BfnMacRewriteIntfRoutingStatusSm");
    EXPECT_EQ(record.statement->level(), 9u);
  }
  EXPECT_THAT(traces(),
              ElementsAre("start: ", "port: intfId: Ethernet1, vlan: 0",
                          "vlan: intfId: Vlan10, vlan: 10", "sub: intfId: Ethernet2.7, vlan: 7"));
}

TEST_F(IntfRoutingStatusSmTest, EachChangeIsTracedBeforeItIsMerged) {
  auto const sm = start();
  auto const watcher = Kiv::makeActive<BfnTest::Watcher>(merged);
  std::vector<std::string> last;
  watcher->then = [&] {
    auto const texts = traces();
    last.push_back(texts.empty() ? "nothing" : texts.back());
  };
  traces();
  ports->l3IntfRoutingStatusIs(key("Ethernet1"));
  vlans->l3IntfRoutingStatusIs(key("Vlan10", 10));
  subs->l3IntfRoutingStatusIs(key("Ethernet2.7", 7));
  EXPECT_THAT(last,
              ElementsAre("port: intfId: Ethernet1, vlan: 0", "vlan: intfId: Vlan10, vlan: 10",
                          "sub: intfId: Ethernet2.7, vlan: 7"));
}

TEST_F(IntfRoutingStatusSmTest, AtTheStartSubInterfacesWinOverVlansAndThoseOverPorts) {
  auto const port = ports->l3IntfRoutingStatusIs(key("A"));
  auto const vlan = vlans->l3IntfRoutingStatusIs(key("A"));
  vlans->l3IntfRoutingStatusIs(key("B"));
  ports->l3IntfRoutingStatusIs(key("B"));
  auto const sub = subs->l3IntfRoutingStatusIs(key("A"));
  auto const sm = start();
  EXPECT_EQ(at("A"), sub.get());
  EXPECT_EQ(at("B"), vlans->l3IntfRoutingStatus(key("B")));
  EXPECT_NE(port, vlan);
}

TEST_F(IntfRoutingStatusSmTest, ANullInputContributesNothingAndDoesNotCrash) {
  for (unsigned mask = 0; mask < 16; ++mask) {
    SCOPED_TRACE(mask);
    auto const output = Kiv::makeActive<IntfIdToRoutingStatus>();
    Kiv::Ptr<L3RoutingStatus> const none;
    auto const sm = bfnMacRewriteIntfRoutingStatusSmFactory(
        mask & 1 ? ports : none, mask & 2 ? vlans : none, mask & 4 ? subs : none,
        mask & 8 ? output : Kiv::Ptr<IntfIdToRoutingStatus>());
    EXPECT_EQ(sm->l3PortAndLagRoutingStatus() != nullptr, (mask & 1) != 0);
    EXPECT_EQ(sm->vlanIntfRoutingStatus() != nullptr, (mask & 2) != 0);
    EXPECT_EQ(sm->l3SubIntfRoutingStatus() != nullptr, (mask & 4) != 0);
    ports->l3IntfRoutingStatusIs(key("P"));
    vlans->l3IntfRoutingStatusIs(key("V"));
    subs->l3IntfRoutingStatusIs(key("S"));
    bool const writes = (mask & 8) != 0;
    EXPECT_EQ(output->l3IntfRoutingStatus(Ovra::IntfId("P")) != nullptr, writes && (mask & 1));
    EXPECT_EQ(output->l3IntfRoutingStatus(Ovra::IntfId("V")) != nullptr, writes && (mask & 2));
    EXPECT_EQ(output->l3IntfRoutingStatus(Ovra::IntfId("S")) != nullptr, writes && (mask & 4));
    sm->handleL3PortAndLagRoutingStatus(key("P"));
    sm->handleVlanIntfRoutingStatus(key("V"));
    sm->handleL3SubIntfRoutingStatus(key("S"));
    ports->l3IntfRoutingStatusDelAll();
    vlans->l3IntfRoutingStatusDelAll();
    subs->l3IntfRoutingStatusDelAll();
  }
}

TEST_F(IntfRoutingStatusSmTest, EachSourceRunsItsOwnHandlerOnceInOrderOfTheirMaking) {
  // One object in all three places shows the order of registration.
  auto const sm = bfnMacRewriteIntfRoutingStatusSmFactory(ports, ports, ports, merged);
  traces();
  ports->l3IntfRoutingStatusIs(key("Ethernet1", 4095));
  EXPECT_THAT(traces(), ElementsAre("port: intfId: Ethernet1, vlan: 4095",
                                    "vlan: intfId: Ethernet1, vlan: 4095",
                                    "sub: intfId: Ethernet1, vlan: 4095"));
}

TEST_F(IntfRoutingStatusSmTest, ANewEntityIsSharedNotCopied) {
  auto const sm = start();
  for (auto const& source : {ports, vlans, subs}) {
    log->changes.clear();
    auto const status = source->l3IntfRoutingStatusIs(key("A"));
    EXPECT_EQ(at("A"), status.get());
    EXPECT_THAT(log->changes, ElementsAre("A"));
  }
}

TEST_F(IntfRoutingStatusSmTest, AnyVlanInTheKeyIsLegalAndOnlyTraced) {
  auto const sm = start();
  traces();
  for (unsigned const vlan : {0u, 4095u, 65535u}) {
    auto const status = ports->l3IntfRoutingStatusIs(key("A", vlan));
    EXPECT_EQ(at("A"), status.get());
    EXPECT_THAT(traces(), ElementsAre("port: intfId: A, vlan: " + std::to_string(vlan)));
  }
}

TEST_F(IntfRoutingStatusSmTest, NotInitializedItIsSilent) {
  auto const sm = start();
  traces();
  sm->initializedIs(false);
  ports->l3IntfRoutingStatusIs(key("A"));
  vlans->l3IntfRoutingStatusIs(key("A"));
  subs->l3IntfRoutingStatusIs(key("A"));
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_EQ(at("A"), nullptr);
  sm->initializedIs(true);
  ports->l3IntfRoutingStatusRenotify(key("A"));
  EXPECT_EQ(at("A"), ports->l3IntfRoutingStatus(key("A")));
}

TEST_F(IntfRoutingStatusSmTest, TheLastWriterWinsAmongSourcesAndVlans) {
  auto const sm = start();
  subs->l3IntfRoutingStatusIs(key("A", 1));
  auto const port = ports->l3IntfRoutingStatusIs(key("A", 2));
  EXPECT_EQ(at("A"), port.get());
  auto const later = ports->l3IntfRoutingStatusIs(key("A", 3));
  EXPECT_EQ(at("A"), later.get());
  ports->l3IntfRoutingStatusRenotify(key("A", 2));
  EXPECT_EQ(at("A"), port.get());
}

TEST_F(IntfRoutingStatusSmTest, AVanishedKeyEmptiesThePlaceThoughOthersHoldTheInterface) {
  auto const sm = start();
  subs->l3IntfRoutingStatusIs(key("A"));
  ports->l3IntfRoutingStatusIs(key("A", 1));
  ports->l3IntfRoutingStatusIs(key("A", 2));
  ports->l3IntfRoutingStatusDel(key("A", 1));
  EXPECT_EQ(at("A"), nullptr);
  log->changes.clear();
  ports->l3IntfRoutingStatusDel(key("A", 2));
  EXPECT_THAT(log->changes, IsEmpty());
  subs->l3IntfRoutingStatusRenotify(key("A"));
  EXPECT_NE(at("A"), nullptr);
}

TEST_F(IntfRoutingStatusSmTest, TheEntityThatIsStoredAlreadyDoesNotNotify) {
  auto const status = ports->l3IntfRoutingStatusIs(key("A"));
  auto const sm = start();
  log->changes.clear();
  traces();
  ports->l3IntfRoutingStatusRenotify(key("A"));
  EXPECT_THAT(traces(), ElementsAre("port: intfId: A, vlan: 0"));
  status->vlanIdIs(7);
  status->vrfIdIs(Pex::VrfId(3));
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(log->changes, IsEmpty());
  EXPECT_EQ(at("A")->vlanId(), 7);
}

TEST_F(IntfRoutingStatusSmTest, AnotherEntityUnderTheKeyReplacesTheStoredOne) {
  ports->l3IntfRoutingStatusIs(key("A"));
  auto const sm = start();
  log->changes.clear();
  auto const made = Kiv::makeActive<L3IntfRoutingStatus>(key("A"));
  ports->l3IntfRoutingStatusIs(made);
  EXPECT_EQ(at("A"), made.get());
  EXPECT_THAT(log->changes, ElementsAre("A"));
}

TEST_F(IntfRoutingStatusSmTest, AnotherAttributeOrANullKeyIsIgnored) {
  ports->l3IntfRoutingStatusIs(key("A"));
  auto const sm = start();
  merged->l3IntfRoutingStatusDelAll();
  traces();
  for (auto const& source : {ports, vlans, subs}) {
    source->routingEnabledIs(true);
    source->notify(L3RoutingStatus::kL3IntfRoutingStatus.id, nullptr);
  }
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_EQ(at("A"), nullptr);
}

TEST_F(IntfRoutingStatusSmTest, ASecondPassNeitherClearsNorPrunesTheOutput) {
  auto const own = Kiv::makeActive<L3IntfRoutingStatus>(key("Old"));
  merged->l3IntfRoutingStatusIs(Ovra::IntfId("Old"), own);
  ports->l3IntfRoutingStatusIs(key("A"));
  auto const sm = start();
  EXPECT_EQ(at("Old"), own.get());
  merged->l3IntfRoutingStatusDel(Ovra::IntfId("A"));
  log->changes.clear();
  sm->handleInitialized();
  EXPECT_EQ(at("Old"), own.get());
  EXPECT_THAT(log->changes, ElementsAre("A"));
}

TEST_F(IntfRoutingStatusSmTest, TheWalkToleratesHandlersThatChangeTheSource) {
  for (int i = 0; i < 100; ++i) ports->l3IntfRoutingStatusIs(key("E", static_cast<unsigned>(i)));
  for (int i = 0; i < 100; ++i) {
    ports->l3IntfRoutingStatusIs(key(("Eth" + std::to_string(i)).c_str()));
  }
  std::vector<std::string> removed;
  int added = 0;
  log->action = [&] {
    // Each key that is handled makes the source grow, and takes out one that still may come.
    if (added < 200) {
      ports->l3IntfRoutingStatusIs(key(("New" + std::to_string(added++)).c_str()));
    }
    std::string const victim = "Eth" + std::to_string(removed.size());
    if (removed.size() < 50) {
      removed.push_back(victim);
      ports->l3IntfRoutingStatusDel(key(victim.c_str()));
    }
  };
  auto const sm = start();
  std::vector<std::string> const all = traces();
  for (int i = 50; i < 100; ++i) {
    std::string const intf = "Eth" + std::to_string(i);
    EXPECT_EQ(std::ranges::count(all, "port: intfId: " + intf + ", vlan: 0"), 1) << intf;
    EXPECT_NE(at(intf.c_str()), nullptr);
  }
  for (std::string const& intf : removed) EXPECT_EQ(at(intf.c_str()), nullptr) << intf;
}

TEST_F(IntfRoutingStatusSmTest, AHandlerMayDropTheReactorOfTheWalk) {
  ports->l3IntfRoutingStatusIs(key("A"));
  ports->l3IntfRoutingStatusIs(key("B"));
  auto const sm = start();
  merged->l3IntfRoutingStatusDelAll();
  log->changes.clear();
  log->action = [&] { sm->l3PortAndLagRoutingStatusDel(); };
  sm->handleInitialized();
  EXPECT_THAT(log->changes, SizeIs(1));
}

TEST_F(IntfRoutingStatusSmTest, AHandlerMayDropTheMachineDuringTheWalk) {
  ports->l3IntfRoutingStatusIs(key("A"));
  ports->l3IntfRoutingStatusIs(key("B"));
  auto sm = start();
  merged->l3IntfRoutingStatusDelAll();
  log->changes.clear();
  log->action = [&] { sm.reset(); };
  sm->handleInitialized();
  EXPECT_THAT(log->changes, SizeIs(2));
  ports->l3IntfRoutingStatusIs(key("C"));
  EXPECT_EQ(at("C"), nullptr);
}

TEST_F(IntfRoutingStatusSmTest, ADroppedReactorLeavesTheOutputAndHearsNothingMore) {
  auto const sm = start();
  auto const status = ports->l3IntfRoutingStatusIs(key("P"));
  vlans->l3IntfRoutingStatusIs(key("V"));
  subs->l3IntfRoutingStatusIs(key("S"));
  Kiv::U32 const references = ports->kivRefCount();
  log->changes.clear();
  sm->l3PortAndLagRoutingStatusDel();
  EXPECT_EQ(ports->kivRefCount(), references - 1);
  EXPECT_FALSE(sm->l3PortAndLagRoutingStatus());
  ports->l3IntfRoutingStatusDel(key("P"));
  EXPECT_EQ(at("P"), status.get());
  EXPECT_THAT(log->changes, IsEmpty());
  sm->vlanIntfRoutingStatusDel();
  sm->l3SubIntfRoutingStatusDel();
  vlans->l3IntfRoutingStatusDel(key("V"));
  subs->l3IntfRoutingStatusDel(key("S"));
  EXPECT_NE(at("V"), nullptr);
  EXPECT_NE(at("S"), nullptr);
}

TEST_F(IntfRoutingStatusSmTest, ItsDestructionLeavesTheOutputAndReleasesTheInputs) {
  auto const status = ports->l3IntfRoutingStatusIs(key("A"));
  Kiv::U32 const references = ports->kivRefCount();
  auto sm = start();
  EXPECT_EQ(ports->kivRefCount(), references + 1);
  log->changes.clear();
  sm.reset();
  EXPECT_EQ(ports->kivRefCount(), references);
  EXPECT_EQ(at("A"), status.get());
  ports->l3IntfRoutingStatusDel(key("A"));
  EXPECT_EQ(at("A"), status.get());
  EXPECT_THAT(log->changes, IsEmpty());
}

TEST_F(IntfRoutingStatusSmTest, AKeyThatGoesWhileTheFirstPassRunsIsNotMetByIt) {
  // Whichever comes first takes the other one away, and gives its interface another VLAN, which
  // registers nothing in a walk over what was there before.
  for (char const* const intf : {"Ethernet1", "Ethernet2"}) {
    ports->l3IntfRoutingStatusIs(key(intf, 10));
  }
  std::string other;
  log->action = [&] {
    log->action = nullptr;
    other = log->changes[0] == "Ethernet1" ? "Ethernet2" : "Ethernet1";
    ports->l3IntfRoutingStatusDel(key(other.c_str(), 10));
    merged->l3IntfRoutingStatusIs(Ovra::IntfId(other.c_str()),
                                  Kiv::makeActive<L3IntfRoutingStatus>(key(other.c_str(), 20)));
  };
  auto const sm = start();
  ASSERT_FALSE(other.empty());
  EXPECT_NE(at(other.c_str()), nullptr);
}

}  // namespace
