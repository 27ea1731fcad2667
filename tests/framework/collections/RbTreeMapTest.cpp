// SPDX-License-Identifier: Apache-2.0
#include "framework/collections/RbTreeMap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "framework/core/AddressSanitizer.h"
#include "framework/core/Types.h"

namespace {

using namespace Kiv;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

using Names = RbTreeMap<int, std::string>;

static_assert(std::bidirectional_iterator<Names::Iterator>);
static_assert(!std::is_copy_constructible_v<Names>);

TEST(RbTreeMap, WalksInAscendingOrderOfTheKeys) {
  Names names;
  for (int key : {5, -3, 9, 0, 7}) names.insert(key, std::to_string(key));
  EXPECT_THAT(names,
              ElementsAre(Pair(-3, "-3"), Pair(0, "0"), Pair(5, "5"), Pair(7, "7"), Pair(9, "9")));
  EXPECT_EQ(std::prev(names.end())->first, 9);
}

TEST(RbTreeMap, OrdersByTheKeysLessThanAlone) {
  struct Key {
    int major;
    int minor;
    bool operator<(Key const& other) const { return major > other.major; }
  };
  RbTreeMap<Key, int> map;
  map.insert({1, 5}, 10);
  map.insert({2, 5}, 20);
  EXPECT_EQ(map.begin()->second, 20);
  EXPECT_TRUE(map.contains({1, 99}));
}

TEST(RbTreeMap, AnEmptyMapFindsNothing) {
  Names names;
  EXPECT_TRUE(names.empty());
  EXPECT_EQ(names.find(1), names.end());
  EXPECT_EQ(names.lowerBound(1), names.end());
  EXPECT_FALSE(names.erase(1));
  EXPECT_EQ(names.begin(), names.end());
}

TEST(RbTreeMap, InsertOrAssignReplacesThePresentValue) {
  Names names;
  names.insertOrAssign(1, "a");
  names.insertOrAssign(2, "b");
  EXPECT_EQ(names.insertOrAssign(1, "c")->second, "c");
  EXPECT_THAT(names, ElementsAre(Pair(1, "c"), Pair(2, "b")));
}

TEST(RbTreeMap, BoundsOfAnAbsentKeyAreItsSuccessor) {
  Names names;
  for (int key : {10, 20, 30}) names.insert(key, "");
  EXPECT_EQ(names.lowerBound(20)->first, 20);
  EXPECT_EQ(names.upperBound(20)->first, 30);
  EXPECT_EQ(names.lowerBound(15)->first, 20);
  EXPECT_EQ(names.upperBound(15)->first, 20);
  EXPECT_EQ(names.upperBound(30), names.end());
}

TEST(RbTreeMap, IteratorsStayValidWhileOthersComeAndGo) {
  Names names;
  names.insert(500, "five hundred");
  Names::Iterator const it = names.find(500);
  for (int key = 0; key < 1000; ++key) {
    if (key != 500) names.insert(key, "");
  }
  for (int key = 0; key < 1000; ++key) {
    if (key != 500) names.erase(key);
  }
  EXPECT_EQ(it->second, "five hundred");
  EXPECT_EQ(std::next(it), names.end());
}

TEST(RbTreeMap, EraseAcceptsTheMembersOwnKeyAndGivesTheNextMember) {
  Names names;
  for (int key : {1, 2, 3}) names.insert(key, "");
  EXPECT_EQ(names.erase(names.find(2))->first, 3);
  EXPECT_TRUE(names.erase(names.begin()->first));
  EXPECT_THAT(names, ElementsAre(Pair(3, "")));
}

TEST(RbTreeMap, HoldsMoveOnlyValues) {
  RbTreeMap<int, std::unique_ptr<int>> map;
  map.insert(1, std::make_unique<int>(10));
  map.insert(0, std::make_unique<int>(20));
  map.insertOrAssign(1, std::make_unique<int>(30));
  EXPECT_EQ(*map.find(1)->second, 30);
  EXPECT_EQ(*map.find(0)->second, 20);
}

TEST(RbTreeMap, GivesItsMemoryBackWhenItIsEmpty) {
  Names names;
  EXPECT_EQ(names.heapBytes(), 0u);
  for (int key = 0; key < 1000; ++key) names.insert(key, "");
  EXPECT_GT(names.heapBytes(), 1000 * (sizeof(int) + sizeof(std::string)));
  for (int key = 0; key < 1000; ++key) names.erase(key);
  EXPECT_EQ(names.heapBytes(), sizeof(NodePool));
  names.insert(1, "");
  names.clear();
  EXPECT_EQ(names.heapBytes(), sizeof(NodePool));
  EXPECT_THAT(names, IsEmpty());
}

TEST(RbTreeMap, UsesTheMemoryOfRemovedMembersAgain) {
  Names names;
  for (int key = 0; key < 1000; ++key) names.insert(key, "");
  size_t const bytes = names.heapBytes();
  for (int key = 0; key < 500; ++key) names.erase(key);
  for (int key = 2000; key < 2500; ++key) names.insert(key, "");
  EXPECT_EQ(names.heapBytes(), bytes);
}

TEST(RbTreeMap, MoveAndSwapCarryTheMembersAndKeepIteratorsValid) {
  Names a;
  Names b;
  a.insert(1, "a");
  b.insert(2, "b");
  Names::Iterator const it = a.find(1);
  swap(a, b);
  EXPECT_THAT(a, ElementsAre(Pair(2, "b")));
  EXPECT_THAT(b, ElementsAre(Pair(1, "a")));
  Names moved(std::move(b));
  a = std::move(moved);
  EXPECT_THAT(a, ElementsAre(Pair(1, "a")));
  EXPECT_EQ(it->second, "a");
  a.insert(0, "again");
  EXPECT_EQ(std::next(a.begin()), it);
}

// The map against a plain model.
class CheckedMap {
 public:
  CheckedMap(U32 seed, U32 keys) : random_(seed), keys_(keys) {}

  void change() {
    U32 const key = static_cast<U32>(random_()) % keys_;
    switch (random_() % 5) {
      case 0:
      case 1:
        return store(key);
      case 2:
        return remove(key);
      case 3:
        return removeAtOrBehind(key);
      default:
        ASSERT_EQ(map_.contains(key), model_.contains(key));
    }
  }
  void compare() const {
    ASSERT_EQ(map_.size(), model_.size());
    auto expected = model_.begin();
    for (auto const& [key, value] : map_) {
      ASSERT_EQ(key, expected->first);
      ASSERT_EQ(*value, expected->second);
      ++expected;
    }
  }

 private:
  void store(U32 key) {
    U32 const value = static_cast<U32>(random_());
    if (model_.contains(key)) {
      map_.insertOrAssign(key, std::make_unique<U32>(value));
    } else {
      map_.insert(key, std::make_unique<U32>(value));
    }
    model_[key] = value;
    ASSERT_EQ(*map_.find(key)->second, value);
  }
  void remove(U32 key) { ASSERT_EQ(map_.erase(key), model_.erase(key) != 0); }
  void removeAtOrBehind(U32 key) {
    auto const at = map_.lowerBound(key);
    auto const expected = model_.lower_bound(key);
    ASSERT_EQ(at == map_.end(), expected == model_.end());
    if (expected == model_.end()) return;
    ASSERT_EQ(at->first, expected->first);
    map_.erase(at);
    model_.erase(expected);
  }

  std::mt19937 random_;
  U32 keys_;
  RbTreeMap<U32, std::unique_ptr<U32>> map_;
  std::map<U32, U32> model_;
};

TEST(RbTreeMapRandom, AnyChangesGiveWhatAModelGives) {
  for (U32 seed : {11u, 222u, 3333u}) {
    for (U32 keys : {5u, 300u, 20'000u}) {
      SCOPED_TRACE(::testing::Message() << "seed " << seed << ", keys below " << keys);
      CheckedMap checked(seed, keys);
      for (int step = 0; step < 200'000; ++step) {
        checked.change();
        if (step % 20'000 == 0) checked.compare();
        if (HasFatalFailure()) return;
      }
      checked.compare();
    }
  }
}

TEST(RbTreeMapDeathTest, AddressSanitizerSeesTheUseOfAnErasedMember) {
#ifndef KIV_ADDRESS_SANITIZER
  GTEST_SKIP() << "only with AddressSanitizer";
#else
  Kiv::RbTreeMap<U32, U32> map;
  for (U32 key = 0; key < 8; ++key) map.insert(key, key);
  U32 const& value = map.find(3)->second;
  map.erase(3);
  EXPECT_DEATH(EXPECT_EQ(value, 3u), "use-after-poison");
  // Its memory serves the next member.
  map.insert(9, 9);
  EXPECT_EQ(map.find(9)->second, 9u);
#endif
}

TEST(RbTreeMapDeathTest, InsertingAPresentKeyIsFatal) {
  Names names;
  for (int key : {1, 2, 3}) names.insert(key, "");
  EXPECT_DEATH(names.insert(2, ""), "Failed\\(!assertDupKey\\( key \\)\\) A key that is already");
  EXPECT_DEATH(names.insert(3, ""), "\"!assertDupKey\\( key \\)\" == nullptr");
}

}  // namespace
