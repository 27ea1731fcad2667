// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Attribute.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

#include "tests/framework/core/Probe.h"

namespace {

using BfnTest::Log;
using BfnTest::Probe;
using BfnTest::Watched;
using Kiv::makeActive;
using Kiv::Ptr;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AttributeTest : public ::testing::Test {
 protected:
  Log log;
  Ptr<Watched> watched = makeActive<Watched>();
  Ptr<Probe> listener = makeActive<Probe>(watched, "notified", &log);
};

TEST_F(AttributeTest, SettingANewValueNotifiesOnceBeforeTheMutatorReturns) {
  watched->numberIs(1);
  EXPECT_THAT(log, ElementsAre("notified"));
}

TEST_F(AttributeTest, SettingAnEqualValueDoesNotNotify) {
  watched->numberIs(0);
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(AttributeTest, AHandlerSeesTheNewValue) {
  int seen = -1;
  listener->action = [&] { seen = watched->number(); };
  watched->numberIs(5);
  EXPECT_EQ(seen, 5);
}

TEST_F(AttributeTest, AHandlerMaySetItAgain) {
  listener->action = [this] {
    if (watched->number() < 3) watched->numberIs(watched->number() + 1);
  };
  watched->numberIs(1);
  EXPECT_THAT(log, ElementsAre("notified", "notified", "notified"));
  EXPECT_EQ(watched->number(), 3);
}

TEST_F(AttributeTest, AnExceptionLeavesTheNewValueAndTheNextChangeNotifies) {
  listener->action = [] { throw std::runtime_error("handler"); };
  EXPECT_THROW(watched->numberIs(1), std::runtime_error);
  EXPECT_EQ(watched->number(), 1);
  listener->action = nullptr;
  log.clear();
  watched->numberIs(2);
  EXPECT_THAT(log, ElementsAre("notified"));
}

TEST_F(AttributeTest, AHandlerMayDestroyTheNotifier) {
  listener->action = [this] {
    watched.reset();
    listener.reset();
  };
  Watched* const raw = watched.get();
  raw->numberIs(1);
  EXPECT_THAT(log, ElementsAre("notified", "notified has no references"));
}

class Holder final : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<> kHeld{130};
  Ptr<Watched> const& held() const { return held_(); }
  void heldIs(Ptr<Watched> const& held) { held_.is(held); }

 private:
  Kiv::Attribute<kHeld, Ptr<Watched>> held_{*this};
};

TEST(PtrAttribute, WhatIsReplacedLivesUntilTheNotificationIsOver) {
  Log log;
  auto const holder = makeActive<Holder>();
  holder->heldIs(makeActive<Watched>());
  Watched* const old = holder->held().get();
  auto const listener = makeActive<Probe>(holder, "notified", &log);
  int alive = 0;
  listener->action = [&] { alive = static_cast<int>(old->kivRefCount()); };
  holder->heldIs(nullptr);
  EXPECT_EQ(alive, 1);
  EXPECT_THAT(log, ElementsAre("notified"));
}

TEST(PtrAttribute, TheSameObjectAgainDoesNotNotify) {
  Log log;
  auto const holder = makeActive<Holder>();
  auto const held = makeActive<Watched>();
  holder->heldIs(held);
  auto const listener = makeActive<Probe>(holder, "notified", &log);
  holder->heldIs(held);
  EXPECT_THAT(log, IsEmpty());
}

}  // namespace
