// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "agent/records/BfnMacRewriteInput.h"
#include "agent/records/BfnMacRewriteTypes.h"
#include "framework/core/Hash.h"
#include "framework/core/Notifiee.h"
#include "tests/support/AllocationCount.h"

namespace {

using BfnMacRewrite::Capability;
using BfnMacRewrite::IpAndMac;
using BfnMacRewrite::Agent::Config;
using BfnMacRewrite::Agent::IpAndIntfId;
using BfnMacRewrite::Agent::OverlaySrcMacRewrite;
using BfnMacRewrite::Agent::Status;
using BfnMacRewrite::Agent::VrfStatus;
using Kiv::AttributeId;
using Kiv::makeActive;
using Kiv::Ptr;
using Kiv::U32;
using Ovra::ethAddrFromOuiStation;
using Ovra::IntfId;
using Ovra::IpAddr;
using Pex::VrfId;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

static_assert(std::is_base_of_v<Kiv::Entity, Config>);
static_assert(std::is_base_of_v<Kiv::Entity, OverlaySrcMacRewrite>);
static_assert(!std::is_base_of_v<Kiv::Entity, Status>);
static_assert(!std::is_base_of_v<Kiv::Entity, VrfStatus>);
static_assert(Config::kOverlaySrcMacRewrite.id == 258);
static_assert(OverlaySrcMacRewrite::kVrfId.id == 258 && OverlaySrcMacRewrite::kIpAndMac.id == 259);
static_assert(Status::kVrfStatus.id == 130);
static_assert(VrfStatus::kVrfId.id == 130 && VrfStatus::kIpAndIntfId.id == 131);

// Notes each notification as "<id> <key>".
template <class Key>
class Listener final : public Kiv::NotifieeConst {
 public:
  explicit Listener(Ptr<Kiv::PtrInterface const> const& notifier) {
    NotifieeConst::notifierIs(notifier);
  }
  void onAttribute(AttributeId id, void const* key) override {
    std::ostringstream text;
    text << id << ' ' << *static_cast<Key const*>(key);
    notified.push_back(text.str());
    if (action) action(*static_cast<Key const*>(key));
  }
  std::vector<std::string> notified;
  std::function<void(Key)> action;
};

IpAddr const kIp(0x0A00'0001);
IpAndMac const kRewrite(kIp, ethAddrFromOuiStation(0x020406, 0x08000A));
IpAndIntfId const kHomeIp(kIp, IntfId("Ethernet1"), false);

TEST(AgentConfig, HasAnEmptyName) {
  auto const config = makeActive<Config>();
  EXPECT_EQ(config->name(), Kiv::Name());
  EXPECT_EQ(config->overlaySrcMacRewriteIs(VrfId(7))->name(), Kiv::Name());
}

TEST(AgentConfig, AnAbsentVrfIsMadeSwitchedOnPutUnderTheConfigAndNotified) {
  auto const config = makeActive<Config>();
  auto const listener = makeActive<Listener<VrfId>>(config);
  listener->action = [&](VrfId vrfId) {
    auto const* const member = config->overlaySrcMacRewrite(vrfId);
    ASSERT_NE(member, nullptr);
    EXPECT_TRUE(member->hasNotificationActive());
    EXPECT_EQ(member->parent(), config);
  };
  auto const member = config->overlaySrcMacRewriteIs(VrfId(7));
  EXPECT_EQ(member->vrfId(), VrfId(7));
  EXPECT_EQ(member->parentAttrName(), "overlaySrcMacRewrite");
  EXPECT_THAT(listener->notified, ElementsAre("258 7"));
}

TEST(AgentConfig, TheSameVrfTwiceIsOneObjectAndOneNotification) {
  auto const config = makeActive<Config>();
  auto const listener = makeActive<Listener<VrfId>>(config);
  auto const member = config->overlaySrcMacRewriteIs(VrfId(7));
  EXPECT_EQ(config->overlaySrcMacRewriteIs(VrfId(7)), member);
  EXPECT_THAT(listener->notified, ElementsAre("258 7"));
}

TEST(AgentConfig, ARemovedVrfIsGoneWhenItsRemovalIsNotified) {
  auto const config = makeActive<Config>();
  config->overlaySrcMacRewriteIs(VrfId(7));
  auto const listener = makeActive<Listener<VrfId>>(config);
  listener->action = [&](VrfId id) { EXPECT_EQ(config->overlaySrcMacRewrite(id), nullptr); };
  config->overlaySrcMacRewriteDel(VrfId(7));
  config->overlaySrcMacRewriteDel(VrfId(7));
  EXPECT_THAT(listener->notified, ElementsAre("258 7"));
}

TEST(AgentConfig, DeletingAllNotifiesOfEachVrf) {
  auto const config = makeActive<Config>();
  for (unsigned i = 1; i <= 3; ++i) config->overlaySrcMacRewriteIs(VrfId(i));
  auto const listener = makeActive<Listener<VrfId>>(config);
  config->overlaySrcMacRewriteDelAll();
  EXPECT_THAT(listener->notified, UnorderedElementsAre("258 1", "258 2", "258 3"));
  EXPECT_TRUE(config->overlaySrcMacRewrite().empty());
}

TEST(AgentConfig, AVrfWithoutAddressesStaysUntilItIsDeleted) {
  auto const config = makeActive<Config>();
  auto const member = config->overlaySrcMacRewriteIs(VrfId(7));
  member->ipAndMacIs(kRewrite);
  member->ipAndMacDel(kIp);
  EXPECT_EQ(config->overlaySrcMacRewrite(VrfId(7)), member.get());
}

TEST(OverlaySrcMacRewrite, NotifiesOfInsertionRealReplacementAndRemoval) {
  auto const record = makeActive<OverlaySrcMacRewrite>(VrfId(7));
  auto const listener = makeActive<Listener<IpAddr>>(record);
  record->ipAndMacIs(kRewrite);
  record->ipAndMacIs(kRewrite);
  EXPECT_THAT(listener->notified, ElementsAre("259 10.0.0.1"));
  IpAndMac const other(kIp, ethAddrFromOuiStation(1, 2));
  record->ipAndMacIs(other);
  EXPECT_EQ(record->ipAndMac(kIp), other);
  EXPECT_EQ(record->ipAndMacDel(kIp), other);
  EXPECT_THAT(listener->notified, ElementsAre("259 10.0.0.1", "259 10.0.0.1", "259 10.0.0.1"));
}

TEST(OverlaySrcMacRewrite, AnAbsentAddressIsAllZeroAndItsRemovalDoesNotNotify) {
  auto const record = makeActive<OverlaySrcMacRewrite>(VrfId(7));
  auto const listener = makeActive<Listener<IpAddr>>(record);
  EXPECT_EQ(record->ipAndMac(kIp), IpAndMac());
  EXPECT_EQ(record->ipAndMacDel(kIp), IpAndMac());
  EXPECT_EQ(IpAndMac().mac.value(), 0u);
  EXPECT_THAT(listener->notified, IsEmpty());
}

TEST(OverlaySrcMacRewrite, DeletingAllNotifiesOfEachAddress) {
  auto const record = makeActive<OverlaySrcMacRewrite>(VrfId(7));
  record->ipAndMacIs({IpAddr(1), {}});
  record->ipAndMacIs({IpAddr(2), {}});
  auto const listener = makeActive<Listener<IpAddr>>(record);
  record->ipAndMacDelAll();
  EXPECT_THAT(listener->notified, UnorderedElementsAre("259 0.0.0.1", "259 0.0.0.2"));
}

TEST(AgentStatus, AVrfIsMadeOnceSwitchedOnAndNotifiedOnce) {
  auto const status = makeActive<Status>();
  auto const listener = makeActive<Listener<VrfId>>(status);
  auto const vrf = status->vrfStatusIs(VrfId(7));
  EXPECT_EQ(status->vrfStatusIs(VrfId(7)), vrf);
  EXPECT_EQ(status->vrfStatus(VrfId(7)), vrf.get());
  EXPECT_TRUE(vrf->hasNotificationActive());
  status->vrfStatusDel(VrfId(7));
  status->vrfStatusDel(VrfId(7));
  EXPECT_THAT(listener->notified, ElementsAre("130 7", "130 7"));
}

TEST(AgentStatus, DeletingAllNotifiesOfEachVrf) {
  auto const status = makeActive<Status>();
  status->vrfStatusIs(VrfId(1));
  status->vrfStatusIs(VrfId(2));
  auto const listener = makeActive<Listener<VrfId>>(status);
  status->vrfStatusDelAll();
  EXPECT_THAT(listener->notified, UnorderedElementsAre("130 1", "130 2"));
}

TEST(VrfStatus, ADifferentSelfIpAloneIsAChange) {
  auto const vrf = makeActive<VrfStatus>(VrfId(7));
  auto const listener = makeActive<Listener<IpAddr>>(vrf);
  vrf->ipAndIntfIdIs(kHomeIp);
  vrf->ipAndIntfIdIs(kHomeIp);
  IpAndIntfId self = kHomeIp;
  self.selfIp = true;
  vrf->ipAndIntfIdIs(self);
  EXPECT_EQ(vrf->ipAndIntfId(kIp), self);
  EXPECT_THAT(listener->notified, ElementsAre("131 10.0.0.1", "131 10.0.0.1"));
}

TEST(VrfStatus, RemovalGivesTheValueBackAndAbsenceADefaultOne) {
  auto const vrf = makeActive<VrfStatus>(VrfId(7));
  vrf->ipAndIntfIdIs(kHomeIp);
  auto const listener = makeActive<Listener<IpAddr>>(vrf);
  EXPECT_EQ(vrf->ipAndIntfIdDel(kIp), kHomeIp);
  EXPECT_EQ(vrf->ipAndIntfIdDel(kIp), IpAndIntfId());
  EXPECT_THAT(listener->notified, ElementsAre("131 10.0.0.1"));
}

TEST(VrfStatus, DeletingAllNotifiesOfEachAddressAndStaysInItsStatus) {
  auto const status = makeActive<Status>();
  auto const vrf = status->vrfStatusIs(VrfId(7));
  vrf->ipAndIntfIdIs(kHomeIp);
  auto const listener = makeActive<Listener<IpAddr>>(vrf);
  vrf->ipAndIntfIdDelAll();
  EXPECT_THAT(listener->notified, ElementsAre("131 10.0.0.1"));
  EXPECT_EQ(status->vrfStatus(VrfId(7)), vrf.get());
}

TEST(VrfStatus, AnAddressThatIsNotKnownReadsAsADefaultValue) {
  auto const vrf = makeActive<VrfStatus>(VrfId(7));
  vrf->ipAndIntfIdIs(kHomeIp);
  EXPECT_EQ(vrf->ipAndIntfId(kIp), kHomeIp);
  EXPECT_EQ(vrf->ipAndIntfId(IpAddr(1)), IpAndIntfId());
}

// Walks the numbers 0 to 99 as members of a collection whose seed is the process's xor'ed with
// `constant`.
std::vector<U32> hashOrder(U32 constant) {
  U32 const seed = Kiv::HashHelper::hashSeed32() ^ constant;
  std::vector<U32> order;
  for (U32 i = 0; i < 100; ++i) order.push_back(i);
  std::stable_sort(order.begin(), order.end(), [seed](U32 a, U32 b) {
    return Kiv::hashSingleAttr(seed, a) < Kiv::hashSingleAttr(seed, b);
  });
  return order;
}

TEST(AgentRecords, EachCollectionIsSeededWithItsOwnConstant) {
  auto const config = makeActive<Config>();
  auto const status = makeActive<Status>();
  auto const rewrites = makeActive<OverlaySrcMacRewrite>(VrfId(7));
  auto const addresses = makeActive<VrfStatus>(VrfId(7));
  for (U32 i = 0; i < 100; ++i) {
    config->overlaySrcMacRewriteIs(VrfId(i));
    status->vrfStatusIs(VrfId(i));
    rewrites->ipAndMacIs({IpAddr(i), {}});
    addresses->ipAndIntfIdIs({IpAddr(i), {}, false});
  }
  std::vector<U32> inConfig, inStatus, inRewrites, inAddresses;
  for (auto const& vrf : config->overlaySrcMacRewrite()) inConfig.push_back(vrf->vrfId().value());
  for (auto const& vrf : status->vrfStatus()) inStatus.push_back(vrf->vrfId().value());
  for (auto const& entry : rewrites->ipAndMac()) inRewrites.push_back(entry.ip.value());
  for (auto const& entry : addresses->ipAndIntfId()) inAddresses.push_back(entry.ipAddr.value());
  EXPECT_EQ(inConfig, hashOrder(0x6B42'3388));
  EXPECT_EQ(inStatus, hashOrder(0xF12F'0E28));
  EXPECT_EQ(inRewrites, hashOrder(0x2C8B'2578));
  EXPECT_EQ(inAddresses, hashOrder(0x9026'001C));
}

TEST(AgentRecords, AConstRecordGivesConstMembers) {
  static_assert(std::is_same_v<decltype(std::declval<Config&>().overlaySrcMacRewrite(VrfId(7))),
                               OverlaySrcMacRewrite*>);
  static_assert(
      std::is_same_v<decltype(std::declval<Config const&>().overlaySrcMacRewrite(VrfId(7))),
                     OverlaySrcMacRewrite const*>);
  static_assert(
      std::is_same_v<decltype(std::declval<Config const&>().overlaySrcMacRewrite().find(VrfId(7))),
                     OverlaySrcMacRewrite const*>);
  static_assert(
      std::is_same_v<decltype(*std::declval<Config const&>().overlaySrcMacRewrite().begin()),
                     OverlaySrcMacRewrite const*>);
  static_assert(std::is_same_v<decltype(std::declval<Status&>().vrfStatus(VrfId(7))), VrfStatus*>);
  static_assert(std::is_same_v<decltype(std::declval<Status const&>().vrfStatus(VrfId(7))),
                               VrfStatus const*>);
  static_assert(std::is_same_v<decltype(std::declval<Status const&>().vrfStatus().find(VrfId(7))),
                               VrfStatus const*>);
  static_assert(std::is_same_v<decltype(*std::declval<Status const&>().vrfStatus().begin()),
                               VrfStatus const*>);
}

TEST(InputConfig, ALineWithoutMemoryIsNeitherThereNorInTheIndexOfItsVrf) {
  using BfnMacRewrite::Input::VrfIpAndMac;
  using BfnMacRewrite::Input::VrfNameAndIp;
  auto const config = makeActive<BfnMacRewrite::Input::Config>();
  auto const keysOf = [&config](L3::VrfName const& vrf) {
    std::vector<U32> keys;
    config->forEachKeyOfVrf(vrf,
                            [&keys](VrfNameAndIp const& key) { keys.push_back(key.ip.value()); });
    return keys;
  };
  L3::VrfName const vrfs[] = {L3::VrfName("red"), L3::VrfName("blue"), L3::VrfName("green")};
  for (U32 i = 0; i < 60; ++i) {
    L3::VrfName const vrf = vrfs[i % 3];
    std::vector<U32> const before = keysOf(vrf);
    for (size_t spared = 0;; ++spared) {
      BfnTest::NoMemory none(spared);
      try {
        config->overlaySrcMacRewriteEntryIs({vrf, IpAddr(i), {}});
        break;
      } catch (std::bad_alloc const&) {
        none.end();
        EXPECT_EQ(config->overlaySrcMacRewriteEntry().size(), i);
        EXPECT_EQ(keysOf(vrf), before);
      }
    }
    EXPECT_EQ(keysOf(vrf).size(), before.size() + 1);
  }
}

TEST(InputConfig, AVrfWithoutLinesTakesNoMemory) {
  auto const input = makeActive<Input::Config>();
  L3::VrfName const green("green");
  input->overlaySrcMacRewriteEntryIs({L3::VrfName("red"), Ovra::IpAddr(1), Ovra::EthAddr()});
  size_t const before = BfnTest::liveAllocations();
  input->overlaySrcMacRewriteEntryIs({green, Ovra::IpAddr(1), Ovra::EthAddr()});
  EXPECT_GT(BfnTest::liveAllocations(), before);
  input->overlaySrcMacRewriteEntryDel({green, Ovra::IpAddr(1)});
  EXPECT_EQ(BfnTest::liveAllocations(), before);
}

TEST(InputConfig, ALineWhoseHandlerThrowsIsThereAndInTheIndex) {
  using BfnMacRewrite::Input::VrfNameAndIp;
  auto const config = makeActive<BfnMacRewrite::Input::Config>();
  auto const listener = makeActive<Listener<VrfNameAndIp>>(config);
  listener->action = [](VrfNameAndIp const&) { throw std::runtime_error("handler"); };
  L3::VrfName const red("red");
  EXPECT_THROW(config->overlaySrcMacRewriteEntryIs({red, IpAddr(1), {}}), std::runtime_error);
  EXPECT_NE(config->overlaySrcMacRewriteEntry({red, IpAddr(1)}), nullptr);
  U32 keys = 0;
  config->forEachKeyOfVrf(red, [&keys](VrfNameAndIp const&) { ++keys; });
  EXPECT_EQ(keys, 1u);
}

TEST(Capability, NotifiesOfARealChangeOnly) {
  auto const capability = makeActive<Capability>();
  class Counter final : public Kiv::NotifieeConst {
   public:
    explicit Counter(Ptr<Capability> const& notifier) { NotifieeConst::notifierIs(notifier); }
    void onAttribute(AttributeId, void const*) override { ++calls; }
    int calls = 0;
  };
  auto const counter = makeActive<Counter>(capability);
  capability->overlaySrcMacRewriteSupportedIs(false);
  EXPECT_EQ(counter->calls, 0);
  capability->overlaySrcMacRewriteSupportedIs(true);
  capability->overlaySrcMacRewriteSupportedIs(true);
  EXPECT_EQ(counter->calls, 1);
  EXPECT_TRUE(capability->overlaySrcMacRewriteSupported());
}

}  // namespace
