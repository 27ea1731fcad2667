// SPDX-License-Identifier: Apache-2.0
#include "framework/l3/RouteStatus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/core/Exceptions.h"
#include "tests/framework/l3/KeyLog.h"

namespace {

using L3::VrfName;
using Routing::Hardware::RouteStatus;
using Routing::Hardware::VrfStatus;
using ::testing::ElementsAre;

VrfName const kRedVrf("red");

using RouteStatusTest = BfnTest::LoggedRecord<RouteStatus, RouteStatus::kVrfStatus>;

TEST_F(RouteStatusTest, AVrfIsMadeOnceWithoutNumbers) {
  auto const red = status->vrfStatusIs(kRedVrf);
  EXPECT_EQ(status->vrfStatusIs(kRedVrf), red);
  EXPECT_EQ(status->vrfStatus(kRedVrf), red.get());
  EXPECT_EQ(red->vrfName(), kRedVrf);
  EXPECT_EQ(red->vrfId(), 0u);
  EXPECT_EQ(red->fwdVlanId(), 0u);
  EXPECT_TRUE(red->hasNotificationActive());
  EXPECT_THAT(log->changes, ElementsAre("red"));
}

TEST_F(RouteStatusTest, NumbersAreTakenAsTheyAreAndARealChangeNotifies) {
  auto const red = status->vrfStatusIs(kRedVrf);
  auto const own = Kiv::makeActive<BfnTest::KeyLog<VrfName>>(red, RouteStatus::kVrfStatus);
  log->changes.clear();
  red->vrfIdIs(4294967295u);
  red->vrfIdIs(4294967295u);
  red->fwdVlanIdIs(70000);
  red->fwdVlanIdIs(70000);
  EXPECT_EQ(red->vrfId(), 4294967295u);
  EXPECT_EQ(red->fwdVlanId(), 70000u);
  EXPECT_THAT(own->changes, ElementsAre("#259", "#260"));
  EXPECT_TRUE(log->changes.empty());
}

TEST_F(RouteStatusTest, AnObjectMadeByTheHostComesWithItsNumbers) {
  auto const red = Kiv::makeActive<VrfStatus>(kRedVrf);
  red->fwdVlanIdIs(300);
  status->vrfStatusIs(red);
  EXPECT_EQ(status->vrfStatus(kRedVrf), red.get());
  status->vrfStatusIs(red);
  EXPECT_THAT(log->changes, ElementsAre("red"));
  EXPECT_THROW(status->vrfStatusIs(Kiv::Ptr<VrfStatus>()), Kiv::NullPointerException);
}

TEST_F(RouteStatusTest, RemovalNotifiesOnceAndOnlyOfWhatWasPresent) {
  status->vrfStatusIs(kRedVrf);
  status->vrfStatusIs(VrfName("blue"));
  log->changes.clear();
  status->vrfStatusDel(kRedVrf);
  status->vrfStatusDel(kRedVrf);
  EXPECT_THAT(log->changes, ElementsAre("red"));
  status->vrfStatusDelAll();
  EXPECT_THAT(log->changes, ElementsAre("red", "blue"));
}

}  // namespace
