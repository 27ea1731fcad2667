// SPDX-License-Identifier: Apache-2.0
#include "framework/collections/ValueCollection.h"

#include <compare>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/core/Notifiee.h"
#include "tests/support/AllocationCount.h"

namespace {

using BfnTest::NoMemory;
using Kiv::makeActive;
using Kiv::Ptr;
using Kiv::U32;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

struct Route {
  U32 prefix = 0;
  int metric = 0;
  friend bool operator==(Route const&, Route const&) = default;
};

class Table final : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<U32> kRoute{130};
  auto& route() { return route_; }

 private:
  Kiv::ValueCollection<kRoute, Route, &Route::prefix, 0x1234> route_{*this};
};

class Listener final : public Kiv::NotifieeConst {
 public:
  explicit Listener(Ptr<Table> const& table) { NotifieeConst::notifierIs(table); }
  void onAttribute(Kiv::AttributeId id, void const* key) override {
    EXPECT_EQ(id, Table::kRoute.id);
    U32 const prefix = *static_cast<U32 const*>(key);
    keys.push_back(prefix);
    auto const copy = action;
    if (copy) copy(prefix);
  }
  std::vector<U32> keys;
  std::function<void(U32)> action;
};

class ValueCollectionTest : public ::testing::Test {
 protected:
  std::vector<U32> order() {
    std::vector<U32> keys;
    for (Route const& route : table->route()) keys.push_back(route.prefix);
    return keys;
  }
  Ptr<Table> table = makeActive<Table>();
  Ptr<Listener> listener = makeActive<Listener>(table);
};

TEST_F(ValueCollectionTest, InsertionReplacementAndRemovalNotifyWithTheKey) {
  EXPECT_TRUE(table->route().set({7, 1}));
  EXPECT_TRUE(table->route().set({7, 2}));
  EXPECT_EQ(table->route().del(7), (Route{7, 2}));
  EXPECT_THAT(listener->keys, ElementsAre(7, 7, 7));
}

TEST_F(ValueCollectionTest, AnEqualValueDoesNotNotify) {
  table->route().set({7, 1});
  EXPECT_FALSE(table->route().set({7, 1}));
  EXPECT_THAT(listener->keys, ElementsAre(7));
}

TEST_F(ValueCollectionTest, RemovingAnAbsentKeyGivesADefaultValueAndDoesNotNotify) {
  EXPECT_EQ(table->route().del(7), Route());
  EXPECT_THAT(listener->keys, IsEmpty());
}

TEST_F(ValueCollectionTest, AHandlerSeesTheChangeDone) {
  std::vector<int> metrics;
  listener->action = [&](U32 prefix) { metrics.push_back(table->route().get(prefix).metric); };
  table->route().set({7, 1});
  table->route().set({7, 2});
  table->route().del(7);
  EXPECT_THAT(metrics, ElementsAre(1, 2, 0));
}

TEST_F(ValueCollectionTest, DeletingAllNotifiesOnceAMemberInTheOrderOfTheWalk) {
  for (U32 i = 0; i < 100; ++i) table->route().set({i, 1});
  std::vector<U32> const before = order();
  listener->keys.clear();
  table->route().delAll();
  EXPECT_EQ(listener->keys, before);
  EXPECT_TRUE(table->route().empty());
}

TEST_F(ValueCollectionTest, AListenerThatAddsAgainDoesNotMakeDeletingAllEndless) {
  for (U32 i = 0; i < 100; ++i) table->route().set({i, 1});
  std::vector<U32> const before = order();
  listener->keys.clear();
  bool adding = false;
  listener->action = [&](U32 prefix) {
    if (adding) return;
    adding = true;
    table->route().set({prefix, 2});
    adding = false;
  };
  table->route().delAll();
  EXPECT_EQ(order(), before);
  EXPECT_EQ(listener->keys.size(), 200u);
}

TEST_F(ValueCollectionTest, AListenerMayRemoveOthersWhileAllAreDeleted) {
  for (U32 i = 0; i < 50; ++i) table->route().set({i, 1});
  listener->keys.clear();
  listener->action = [&](U32 prefix) { table->route().del(prefix ^ 1); };
  table->route().delAll();
  EXPECT_TRUE(table->route().empty());
  std::vector<U32> all(50);
  for (U32 i = 0; i < 50; ++i) all[i] = i;
  EXPECT_THAT(listener->keys, UnorderedElementsAreArray(all));
}

TEST_F(ValueCollectionTest, AHandlerMayDestroyTheOwnerWhileAllAreDeleted) {
  for (U32 i = 0; i < 10; ++i) table->route().set({i, 1});
  listener->keys.clear();
  listener->action = [this](U32) {
    table.reset();
    listener->hasNotificationActiveIs(false);
    listener->notifierIs(nullptr);
  };
  Table* const raw = table.get();
  raw->route().delAll();
  EXPECT_THAT(listener->keys, ::testing::SizeIs(1));
}

TEST_F(ValueCollectionTest, AHandlerMayDestroyTheOwnerDuringOneChange) {
  listener->action = [this](U32) {
    table.reset();
    listener->notifierIs(nullptr);
  };
  Table* const raw = table.get();
  EXPECT_TRUE(raw->route().set({7, 1}));
  EXPECT_THAT(listener->keys, ElementsAre(7));
}

TEST_F(ValueCollectionTest, AnExceptionLeavesTheChangeStoredAndTheCollectionUsable) {
  listener->action = [](U32) { throw std::runtime_error("handler"); };
  EXPECT_THROW(table->route().set({7, 1}), std::runtime_error);
  EXPECT_TRUE(table->route().has(7));
  EXPECT_THROW(table->route().del(7), std::runtime_error);
  EXPECT_FALSE(table->route().has(7));
  listener->action = nullptr;
  EXPECT_TRUE(table->route().set({7, 3}));
  EXPECT_EQ(table->route().size(), 1u);
}

TEST_F(ValueCollectionTest, AnExceptionWhileAllAreDeletedLeavesTheRest) {
  for (U32 i = 0; i < 10; ++i) table->route().set({i, 1});
  listener->action = [&](U32) {
    if (table->route().size() == 5) throw std::runtime_error("handler");
  };
  EXPECT_THROW(table->route().delAll(), std::runtime_error);
  EXPECT_EQ(table->route().size(), 5u);
  listener->action = nullptr;
  table->route().delAll();
  EXPECT_TRUE(table->route().empty());
}

TEST_F(ValueCollectionTest, TheOrderDependsNeitherOnHistoryNorOnCapacity) {
  for (U32 i = 0; i < 40; ++i) table->route().set({i, 1});
  std::vector<U32> const grown = order();
  auto const other = makeActive<Table>();
  for (U32 i = 2000; i > 0; --i) other->route().set({i - 1, 1});
  for (U32 i = 40; i < 2000; ++i) other->route().del(i);
  std::vector<U32> shrunk;
  for (Route const& route : other->route()) shrunk.push_back(route.prefix);
  EXPECT_EQ(shrunk, grown);
}

TEST_F(ValueCollectionTest, AValueUnderItsOwnKeyIsSet) {
  EXPECT_TRUE(table->route().set(7, {7, 1}));
  EXPECT_FALSE(table->route().set(7, {7, 1}));
  EXPECT_THAT(listener->keys, ElementsAre(7));
}

// Keys that need memory when they are copied.
struct TextKey {
  std::string text;
  U32 hash() const { return Kiv::hashText(text); }
  friend bool operator==(TextKey const&, TextKey const&) = default;
  friend auto operator<=>(TextKey const&, TextKey const&) = default;
};
struct Texts final : Kiv::PtrInterface {
  Kiv::MapCollection<Kiv::Attr<TextKey, Texts>{130}, TextKey, int, 7> texts{*this};
};
class Counter final : public Kiv::NotifieeConst {
 public:
  explicit Counter(Ptr<Texts> const& texts) { NotifieeConst::notifierIs(texts); }
  void onAttribute(Kiv::AttributeId, void const*) override { ++calls; }
  int calls = 0;
};

TEST(ValueCollection, AMutatorWithoutMemoryChangesNothingAndCanBeRepeated) {
  auto const owner = Kiv::makeActive<Texts>();
  auto const counter = Kiv::makeActive<Counter>(owner);
  auto& texts = owner->texts;
  auto const repeatUntilDone = [&](auto const& mutate) {
    int const calls = counter->calls;
    size_t const size = texts.size();
    for (size_t spared = 0;; ++spared) {
      NoMemory none(spared);
      try {
        mutate();
        break;
      } catch (std::bad_alloc const&) {
        none.end();
        EXPECT_EQ(texts.size(), size);
        EXPECT_EQ(counter->calls, calls);
      }
    }
    EXPECT_EQ(counter->calls, calls + 1);
  };
  std::string const longText = "a text that is too long for the string object itself ";
  for (int i = 0; i < 20; ++i) {
    TextKey const key{longText + std::to_string(i)};
    repeatUntilDone([&] { texts.set({key, i}); });
    repeatUntilDone([&] { texts.set(key, {key, i + 1}); });
  }
  for (int i = 0; i < 20; ++i) {
    TextKey const key{longText + std::to_string(i)};
    repeatUntilDone([&] { texts.del(key); });
  }
  EXPECT_TRUE(texts.empty());
}

using ValueCollectionDeathTest = ValueCollectionTest;

TEST_F(ValueCollectionDeathTest, AValueUnderAnotherKeyIsFatal) {
  EXPECT_DEATH(table->route().set(8, {7, 1}),
               "^Failed\\(fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)\\) .*"
               "\"fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)\" == nullptr");
}

}  // namespace
