// SPDX-License-Identifier: Apache-2.0
#include "framework/collections/MemberCollection.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "framework/core/Notifiee.h"
#include "tests/support/AllocationCount.h"

namespace {

using BfnTest::NoMemory;
using Kiv::make;
using Kiv::makeActive;
using Kiv::Ptr;
using Kiv::U32;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Port final : public Kiv::PtrInterface {
 public:
  explicit Port(U32 number) : number_(number) {}
  U32 number() const { return number_; }

 private:
  U32 const number_;
};

class Card final : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<U32> kPort{130};
  auto& port() { return port_; }

 private:
  Kiv::MemberCollection<kPort, Port, &Port::number, 0x4321> port_{*this};
};

class Listener final : public Kiv::NotifieeConst {
 public:
  explicit Listener(Ptr<Card> const& card) { NotifieeConst::notifierIs(card); }
  void onAttribute(Kiv::AttributeId id, void const* key) override {
    EXPECT_EQ(id, Card::kPort.id);
    U32 const number = *static_cast<U32 const*>(key);
    keys.push_back(number);
    auto const copy = action;
    if (copy) copy(number);
  }
  std::vector<U32> keys;
  std::function<void(U32)> action;
};

class MemberCollectionTest : public ::testing::Test {
 protected:
  Ptr<Card> card = makeActive<Card>();
  Ptr<Listener> listener = makeActive<Listener>(card);
};

TEST_F(MemberCollectionTest, AnAbsentMemberIsMadeSwitchedOnStoredAndNotified) {
  listener->action = [this](U32 number) {
    ASSERT_NE(card->port().find(number), nullptr);
    EXPECT_TRUE(card->port().find(number)->hasNotificationActive());
  };
  auto const port = card->port().is(7);
  EXPECT_EQ(port->number(), 7u);
  EXPECT_EQ(card->port().get(7), port);
  EXPECT_THAT(listener->keys, ElementsAre(7));
}

TEST_F(MemberCollectionTest, APresentMemberIsReturnedWithoutNotification) {
  auto const port = card->port().is(7);
  EXPECT_EQ(card->port().is(7), port);
  EXPECT_THAT(listener->keys, ElementsAre(7));
}

TEST_F(MemberCollectionTest, AMemberMadeElsewhereReplacesTheOneUnderItsKey) {
  auto const old = card->port().is(7);
  auto const port = makeActive<Port>(7u);
  card->port().memberIs(port);
  card->port().memberIs(port);
  EXPECT_EQ(card->port().get(7), port);
  EXPECT_EQ(card->port().size(), 1u);
  EXPECT_EQ(old->kivRefCount(), 1u);
  EXPECT_THAT(listener->keys, ElementsAre(7, 7));
}

TEST_F(MemberCollectionTest, ANullMemberIsRefused) {
  EXPECT_THROW(card->port().memberIs(nullptr), Kiv::NullPointerException);
  EXPECT_THAT(listener->keys, IsEmpty());
}

TEST_F(MemberCollectionTest, ARemovedMemberLivesUntilItsNotificationIsOver) {
  card->port().is(7);
  Port* const raw = card->port().find(7);
  U32 references = 0;
  listener->action = [&](U32 number) {
    EXPECT_EQ(card->port().find(number), nullptr);
    references = raw->kivRefCount();
  };
  card->port().del(7);
  EXPECT_EQ(references, 1u);
  EXPECT_THAT(listener->keys, ElementsAre(7, 7));
}

TEST_F(MemberCollectionTest, RemovingAnAbsentMemberDoesNotNotify) {
  EXPECT_EQ(card->port().del(7), nullptr);
  EXPECT_THAT(listener->keys, IsEmpty());
}

TEST_F(MemberCollectionTest, DeletingAllGoesByTheOrderThoughAListenerAddsAgain) {
  for (U32 i = 0; i < 64; ++i) card->port().is(i);
  std::vector<U32> before;
  for (auto const& port : card->port()) before.push_back(port->number());
  listener->keys.clear();
  std::vector<U32> removed;
  listener->action = [&](U32 number) {
    if (card->port().find(number) != nullptr) return;
    removed.push_back(number);
    card->port().is(number);
  };
  card->port().delAll();
  EXPECT_EQ(removed, before);
  EXPECT_EQ(card->port().size(), 64u);
}

TEST_F(MemberCollectionTest, AHandlerMayDestroyTheOwner) {
  for (U32 i = 0; i < 8; ++i) card->port().is(i);
  listener->keys.clear();
  listener->action = [this](U32) {
    card.reset();
    listener->notifierIs(nullptr);
  };
  Card* const raw = card.get();
  raw->port().delAll();
  EXPECT_THAT(listener->keys, ::testing::SizeIs(1));
}

TEST_F(MemberCollectionTest, AnExceptionLeavesTheMemberStored) {
  listener->action = [](U32) { throw std::runtime_error("handler"); };
  EXPECT_THROW(card->port().is(7), std::runtime_error);
  EXPECT_NE(card->port().find(7), nullptr);
  EXPECT_THROW(card->port().del(7), std::runtime_error);
  EXPECT_TRUE(card->port().empty());
}

TEST_F(MemberCollectionTest, AWalkSurvivesRemovalOfEachMemberItGives) {
  for (U32 i = 0; i < 32; ++i) card->port().is(i);
  auto walk = card->port().cursor();
  size_t seen = 0;
  while (Port* const port = walk.next()) {
    ++seen;
    card->port().del(port->number());
  }
  EXPECT_EQ(seen, 32u);
}

TEST_F(MemberCollectionTest, AWalkMayStartAtTheSuccessorOfAnAbsentKey) {
  for (U32 i = 0; i < 32; ++i) card->port().is(i);
  std::vector<U32> order;
  for (auto const& port : card->port()) order.push_back(port->number());
  card->port().del(order[10]);
  auto walk = card->port().cursor(order[10]);
  EXPECT_EQ(walk.next()->number(), order[11]);
}

TEST_F(MemberCollectionTest, AMutatorWithoutMemoryChangesNothingAndCanBeRepeated) {
  for (U32 number = 0; number < 40; ++number) {
    bool done = false;
    listener->keys.clear();
    listener->keys.reserve(4);
    for (size_t spared = 0; !done; ++spared) {
      NoMemory none(spared);
      try {
        (void)card->port().is(number);
        done = true;
      } catch (std::bad_alloc const&) {
        none.end();
        EXPECT_EQ(card->port().find(number), nullptr);
        EXPECT_THAT(listener->keys, IsEmpty());
      }
    }
    EXPECT_EQ(card->port().size(), number + 1);
    EXPECT_THAT(listener->keys, ElementsAre(number));
  }
}

// A const collection gives const members.
using Ports = std::remove_cvref_t<decltype(std::declval<Card&>().port())>;
static_assert(std::is_same_v<decltype(std::declval<Ports&>().find(7)), Port*>);
static_assert(std::is_same_v<decltype(std::declval<Ports const&>().find(7)), Port const*>);
static_assert(std::is_same_v<decltype(std::declval<Ports const&>().get(7)), Ptr<Port const>>);
static_assert(std::is_same_v<decltype(std::declval<Ports&>().cursor().next()), Port*>);
static_assert(std::is_same_v<decltype(std::declval<Ports const&>().cursor().next()), Port const*>);

}  // namespace
