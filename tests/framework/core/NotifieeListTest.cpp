// SPDX-License-Identifier: Apache-2.0
#include "framework/core/NotifieeList.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <vector>

#include "framework/core/AddressSanitizer.h"
#include "tests/framework/core/Probe.h"
#include "tests/support/Instructions.h"

namespace {

using BfnTest::Log;
using BfnTest::Probe;
using BfnTest::Watched;
using Kiv::make;
using Kiv::makeActive;
using Kiv::Ptr;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(!std::is_copy_constructible_v<Kiv::NotifieeList>);
static_assert(!std::is_copy_assignable_v<Kiv::NotifieeList>);
static_assert(!std::is_move_constructible_v<Kiv::NotifieeList>);
static_assert(std::is_same_v<Kiv::PtrInterface::NotifieeConst, Kiv::NotifieeConst>);

class NotifieeListTest : public ::testing::Test {
 protected:
  Ptr<Probe> probeOn(Ptr<Watched> const& notifier, std::string const& name) {
    return makeActive<Probe>(notifier, name, &log);
  }
  void change() { watched->numberIs(watched->number() + 1); }
  Kiv::NotifieeList& list() { return watched->notifieeList(); }

  Log log;
  Ptr<Watched> watched = makeActive<Watched>();
  Ptr<Watched> other = makeActive<Watched>();
  Ptr<Probe> a = probeOn(watched, "a");
  Ptr<Probe> b = probeOn(watched, "b");
  Ptr<Probe> c = probeOn(watched, "c");
};

TEST_F(NotifieeListTest, CallsInOrderOfRegistration) {
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "c"));
  EXPECT_EQ(list().size(), 3u);
}

TEST_F(NotifieeListTest, ANotifieeThatRegistersAgainIsCalledLast) {
  a->hasNotificationActiveIs(false);
  a->hasNotificationActiveIs(true);
  change();
  EXPECT_THAT(log, ElementsAre("b", "c", "a"));
}

TEST_F(NotifieeListTest, RegisteringTwiceGivesOneCall) {
  a->hasNotificationActiveIs(true);
  a->isRegisteredNotifieeIs(true);
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "c"));
}

TEST_F(NotifieeListTest, UnregisteringTwiceLeavesTheOthers) {
  b->hasNotificationActiveIs(false);
  b->hasNotificationActiveIs(false);
  EXPECT_FALSE(b->isRegisteredNotifiee());
  change();
  EXPECT_THAT(log, ElementsAre("a", "c"));
}

TEST_F(NotifieeListTest, ANotifieeWithoutNotifierDoesNotRegister) {
  auto const lonely = probeOn(nullptr, "lonely");
  EXPECT_FALSE(lonely->isRegisteredNotifiee());
}

TEST_F(NotifieeListTest, TheBaseRebindCallsNoHandlerAndEndsTheRegistration) {
  a->NotifieeConst::notifierIs(other);
  EXPECT_FALSE(a->isRegisteredNotifiee());
  change();
  other->numberIs(1);
  EXPECT_THAT(log, ElementsAre("b", "c"));
}

TEST_F(NotifieeListTest, ClearRemovesAllWithoutACall) {
  list().clear();
  EXPECT_TRUE(list().empty());
  EXPECT_FALSE(a->isRegisteredNotifiee());
  change();
  EXPECT_THAT(log, IsEmpty());
  a->hasNotificationActiveIs(true);
  change();
  EXPECT_THAT(log, ElementsAre("a"));
}

TEST_F(NotifieeListTest, ANotifierSwitchedOffDoesNotNotifyNowOrLater) {
  watched->hasNotificationActiveIs(false);
  change();
  EXPECT_THAT(log, IsEmpty());
  watched->hasNotificationActiveIs(true);
  EXPECT_THAT(log, IsEmpty());
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "c"));
}

TEST_F(NotifieeListTest, ANewNotifierIsSwitchedOff) {
  auto const silent = make<Watched>();
  auto const listener = probeOn(silent, "listener");
  silent->numberIs(1);
  EXPECT_THAT(log, IsEmpty());
}

// What a handler does to the list while it is visited.

TEST_F(NotifieeListTest, ANotifieeThatRemovesItselfDisturbsNoOther) {
  b->action = [this] { b->hasNotificationActiveIs(false); };
  change();
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "c", "a", "c"));
}

TEST_F(NotifieeListTest, ALaterOneRemovedIsNotCalledAnyMore) {
  a->action = [this] { c->hasNotificationActiveIs(false); };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b"));
}

TEST_F(NotifieeListTest, AfterAnEarlierOneIsRemovedNoneIsSkipped) {
  b->action = [this] { a->hasNotificationActiveIs(false); };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "c"));
}

TEST_F(NotifieeListTest, OneThatIsAddedHearsOnlyOfLaterChanges) {
  Ptr<Probe> d;
  b->action = [this, &d] {
    if (!d) d = probeOn(watched, "d");
  };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "c"));
  log.clear();
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "c", "d"));
}

TEST_F(NotifieeListTest, ManyAddedDuringAVisitLeaveTheVisitSound) {
  std::vector<Ptr<Probe>> added;
  a->action = [this, &added] {
    for (int i = 0; i < 100; ++i) added.push_back(probeOn(watched, "new"));
  };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "c"));
  EXPECT_EQ(list().size(), 103u);
}

TEST_F(NotifieeListTest, OneRemovedAndAddedAgainIsNotCalledForThisChange) {
  a->action = [this] {
    c->hasNotificationActiveIs(false);
    c->hasNotificationActiveIs(true);
  };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b"));
}

TEST_F(NotifieeListTest, OneThatRebindsCountsAsRemoved) {
  a->action = [this] { c->notifierIs(other); };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b"));
  EXPECT_EQ(list().size(), 2u);
}

TEST_F(NotifieeListTest, OneThatRebindsToAndFroIsNotCalledForThisChange) {
  a->action = [this] {
    c->notifierIs(other);
    c->notifierIs(watched);
    c->isRegisteredNotifieeIs(true);
  };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b"));
}

TEST_F(NotifieeListTest, TheRunningNotifieeMayBeDestroyed) {
  b->action = [this] { b.reset(); };
  change();
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "b has no references", "c", "a", "c"));
}

TEST_F(NotifieeListTest, AnotherNotifieeMayBeDestroyed) {
  a->action = [this] { b.reset(); };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b has no references", "c"));
}

TEST_F(NotifieeListTest, AllNotifieesMayBeDestroyedByOneOfThem) {
  b->action = [this] {
    a.reset();
    c.reset();
    b.reset();
  };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "a has no references", "c has no references",
                               "b has no references"));
  EXPECT_TRUE(list().empty());
}

TEST_F(NotifieeListTest, TheVisitEndsWhenTheNotifierDies) {
  a->action = [this] {
    watched.reset();
    b.reset();
    c.reset();
    a.reset();
  };
  Watched* const raw = watched.get();
  raw->numberIs(1);
  EXPECT_THAT(
      log, ElementsAre("a", "b has no references", "c has no references", "a has no references"));
}

TEST_F(NotifieeListTest, ANestedVisitEndsEveryVisitWhenTheNotifierDies) {
  a->action = [this] {
    if (watched->number() < 3) change();
  };
  b->action = [this] {
    watched.reset();
    a.reset();
    c.reset();
    b.reset();
  };
  Watched* const raw = watched.get();
  raw->numberIs(1);
  EXPECT_THAT(log, ElementsAre("a", "a", "a", "b", "a has no references", "c has no references",
                               "b has no references"));
}

TEST_F(NotifieeListTest, DroppingTheLastOutsideReferenceToTheNotifierLeavesTheVisitAlone) {
  a->action = [this] { watched.reset(); };
  Watched* const raw = watched.get();
  raw->numberIs(1);
  EXPECT_THAT(log, ElementsAre("a", "b", "c"));
}

TEST_F(NotifieeListTest, AVisitMayNest) {
  b->action = [this] {
    if (watched->number() == 1) change();
  };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "a", "b", "c", "c"));
}

TEST_F(NotifieeListTest, OneAddedHearsOfAChangeMadeByANestedMutation) {
  Ptr<Probe> d;
  b->action = [this, &d] {
    if (d) return;
    d = probeOn(watched, "d");
    change();
  };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "a", "b", "c", "d", "c"));
}

TEST_F(NotifieeListTest, ARemovalInANestedVisitHoldsForTheOuterOne) {
  b->action = [this] {
    if (watched->number() == 1) change();
  };
  a->action = [this] {
    if (watched->number() == 2) c->hasNotificationActiveIs(false);
  };
  change();
  EXPECT_THAT(log, ElementsAre("a", "b", "a", "b"));
  EXPECT_EQ(list().size(), 2u);
}

// Exceptions.

TEST_F(NotifieeListTest, AnExceptionIsReportedAndReachesTheMutatorsCaller) {
  b->action = [] { throw std::runtime_error("handler"); };
  EXPECT_THROW(change(), std::runtime_error);
  EXPECT_THAT(log, ElementsAre("a", "b", "b has thrown"));
  EXPECT_EQ(watched->number(), 1);
}

TEST_F(NotifieeListTest, TheListIsWholeAfterAnException) {
  b->action = [this] {
    a->hasNotificationActiveIs(false);
    throw std::runtime_error("handler");
  };
  EXPECT_THROW(change(), std::runtime_error);
  b->action = nullptr;
  log.clear();
  change();
  EXPECT_THAT(log, ElementsAre("b", "c"));
  EXPECT_EQ(list().size(), 2u);
}

TEST_F(NotifieeListTest, AnExceptionPassesEachNestedVisit) {
  a->action = [this] {
    if (watched->number() < 2) change();
  };
  b->action = [] { throw std::runtime_error("handler"); };
  EXPECT_THROW(change(), std::runtime_error);
  EXPECT_THAT(log, ElementsAre("a", "a", "b", "b has thrown", "a has thrown"));
}

TEST_F(NotifieeListTest, AnExceptionCaughtByAHandlerGoesNoFurther) {
  a->action = [this] {
    if (watched->number() != 1) return;
    EXPECT_THROW(change(), std::runtime_error);
  };
  bool thrown = false;
  b->action = [&thrown] {
    if (thrown) return;
    thrown = true;
    throw std::runtime_error("handler");
  };
  change();
  EXPECT_THAT(log, ElementsAre("a", "a", "b", "b has thrown", "b", "c"));
}

TEST_F(NotifieeListTest, ANotifieeThatDestroysItselfAndThrowsIsNotCalledAgain) {
  b->action = [this] {
    b.reset();
    throw std::runtime_error("handler");
  };
  EXPECT_THROW(change(), std::runtime_error);
  EXPECT_THAT(log, ElementsAre("a", "b", "b has no references"));
}

TEST_F(NotifieeListTest, AnExceptionAfterTheNotifiersDeathUnwinds) {
  a->action = [this] {
    watched.reset();
    b.reset();
    c.reset();
    a.reset();
    throw std::runtime_error("handler");
  };
  Watched* const raw = watched.get();
  EXPECT_THROW(raw->numberIs(1), std::runtime_error);
}

TEST_F(NotifieeListTest, LeavingCostsTheSameInAnyOrderAndAmongAnyNumber) {
#ifdef KIV_ADDRESS_SANITIZER
  GTEST_SKIP() << "a build that checks every access takes too many instructions";
#endif
  // Instructions a notifiee, when `count` leave one notifier.
  auto const cost = [&](size_t count, auto const& reorder) {
    std::vector<Ptr<Probe>> probes;
    for (size_t i = 0; i < count; ++i) probes.push_back(probeOn(other, "probe"));
    reorder(probes);
    a->isRegisteredNotifieeIs(false);  // the first call binds its symbols
    auto const steps = BfnTest::instructionsOf([&] {
      for (Ptr<Probe> const& probe : probes) probe->isRegisteredNotifieeIs(false);
    });
    return steps ? *steps / count : 0;
  };
  auto const expectConstant = [&](auto const& reorder) {
    size_t const few = cost(16, reorder);
    EXPECT_LE(cost(128, reorder), few + few / 4);
    return few != 0;
  };
  if (!expectConstant([](auto&) {})) GTEST_SKIP() << "a process may not be traced here";
  expectConstant([](auto& probes) { std::ranges::reverse(probes); });
  expectConstant([](auto& probes) { std::ranges::shuffle(probes, std::mt19937(1)); });
}

TEST_F(NotifieeListTest, OneNotifieeAloneMayDoAllOfThis) {
  b.reset();
  c.reset();
  log.clear();
  a->action = [this] {
    if (watched->number() == 1) {
      b = probeOn(watched, "b");
      return;
    }
    a.reset();
    watched.reset();
    b.reset();
    throw std::runtime_error("handler");
  };
  change();
  EXPECT_THAT(log, ElementsAre("a"));
  Watched* const raw = watched.get();
  EXPECT_THROW(raw->numberIs(2), std::runtime_error);
  EXPECT_THAT(log, ElementsAre("a", "a", "a has no references", "b has no references"));
}

// Slots of virtual functions, as the C++ ABI of this platform encodes them in member pointers.

template <class F>
std::ptrdiff_t slotOf(F function) {
  static_assert(sizeof(F) == 2 * sizeof(std::ptrdiff_t));
  std::ptrdiff_t words[2];
  std::memcpy(words, &function, sizeof words);
  EXPECT_EQ(words[0] % 2, 1) << "not virtual";
  return (words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

// hasNotificationActiveIs is an operation of every object and has its slot among those.
TEST(NotifieeConst, VirtualOperationsStandInTheirOrder) {
  using N = Kiv::NotifieeConst;
  std::ptrdiff_t const first = slotOf(&N::notifierIs);
  EXPECT_EQ(slotOf(&N::onAttribute), first + 1);
  EXPECT_EQ(slotOf(&N::onZeroReferences), first + 2);
  EXPECT_EQ(slotOf(&N::handleNotification), first + 3);
  EXPECT_LT(slotOf(&N::hasNotificationActiveIs), first);
  EXPECT_EQ(slotOf(&N::onNotificationException), first + 4);
  EXPECT_EQ(slotOf(&N::actsm), first + 5);
  EXPECT_EQ(slotOf(&N::kivFwkActivity), first + 6);
  EXPECT_EQ(slotOf(&N::isRegisteredNotifieeIs), first + 7);
}

}  // namespace
