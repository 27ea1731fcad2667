// SPDX-License-Identifier: Apache-2.0
#include "framework/l3/L3RoutingStatus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/core/Exceptions.h"
#include "tests/framework/l3/KeyLog.h"

namespace {

using BfnL3::L3IntfRoutingStatus;
using BfnL3::L3RoutingStatus;
using Pex::PortVlanPair;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

PortVlanPair const kKey(Ovra::IntfId("Ethernet1"), 0);

using L3RoutingStatusTest =
    BfnTest::LoggedRecord<L3RoutingStatus, L3RoutingStatus::kL3IntfRoutingStatus>;

TEST_F(L3RoutingStatusTest, AMemberIsMadeOnceEmptyAndSwitchedOn) {
  auto const member = status->l3IntfRoutingStatusIs(kKey);
  EXPECT_EQ(status->l3IntfRoutingStatusIs(kKey), member);
  EXPECT_EQ(status->l3IntfRoutingStatus(kKey), member.get());
  EXPECT_EQ(member->intfAndVlan(), kKey);
  EXPECT_EQ(member->vlanId(), 0);
  EXPECT_EQ(member->vrfId(), Pex::VrfId(0));
  EXPECT_TRUE(member->hasNotificationActive());
  EXPECT_EQ(member->parent(), status);
  EXPECT_THAT(log->changes, SizeIs(1));
}

TEST_F(L3RoutingStatusTest, KeysDifferByVlanToo) {
  auto const first = status->l3IntfRoutingStatusIs(kKey);
  EXPECT_EQ(status->l3IntfRoutingStatus(PortVlanPair(Ovra::IntfId("Ethernet1"), 1)), nullptr);
  EXPECT_EQ(status->l3IntfRoutingStatus(PortVlanPair(Ovra::IntfId("Ethernet2"), 0)), nullptr);
}

TEST_F(L3RoutingStatusTest, AnotherObjectTakesTheOnesPlaceWithOneNotification) {
  auto const old = status->l3IntfRoutingStatusIs(kKey);
  log->changes.clear();
  auto const made = Kiv::makeActive<L3IntfRoutingStatus>(kKey);
  status->l3IntfRoutingStatusIs(made);
  EXPECT_EQ(status->l3IntfRoutingStatus(kKey), made.get());
  EXPECT_FALSE(old->parent());
  EXPECT_THAT(log->changes, SizeIs(1));
  status->l3IntfRoutingStatusIs(made);
  EXPECT_THAT(log->changes, SizeIs(1));
}

TEST_F(L3RoutingStatusTest, NullIsRefused) {
  EXPECT_THROW(status->l3IntfRoutingStatusIs(Kiv::Ptr<L3IntfRoutingStatus>()),
               Kiv::NullPointerException);
}

TEST_F(L3RoutingStatusTest, RenotifyNotifiesOfAKeyWithoutAChange) {
  status->l3IntfRoutingStatusRenotify(kKey);
  EXPECT_EQ(status->l3IntfRoutingStatus(kKey), nullptr);
  EXPECT_THAT(log->changes, SizeIs(1));
}

TEST_F(L3RoutingStatusTest, RemovalNotifiesOnceAndOnlyOfWhatWasPresent) {
  status->l3IntfRoutingStatusIs(kKey);
  status->l3IntfRoutingStatusIs(PortVlanPair(Ovra::IntfId("Ethernet2"), 5));
  log->changes.clear();
  status->l3IntfRoutingStatusDel(kKey);
  status->l3IntfRoutingStatusDel(kKey);
  EXPECT_THAT(log->changes, SizeIs(1));
  status->l3IntfRoutingStatusDelAll();
  EXPECT_THAT(log->changes, SizeIs(2));
  EXPECT_EQ(status->l3IntfRoutingStatus().size(), 0u);
}

TEST_F(L3RoutingStatusTest, TheOtherAttributeHasAnIdOfItsOwn) {
  status->routingEnabledIs(true);
  status->routingEnabledIs(true);
  EXPECT_TRUE(status->routingEnabled());
  EXPECT_THAT(log->changes, ElementsAre("#259"));
}

TEST_F(L3RoutingStatusTest, AMembersVlanAndVrfAreItsOwnAffair) {
  auto const member = status->l3IntfRoutingStatusIs(kKey);
  log->changes.clear();
  auto const own =
      Kiv::makeActive<BfnTest::KeyLog<PortVlanPair>>(member, L3RoutingStatus::kL3IntfRoutingStatus);
  member->vlanIdIs(65535);
  member->vlanIdIs(65535);
  member->vrfIdIs(Pex::VrfId(7));
  member->vlanIdIs(0);
  EXPECT_EQ(member->vlanId(), 0);
  EXPECT_EQ(member->vrfId(), Pex::VrfId(7));
  EXPECT_THAT(own->changes, ElementsAre("#259", "#260", "#259"));
  EXPECT_THAT(log->changes, IsEmpty());
}

}  // namespace
