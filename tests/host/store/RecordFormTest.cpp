// SPDX-License-Identifier: Apache-2.0
#include "host/store/RecordForm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

#include "agent/records/BfnMacRewriteInput.h"
#include "agent/records/BfnMacRewriteTypes.h"
#include "agent/records/Capability.h"
#include "framework/l3/L3RoutingStatus.h"
#include "framework/l3/L3Status.h"
#include "framework/l3/RouteStatus.h"
#include "framework/platform/SystemStatus.h"
#include "tests/host/store/Records.h"
#include "tests/support/Watcher.h"

namespace {

using BfnMacRewrite::Agent::Status;
using BfnTest::form;
using BfnTest::textOf;
using Host::applyChange;
using Host::differenceOf;
using Host::RecordForm;
using Host::recordForm;
using Host::StoreChange;
using Host::UnreadableException;
using Kiv::makeActive;
using Kiv::Ptr;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;
using Kind = StoreChange::Kind;

StoreChange changeOf(Kind kind, std::string const& collection, std::string const& key,
                     std::string const& value = {}) {
  return {kind, "p", collection, key, value, {}, {}};
}
StoreChange setting(std::string const& collection, std::string const& key,
                    std::string const& value) {
  return changeOf(Kind::Set, collection, key, value);
}

// A record of each type that a store keeps, with something in every attribute.
std::vector<Ptr<Kiv::PtrInterface>> filledRecords() {
  auto const config = makeActive<BfnMacRewrite::Input::Config>();
  config->overlaySrcMacRewriteEntryIs(
      {L3::VrfName("it's \"red\"\n"), Ovra::IpAddr(0x0A000001), Ovra::EthAddr()});
  config->overlaySrcMacRewriteEntryIs(
      {L3::VrfName("red"), Ovra::IpAddr(0x0A000002), Ovra::EthAddr()});
  auto const capability = makeActive<BfnMacRewrite::Capability>();
  capability->overlaySrcMacRewriteSupportedIs(true);
  auto const vrfs = makeActive<Pex::L3Status>();
  vrfs->vrfIs(L3::VrfName("red"), Pex::VrfId(7));
  vrfs->vrfIs(L3::VrfName("\xff"), Pex::VrfId(0));
  auto const ports = makeActive<BfnL3::L3RoutingStatus>();
  ports->routingEnabledIs(true);
  Pex::PortVlanPair const port(Ovra::IntfId("Ethernet1"), 5);
  ports->l3IntfRoutingStatusIs(port)->vlanIdIs(100);
  ports->l3IntfRoutingStatusIs(port)->vrfIdIs(Pex::VrfId(7));
  auto const routes = makeActive<Routing::Hardware::RouteStatus>();
  routes->vrfStatusIs(L3::VrfName("red"))->fwdVlanIdIs(4000);
  auto const system = makeActive<BfnSystem::SystemStatus>();
  system->profileInfoIs("")->chipCapabilitiesIs({});
  system->profileInfoIs("a b' \xfe")->chipCapabilitiesIs({});
  auto const addresses = makeActive<Status>();
  addresses->vrfStatusIs(Pex::VrfId(3));
  auto const vrf = addresses->vrfStatusIs(Pex::VrfId(7));
  vrf->ipAndIntfIdIs({Ovra::IpAddr(0x0A000001), Ovra::IntfId("Ethernet1"), true});
  vrf->ipAndIntfIdIs({Ovra::IpAddr(0x0A000002), Ovra::IntfId(), false});
  return {config, capability, vrfs, ports, routes, system, addresses};
}

TEST(RecordForm, EveryRecordComesBackAsItWas) {
  for (auto const& record : filledRecords()) {
    SCOPED_TRACE(record->fwkType().name());
    auto const copy = record->fwkType().construct({});
    RecordForm const text = recordForm(*record);
    EXPECT_THAT(text, ::testing::Not(IsEmpty()));
    Host::fillRecord(*copy, text, [](auto const& collection, auto const& key, auto const& why) {
      ADD_FAILURE() << collection << " " << key << ": " << why;
    });
    EXPECT_EQ(textOf(*copy), textOf(*record));
    EXPECT_EQ(recordForm(*copy), text);
  }
}

TEST(RecordForm, AnObjectIsOneValueAndItsCollectionsAreNamedAfterIt) {
  RecordForm const text = recordForm(*filledRecords().back());
  ASSERT_TRUE(text.contains("vrfStatus"));
  EXPECT_EQ(text.at("vrfStatus"), (std::map<std::string, std::string>{{"3", "{}"}, {"7", "{}"}}));
  ASSERT_TRUE(text.contains("vrfStatus[7].ipAndIntfId"));
  EXPECT_EQ(text.at("vrfStatus[7].ipAndIntfId").size(), 2u);
  RecordForm const ports = recordForm(*filledRecords()[3]);
  EXPECT_EQ(ports.at("l3IntfRoutingStatus").begin()->second, "{'vlanId': '100', 'vrfId': '7'}");
  EXPECT_EQ(ports.at("routingEnabled").at(""), "True");
}

// What the collection of interfaces holds when it notifies.
struct Announced final : public Kiv::NotifieeConst {
  explicit Announced(Ptr<BfnL3::L3RoutingStatus> const& record) { notifierIs(record); }
  void onAttribute(Kiv::AttributeId, void const* key) override {
    auto const& status = static_cast<BfnL3::L3RoutingStatus const&>(*notifierBase());
    auto const* const member =
        status.l3IntfRoutingStatus(*static_cast<Pex::PortVlanPair const*>(key));
    seen.push_back(member == nullptr ? "gone" : std::to_string(member->vlanId()));
  }
  std::vector<std::string> seen;
};

class PortsForm : public ::testing::Test {
 protected:
  Ptr<BfnL3::L3RoutingStatus> const ports = makeActive<BfnL3::L3RoutingStatus>();
  Ptr<Announced> const announced = makeActive<Announced>(ports);
  Pex::PortVlanPair const port{Ovra::IntfId("Ethernet1"), 5};
  std::string const key = form(port);
};

TEST_F(PortsForm, AnObjectIsAnnouncedWithItsFieldsSet) {
  applyChange(setting("l3IntfRoutingStatus", key, "{'vlanId': '100', 'vrfId': '7'}"), *ports);
  EXPECT_THAT(announced->seen, ElementsAre("100"));
}

TEST_F(PortsForm, SettingKeepsTheObjectAndReplacingDoesNot) {
  applyChange(setting("l3IntfRoutingStatus", key, "{'vlanId': '100', 'vrfId': '7'}"), *ports);
  Ptr<BfnL3::L3IntfRoutingStatus> const first(ports->l3IntfRoutingStatus(port));
  applyChange(setting("l3IntfRoutingStatus", key, "{'vlanId': '200'}"), *ports);
  EXPECT_EQ(ports->l3IntfRoutingStatus(port), first.get());
  EXPECT_EQ(first->vlanId(), 200);
  EXPECT_EQ(first->vrfId(), Pex::VrfId());  // written whole
  EXPECT_THAT(announced->seen, ElementsAre("100"));
  applyChange(changeOf(Kind::Replace, "l3IntfRoutingStatus", key, "{'vlanId': '300'}"), *ports);
  EXPECT_NE(ports->l3IntfRoutingStatus(port), first.get());
  EXPECT_THAT(announced->seen, ElementsAre("100", "300"));
}

TEST_F(PortsForm, RemovingWhatIsNotThereSaysNothing) {
  applyChange(changeOf(Kind::Del, "l3IntfRoutingStatus", key), *ports);
  EXPECT_THAT(announced->seen, IsEmpty());
  applyChange(setting("l3IntfRoutingStatus", key, "{}"), *ports);
  applyChange(changeOf(Kind::Del, "l3IntfRoutingStatus", key), *ports);
  EXPECT_THAT(announced->seen, ElementsAre("0", "gone"));
}

TEST(RecordForm, AValueInAnObjectThatIsNotThereMakesTheObjectWithIt) {
  auto const addresses = makeActive<Status>();
  auto const watcher = makeActive<BfnTest::Watcher>(addresses);
  size_t seen = 0;
  watcher->then = [&] {
    if (addresses->vrfStatus(Pex::VrfId(7)) != nullptr) {
      seen = addresses->vrfStatus(Pex::VrfId(7))->ipAndIntfId().size();
    }
  };
  BfnMacRewrite::Agent::IpAndIntfId const one(Ovra::IpAddr(1), Ovra::IntfId("Ethernet1"), false);
  BfnMacRewrite::Agent::IpAndIntfId const two(Ovra::IpAddr(2), Ovra::IntfId("Ethernet1"), false);
  applyChange(setting("vrfStatus[7].ipAndIntfId", form(one.ipAddr), form(one)), *addresses);
  EXPECT_EQ(seen, 1u);
  applyChange(setting("vrfStatus[7].ipAndIntfId", form(two.ipAddr), form(two)), *addresses);
  EXPECT_THAT(watcher->changes, ElementsAre(Status::kVrfStatus.id));
  EXPECT_EQ(addresses->vrfStatus(Pex::VrfId(7))->ipAndIntfId(two.ipAddr), two);
  applyChange(changeOf(Kind::Del, "vrfStatus[7].ipAndIntfId", form(one.ipAddr)), *addresses);
  applyChange(changeOf(Kind::Del, "vrfStatus[8].ipAndIntfId", form(one.ipAddr)), *addresses);
  EXPECT_EQ(addresses->vrfStatus(Pex::VrfId(7))->ipAndIntfId().size(), 1u);
  EXPECT_EQ(addresses->vrfStatus(Pex::VrfId(8)), nullptr);
}

TEST(RecordForm, WhatGoesWithAnObjectIsNamed) {
  StoreChange del = changeOf(Kind::Del, "vrfStatus", "7");
  Host::completeChange(del, Status::_kivType());
  EXPECT_THAT(del.drops, ElementsAre("vrfStatus[7].ipAndIntfId"));
  BfnMacRewrite::Agent::IpAndIntfId const one(Ovra::IpAddr(1), Ovra::IntfId("Ethernet1"), false);
  StoreChange inner = setting("vrfStatus[7].ipAndIntfId", form(one.ipAddr), form(one));
  Host::completeChange(inner, Status::_kivType());
  EXPECT_THAT(inner.drops, IsEmpty());
  EXPECT_EQ(inner.within, (StoreChange::Entry{"vrfStatus", "7", "{}"}));
  StoreChange plain = setting("vrfStatus", "7", "{}");
  Host::completeChange(plain, Status::_kivType());
  EXPECT_THAT(plain.drops, IsEmpty());
  EXPECT_FALSE(plain.within);
}

struct Unreadable {
  StoreChange change;
  std::string why;
};

TEST(RecordForm, WhatDoesNotFitIsRefusedAndChangesNothing) {
  auto const records = filledRecords();
  std::string const ip = form(Ovra::IpAddr(0x0A000001));
  std::string const port = form(Pex::PortVlanPair(Ovra::IntfId("Ethernet1"), 5));
  std::vector<std::pair<size_t, Unreadable>> const cases{
      {1, {setting("nothing", "", "True"), "keeps no \"nothing\""}},
      {1, {setting("fullName", "", "x"), "keeps no \"fullName\""}},
      {1, {setting("overlaySrcMacRewriteSupported", "", "maybe"), "expected"}},
      {1, {setting("overlaySrcMacRewriteSupported", "x", "True"), "it has no keys"}},
      {1, {changeOf(Kind::Del, "overlaySrcMacRewriteSupported", ""), "it can be set only"}},
      {2, {setting("vrfName", "seven", "'red'"), ""}},
      {2, {setting("vrfName", "07", "'red'"), ""}},
      {2, {setting("vrfNameToId", "'\\x72ed'", "7"), "its key has another form"}},
      {2, {setting("vrfName", "7", ""), ""}},
      {2, {changeOf(Kind::Replace, "vrfName", "7", "'red'"), "not replaced"}},
      {2, {changeOf(Kind::Del, "vrfName", "x"), ""}},
      {2, {setting("vrfName[7].x", "7", "'red'"), "it has no members"}},
      {3, {setting("l3IntfRoutingStatus", port, ""), "{"}},
      {3, {setting("l3IntfRoutingStatus", port, "{'vlanId': '65536'}"), ""}},
      {3, {setting("l3IntfRoutingStatus", port, "{'mtu': '1'}"), "keeps no \"mtu\""}},
      {3, {setting("l3IntfRoutingStatus", port, "{'vlanId': '1'} "), ""}},
      {3, {setting("l3IntfRoutingStatus", port, "{'vlanId': '1',}"), ""}},
      {6, {setting("vrfStatus[7].vrfId", "1", "1"), "keeps no \"vrfId\""}},
      {6, {setting("vrfStatus[7", "1", "1"), "keeps no"}},
      {6, {setting("vrfStatus[7].", "1", "1"), "keeps no"}},
      {6, {setting("vrfStatus[].ipAndIntfId", ip, "1"), ""}},
      {6,
       {setting("vrfStatus[7].ipAndIntfId", ip,
                form(BfnMacRewrite::Agent::IpAndIntfId(Ovra::IpAddr(2), Ovra::IntfId(), false))),
        "its value has another key"}},
  };
  for (auto const& [index, unreadable] : cases) {
    Kiv::PtrInterface& record = *records[index];
    StoreChange change = unreadable.change;
    std::string const before = textOf(record);
    SCOPED_TRACE(change.collection + " " + change.key + " = " + change.value);
    EXPECT_THAT(([&record, &change] { applyChange(change, record); }),
                ThrowsMessage<UnreadableException>(HasSubstr(unreadable.why)));
    EXPECT_THROW(Host::completeChange(change, record.fwkType()), UnreadableException);
    EXPECT_EQ(textOf(record), before);
  }
}

TEST(RecordForm, AValueUnderItsOwnKeyIsSetUnlessItIsThere) {
  using BfnMacRewrite::Input::VrfIpAndMac;
  auto const config = makeActive<BfnMacRewrite::Input::Config>();
  auto const watcher = makeActive<BfnTest::Watcher>(config);
  constexpr char kLines[] = "overlaySrcMacRewriteEntry";
  VrfIpAndMac const line(L3::VrfName("red"), Ovra::IpAddr(1), Ovra::EthAddr());
  std::string key = form(line.key());
  applyChange(setting(kLines, key, form(line)), *config);
  applyChange(setting(kLines, key, form(line)), *config);
  EXPECT_EQ(watcher->changes.size(), 1u);
  EXPECT_EQ(recordForm(*config).at(kLines),
            (std::map<std::string, std::string>{{key, form(line)}}));
  // The same key in other letters.
  key.replace(key.find("red"), 1, "\\x72");
  EXPECT_THAT([&] { applyChange(setting(kLines, key, form(line)), *config); },
              ThrowsMessage<UnreadableException>(HasSubstr("its key has another form")));
  EXPECT_EQ(watcher->changes.size(), 1u);
}

TEST(RecordForm, WhatAHandlerThrowsComesOutAndTheChangeIsDone) {
  auto const vrfs = makeActive<Pex::L3Status>();
  auto const watcher = makeActive<BfnTest::Watcher>(vrfs);
  watcher->then = [] { throw Kiv::RangeException("of a handler"); };
  EXPECT_THAT([&] { applyChange(setting("vrfName", "7", "'red'"), *vrfs); },
              ThrowsMessage<Kiv::RangeException>(HasSubstr("of a handler")));
  EXPECT_EQ(vrfs->vrfName(Pex::VrfId(7)), L3::VrfName("red"));
}

TEST_F(PortsForm, AllFieldsAreSetWhateverTheHandlersThrow) {
  applyChange(setting("l3IntfRoutingStatus", key, "{'vlanId': '1', 'vrfId': '1'}"), *ports);
  auto const watcher = makeActive<BfnTest::Watcher>(
      Ptr<BfnL3::L3IntfRoutingStatus>(ports->l3IntfRoutingStatus(port)));
  watcher->then = [] { throw std::runtime_error("of a handler"); };
  StoreChange const both = setting("l3IntfRoutingStatus", key, "{'vlanId': '2', 'vrfId': '2'}");
  EXPECT_THROW(applyChange(both, *ports), std::runtime_error);
  EXPECT_EQ(watcher->changes.size(), 2u);
  EXPECT_EQ(ports->l3IntfRoutingStatus(port)->vrfId(), Pex::VrfId(2));
}

std::vector<std::string> shown(std::vector<StoreChange> const& changes) {
  std::vector<std::string> lines;
  for (StoreChange const& each : changes) {
    lines.push_back(std::string(name(each.kind)) + " " + each.collection + " " + each.key + " " +
                    each.value);
  }
  return lines;
}

TEST(RecordForm, ADifferenceRemovesWhatWentAndWhatChangedAndAddsTheRest) {
  RecordForm const from{{"a", {{"1", "x"}, {"2", "x"}, {"3", "x"}}}, {"s", {{"", "old"}}}};
  RecordForm const to{{"a", {{"1", "x"}, {"2", "y"}, {"4", "x"}}}, {"s", {{"", "new"}}}};
  EXPECT_THAT(shown(differenceOf("p", from, to)),
              ElementsAre("del a 2 ", "del a 3 ", "set a 2 y", "set a 4 x", "set s  new"));
  EXPECT_THAT(differenceOf("p", to, to), IsEmpty());
}

TEST(RecordForm, ADifferenceOfAnObjectBringsAllThatItHoldsAgain) {
  RecordForm const from{{"m", {{"7", "{old}"}, {"8", "{}"}, {"9", "{}"}}},
                        {"m[7].v", {{"1", "x"}}},
                        {"m[8].v", {{"1", "x"}, {"2", "x"}}},
                        {"m[9].v", {{"1", "x"}}}};
  RecordForm const to{
      {"m", {{"7", "{new}"}, {"8", "{}"}}}, {"m[7].v", {{"1", "x"}}}, {"m[8].v", {{"1", "x"}}}};
  EXPECT_THAT(
      shown(differenceOf("p", from, to)),
      ElementsAre("del m 7 ", "del m 9 ", "del m[8].v 2 ", "set m 7 {new}", "set m[7].v 1 x"));
}

}  // namespace
