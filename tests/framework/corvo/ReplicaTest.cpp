// SPDX-License-Identifier: Apache-2.0
#include "framework/corvo/Replica.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>

#include "framework/core/AllocTrack.h"
#include "framework/corvo/Exceptions.h"
#include "framework/l3/L3RoutingStatus.h"
#include "tests/framework/corvo/TestTypes.h"
#include "tests/support/Seed.h"

namespace {

using BfnTest::Changes;
using BfnTest::Log;
using BfnTest::textOf;
using Corvo::ReadOnlyException;
using Corvo::Replica;
using L3::VrfName;
using Pex::VrfId;
using Routing::Hardware::RouteStatus;
using Routing::Hardware::VrfStatus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

template <class T>
struct Pair {
  Kiv::U64 const liveBefore = Kiv::AllocTrackTypeInfo::liveObjects();
  Kiv::Ptr<T> original = Kiv::makeActive<T>();
  Kiv::Ptr<T> copy = Kiv::makeActive<T>();
  Log log;
  std::unique_ptr<Replica> replica;
  Kiv::Ptr<Changes> watcher;

  void start() {
    replica = std::make_unique<Replica>(original, copy, "a/b");
    watcher = Kiv::makeActive<Changes>(copy, "copy", log);
  }
  ~Pair() {
    replica.reset();
    watcher.reset();
    original.reset();
    copy.reset();
    EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), liveBefore);
  }
};

Kiv::Ptr<VrfStatus> vrf(char const* name, unsigned vrfId, unsigned fwdVlanId) {
  auto const status = Kiv::makeActive<VrfStatus>(VrfName(name));
  status->vrfIdIs(vrfId);
  status->fwdVlanIdIs(fwdVlanId);
  return status;
}

TEST(Replica, StartsWithEverythingThatIsThere) {
  Pair<RouteStatus> routes;
  routes.original->vrfStatusIs(vrf("red", 7, 300));
  routes.original->vrfStatusIs(vrf("blue", 8, 301));
  routes.start();
  EXPECT_EQ(textOf(*routes.copy), textOf(*routes.original));
  EXPECT_EQ(routes.copy->vrfStatus(VrfName("red"))->fwdVlanId(), 300u);
  EXPECT_NE(routes.copy->vrfStatus(VrfName("red")), routes.original->vrfStatus(VrfName("red")));
  EXPECT_EQ(routes.copy->vrfStatus(VrfName("red"))->parent(), routes.copy);

  Pair<Pex::L3Status> vrfs;
  vrfs.original->vrfIs(VrfName("red"), VrfId(7));
  vrfs.start();
  EXPECT_EQ(vrfs.copy->vrfName(VrfId(7)), VrfName("red"));
  EXPECT_EQ(*vrfs.copy->vrfNameToId(VrfName("red")), VrfId(7));
}

TEST(Replica, ValuesFollowWithOneNotificationAChange) {
  Pair<Pex::L3Status> vrfs;
  vrfs.start();
  vrfs.original->vrfNameIs(VrfId(7), VrfName("red"));
  EXPECT_EQ(vrfs.copy->vrfName(VrfId(7)), VrfName("red"));
  vrfs.original->vrfNameIs(VrfId(7), VrfName("blue"));
  EXPECT_EQ(vrfs.copy->vrfName(VrfId(7)), VrfName("blue"));
  vrfs.original->vrfNameIs(VrfId(7), VrfName("blue"));
  vrfs.original->vrfNameDel(VrfId(7));
  EXPECT_EQ(vrfs.copy->vrfName().size(), 0u);
  EXPECT_THAT(vrfs.log, ElementsAre("copy vrfName", "copy vrfName", "copy vrfName"));
}

TEST(Replica, AScalarFollows) {
  Pair<BfnL3::L3RoutingStatus> routing;
  routing.start();
  routing.original->routingEnabledIs(true);
  EXPECT_TRUE(routing.copy->routingEnabled());
  EXPECT_THAT(routing.log, ElementsAre("copy routingEnabled"));
}

TEST(Replica, AMembersAttributesFollowInTheSameObject) {
  Pair<RouteStatus> routes;
  auto const red = routes.original->vrfStatusIs(VrfName("red"));
  routes.start();
  Kiv::Ptr<VrfStatus> const redCopy(routes.copy->vrfStatus(VrfName("red")));
  auto const watcher = Kiv::makeActive<Changes>(redCopy, "red", routes.log);
  red->fwdVlanIdIs(300);
  red->fwdVlanIdIs(300);
  EXPECT_EQ(redCopy->fwdVlanId(), 300u);
  EXPECT_EQ(routes.copy->vrfStatus(VrfName("red")), redCopy.get());
  EXPECT_THAT(routes.log, ElementsAre("red fwdVlanId"));
}

TEST(Replica, AMemberThatComesCompleteIsCompleteWhenItIsNotified) {
  Pair<RouteStatus> routes;
  routes.start();
  unsigned seen = 0;
  routes.watcher->action = [&] { seen = routes.copy->vrfStatus(VrfName("red"))->fwdVlanId(); };
  routes.original->vrfStatusIs(vrf("red", 7, 300));
  EXPECT_EQ(seen, 300u);
  EXPECT_THAT(routes.log, ElementsAre("copy vrfStatus"));
}

TEST(Replica, AnotherObjectUnderAKeyIsAnotherObjectInTheCopy) {
  Pair<RouteStatus> routes;
  auto const old = vrf("red", 7, 300);
  routes.original->vrfStatusIs(old);
  routes.start();
  Kiv::Ptr<VrfStatus> const oldCopy(routes.copy->vrfStatus(VrfName("red")));
  routes.original->vrfStatusIs(vrf("red", 7, 400));
  EXPECT_NE(routes.copy->vrfStatus(VrfName("red")), oldCopy.get());
  EXPECT_EQ(routes.copy->vrfStatus(VrfName("red"))->fwdVlanId(), 400u);
  EXPECT_THAT(routes.log, ElementsAre("copy vrfStatus"));
  old->fwdVlanIdIs(500);
  EXPECT_EQ(oldCopy->fwdVlanId(), 300u);
  routes.original->vrfStatus(VrfName("red"))->fwdVlanIdIs(401);
  EXPECT_EQ(routes.copy->vrfStatus(VrfName("red"))->fwdVlanId(), 401u);
}

TEST(Replica, ARemovedMemberGoesAndIsFollowedNoMore) {
  Pair<RouteStatus> routes;
  auto const red = vrf("red", 7, 300);
  routes.original->vrfStatusIs(red);
  routes.start();
  Kiv::Ptr<VrfStatus> const redCopy(routes.copy->vrfStatus(VrfName("red")));
  routes.original->vrfStatusDelAll();
  EXPECT_EQ(routes.copy->vrfStatus().size(), 0u);
  red->fwdVlanIdIs(400);
  EXPECT_EQ(redCopy->fwdVlanId(), 300u);
  EXPECT_THAT(routes.log, ElementsAre("copy vrfStatus"));
}

TEST(Replica, ANotificationWithoutAChangeIsNotPassedOn) {
  Pair<BfnL3::L3RoutingStatus> routing;
  Pex::PortVlanPair const key(Ovra::IntfId("Ethernet1"), 0);
  routing.original->l3IntfRoutingStatusIs(key);
  routing.start();
  routing.original->l3IntfRoutingStatusRenotify(key);
  EXPECT_THAT(routing.log, IsEmpty());
}

TEST(Replica, AHandlerThatChangesTheOriginalAgainEndsEqual) {
  Pair<Pex::L3Status> vrfs;
  vrfs.start();
  vrfs.watcher->action = [&] {
    if (vrfs.copy->vrfName(VrfId(7)) == VrfName("red")) {
      vrfs.original->vrfNameIs(VrfId(7), VrfName("blue"));
    }
  };
  Log late;
  auto const second = Kiv::makeActive<Changes>(vrfs.copy, "second", late);
  vrfs.original->vrfNameIs(VrfId(7), VrfName("red"));
  EXPECT_EQ(vrfs.copy->vrfName(VrfId(7)), VrfName("blue"));
  EXPECT_EQ(textOf(*vrfs.copy), textOf(*vrfs.original));
  EXPECT_EQ(vrfs.log.size(), 2u);
  EXPECT_EQ(late.size(), 2u);
}

TEST(Replica, AHandlerMayEndTheReplica) {
  Pair<RouteStatus> routes;
  routes.start();
  routes.watcher->action = [&] { routes.replica.reset(); };
  routes.original->vrfStatusIs(vrf("red", 7, 300));
  EXPECT_NE(routes.copy->vrfStatus(VrfName("red")), nullptr);
  routes.original->vrfStatus(VrfName("red"))->fwdVlanIdIs(400);
  routes.original->vrfStatusDelAll();
  EXPECT_EQ(routes.copy->vrfStatus(VrfName("red"))->fwdVlanId(), 300u);
}

TEST(Replica, AfterItsEndTheCopyIsFree) {
  Pair<RouteStatus> routes;
  routes.original->vrfStatusIs(vrf("red", 7, 300));
  routes.start();
  routes.replica.reset();
  routes.copy->vrfStatus(VrfName("red"))->fwdVlanIdIs(1);
  routes.copy->vrfStatusIs(VrfName("blue"));
  EXPECT_EQ(routes.copy->vrfStatus().size(), 2u);
  EXPECT_EQ(routes.original->vrfStatus().size(), 1u);
}

TEST(Replica, AWriteToTheCopyIsUndoneBeforeAnyNotification) {
  Pair<Pex::L3Status> vrfs;
  vrfs.original->vrfNameIs(VrfId(7), VrfName("red"));
  vrfs.start();
  std::string const before = textOf(*vrfs.copy);
  EXPECT_THAT([&] { vrfs.copy->vrfNameIs(VrfId(7), VrfName("blue")); },
              ThrowsMessage<ReadOnlyException>(
                  StrEq("\"a/b\" is mounted for reading; vrfName stays as it was")));
  EXPECT_THROW(vrfs.copy->vrfNameIs(VrfId(8), VrfName("blue")), ReadOnlyException);
  EXPECT_THROW(vrfs.copy->vrfNameDel(VrfId(7)), ReadOnlyException);
  EXPECT_EQ(textOf(*vrfs.copy), before);
  EXPECT_THAT(vrfs.log, IsEmpty());
  vrfs.copy->vrfNameIs(VrfId(7), VrfName("red"));
  vrfs.original->vrfNameIs(VrfId(8), VrfName("green"));
  EXPECT_EQ(textOf(*vrfs.copy), textOf(*vrfs.original));
}

TEST(Replica, WritesToMembersOfTheCopyAreTakenBackToo) {
  Pair<RouteStatus> routes;
  routes.original->vrfStatusIs(vrf("red", 7, 300));
  routes.start();
  Kiv::Ptr<VrfStatus> const red(routes.copy->vrfStatus(VrfName("red")));
  std::string const before = textOf(*routes.copy);
  EXPECT_THROW(red->fwdVlanIdIs(1), ReadOnlyException);
  EXPECT_THROW(routes.copy->vrfStatusIs(VrfName("blue")), ReadOnlyException);
  EXPECT_THROW(routes.copy->vrfStatusIs(vrf("red", 7, 1)), ReadOnlyException);
  EXPECT_THROW(routes.copy->vrfStatusDel(VrfName("red")), ReadOnlyException);
  EXPECT_THROW(routes.copy->vrfStatusDelAll(), ReadOnlyException);
  EXPECT_EQ(textOf(*routes.copy), before);
  EXPECT_EQ(routes.copy->vrfStatus(VrfName("red")), red.get());
  EXPECT_THAT(routes.log, IsEmpty());
  routes.original->vrfStatus(VrfName("red"))->fwdVlanIdIs(400);
  EXPECT_EQ(red->fwdVlanId(), 400u);
}

TEST(Replica, TheCopysNotificationCannotBeSwitchedOff) {
  Pair<RouteStatus> routes;
  routes.original->vrfStatusIs(vrf("red", 7, 300));
  routes.start();
  Kiv::Ptr<VrfStatus> const red(routes.copy->vrfStatus(VrfName("red")));
  EXPECT_THAT([&] { routes.copy->hasNotificationActiveIs(false); },
              ThrowsMessage<ReadOnlyException>(
                  StrEq("\"a/b\" is mounted for reading; its notification stays on")));
  EXPECT_THROW(red->hasNotificationActiveIs(false), ReadOnlyException);
  EXPECT_TRUE(routes.copy->hasNotificationActive());
  EXPECT_TRUE(red->hasNotificationActive());
  EXPECT_THROW(red->fwdVlanIdIs(1), ReadOnlyException);
  EXPECT_EQ(red->fwdVlanId(), 300u);
  routes.replica.reset();
  routes.copy->hasNotificationActiveIs(false);
  EXPECT_FALSE(routes.copy->hasNotificationActive());
}

TEST(Replica, ACopyThatComesSilentIsGuardedAllTheSame) {
  Pair<Pex::L3Status> vrfs;
  vrfs.copy->hasNotificationActiveIs(false);
  vrfs.start();
  EXPECT_THROW(vrfs.copy->vrfNameIs(VrfId(7), VrfName("red")), ReadOnlyException);
  EXPECT_EQ(vrfs.copy->vrfName().size(), 0u);
}

TEST(Replica, AHandlerOfTheCopyCannotWriteItEither) {
  Pair<Pex::L3Status> vrfs;
  vrfs.start();
  int refused = 0;
  vrfs.watcher->action = [&] {
    try {
      vrfs.copy->vrfNameIs(VrfId(9), VrfName("blue"));
    } catch (ReadOnlyException const&) {
      ++refused;
    }
  };
  vrfs.original->vrfNameIs(VrfId(7), VrfName("red"));
  EXPECT_EQ(refused, 1);
  EXPECT_EQ(textOf(*vrfs.copy), textOf(*vrfs.original));
}

TEST(Replica, OfAnotherTypeIsRefused) {
  auto const original = Kiv::makeActive<Pex::L3Status>();
  auto const copy = Kiv::makeActive<RouteStatus>();
  EXPECT_THROW(Replica(original, copy, "a"), Corvo::MountException);
}

TEST(Replica, AnyChangesKeepTheCopyEqual) {
  unsigned const seed = BfnTest::testSeed(std::random_device{}());
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 generator(seed);
  auto const random = [&generator] { return static_cast<unsigned>(generator()); };
  Pair<RouteStatus> routes;
  routes.start();
  Log originalLog;
  auto const watcher = Kiv::makeActive<Changes>(routes.original, "copy", originalLog);
  for (int i = 0; i < 5000; ++i) {
    std::string const name = "vrf" + std::to_string(random() % 8);
    auto* const there = routes.original->vrfStatus(VrfName(name));
    switch (random() % 6) {
      case 0:
        routes.original->vrfStatusIs(VrfName(name));
        break;
      case 1:
        routes.original->vrfStatusIs(vrf(name.c_str(), random() % 3, random() % 3));
        break;
      case 2:
        routes.original->vrfStatusDel(VrfName(name));
        break;
      case 3:
        if (random() % 50 == 0) routes.original->vrfStatusDelAll();
        break;
      case 4:
        if (there != nullptr) there->vrfIdIs(random() % 3);
        break;
      default:
        if (there != nullptr) there->fwdVlanIdIs(random() % 3);
        break;
    }
    ASSERT_EQ(textOf(*routes.copy), textOf(*routes.original)) << "after change " << i;
    ASSERT_EQ(routes.log, originalLog) << "after change " << i;
  }
}

}  // namespace
