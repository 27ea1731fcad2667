// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "framework/collections/HashTable.h"
#include "framework/core/Hash.h"

namespace {

using namespace Kiv;

// What each kind of hash does to a key. Keys are below 2^16.
struct GoodHash {
  static U32 hash(U32 seed, U32 key) { return hashSingleAttr(seed, key); }
};
struct ConstantHash {
  static U32 hash(U32 seed, U32) { return seed; }
};
struct FewBitsHash {
  static U32 hash(U32 seed, U32 key) { return hashSingleAttr(seed, key) & 0x8000'0003; }
};
// Every home is the last one, or nearly.
struct HighHash {
  static U32 hash(U32 seed, U32 key) { return 0xFFFF'FFFF - (hashSingleAttr(seed, key) & 7); }
};
// All members crowd together at each scale.
struct ClusteredHash {
  static U32 hash(U32 seed, U32 key) { return (seed & 0xFFF0'0000) + key * 16; }
};
struct LowBitsHash {
  static U32 hash(U32, U32 key) { return key; }
};

struct PlainSlot {
  U32 first;
  U32 second;
  U32 value;
};
struct OwnedSlot {
  OwnedSlot(U32 a, U32, U32 v) : first(a), value(std::make_unique<U32>(v)) {}
  U32 first;
  std::unique_ptr<U32> value;
};
U32 valueOf(PlainSlot const& slot) {
  return slot.value;
}
U32 valueOf(OwnedSlot const& slot) {
  return *slot.value;
}
void setValue(PlainSlot& slot, U32 value) {
  slot.value = value;
}
void setValue(OwnedSlot& slot, U32 value) {
  slot.value = std::make_unique<U32>(value);
}

template <class SlotT, class HashT>
struct Case {
  struct Traits {
    using Slot = SlotT;
    using Key = U32;
    static Key const& key(Slot const& slot) { return slot.first; }
    static U32 hash(U32 seed, Key const& key) { return HashT::hash(seed, key); }
  };
  using Table = HashTable<Traits>;
};

// The table against a plain model.
template <class C>
class Checked {
 public:
  using Table = typename C::Table;
  using Traits = typename C::Traits;
  using Place = std::pair<U32, U32>;

  explicit Checked(U32 seed, U32 keys) : generator_(seed), keys_(keys), table_(random()) {}

  void insert() {
    U32 const key = randomKey();
    U32 const value = random();
    bool const isNew = model_.emplace(place(key), value).second;
    auto const [slot, inserted] = table_.insert(typename Traits::Slot{key, ~key, value});
    ASSERT_EQ(inserted, isNew);
    ASSERT_EQ(Traits::key(*slot), key);
    ASSERT_EQ(valueOf(*slot), model_.at(place(key)));
  }
  void remove() {
    U32 const key = randomKey();
    auto const found = model_.find(place(key));
    if (random() % 2 == 0) {
      ASSERT_EQ(table_.erase(key), found != model_.end());
    } else {
      auto const taken = table_.take(key);
      ASSERT_EQ(taken.has_value(), found != model_.end());
      if (!taken) return;
      ASSERT_EQ(valueOf(*taken), found->second);
    }
    if (found != model_.end()) model_.erase(found);
  }
  void look() {
    U32 const key = randomKey();
    auto const found = model_.find(place(key));
    auto* const slot = table_.find(key);
    ASSERT_EQ(slot != nullptr, found != model_.end());
    if (slot == nullptr) return;
    ASSERT_EQ(valueOf(*slot), found->second);
    setValue(*slot, found->second = random());
  }
  void bound() {
    U32 const key = randomKey();
    same(table_.lowerBound(key), model_.lower_bound(place(key)));
    same(table_.upperBound(key), model_.upper_bound(place(key)));
  }
  void change() {
    switch (random() % 4) {
      case 0:
        return insert();
      case 1:
        return remove();
      case 2:
        return look();
      default:
        return bound();
    }
  }
  void compare() {
    ASSERT_EQ(table_.size(), model_.size());
    auto expected = model_.begin();
    for (auto const& slot : table_) {
      ASSERT_NE(expected, model_.end());
      ASSERT_EQ(Traits::key(slot), expected->first.second);
      ASSERT_EQ(valueOf(slot), expected->second);
      ++expected;
    }
    ASSERT_EQ(expected, model_.end());
  }
  void clear() {
    table_.clear();
    model_.clear();
  }

  // Walks while the table changes between the steps: what stays throughout is visited once.
  void walkChanging() {
    std::set<Place> staying;
    std::vector<U32> visited;
    for (auto const& [at, value] : model_) staying.insert(at);
    bool const fromStart = random() % 2 == 0;
    U32 const from = randomKey();
    if (!fromStart) staying.erase(staying.begin(), staying.lower_bound(place(from)));
    typename Table::Cursor cursor =
        fromStart ? typename Table::Cursor(table_) : typename Table::Cursor(table_, from);
    Place last{};
    while (auto const* slot = cursor.next()) {
      Place const at = place(Traits::key(*slot));
      ASSERT_EQ(valueOf(*slot), model_.at(at));
      ASSERT_TRUE(visited.empty() || last < at);
      ASSERT_TRUE(fromStart || place(from) <= at);
      last = at;
      visited.push_back(at.second);
      if (random() % 8 == 0) changeBetween(at.second, staying);
    }
    for (Place const& at : staying)
      ASSERT_TRUE(std::find(visited.begin(), visited.end(), at.second) != visited.end())
          << at.second;
  }

  U32 random() { return static_cast<U32>(generator_()); }
  size_t size() const { return model_.size(); }

 private:
  U32 randomKey() { return random() % keys_; }
  Place place(U32 key) const {
    return {std::min(Traits::hash(table_.seed(), key), 0xFFFF'FFFEu), key};
  }
  template <class It, class ModelIt>
  void same(It const& it, ModelIt const& expected) {
    ASSERT_EQ(it == table_.end(), expected == model_.end());
    if (expected == model_.end()) return;
    ASSERT_EQ(Traits::key(*it), expected->first.second);
  }
  void changeBetween(U32 current, std::set<Place>& staying) {
    for (U32 n = random() % 6; n > 0; --n) {
      U32 const key = random() % 3 == 0 ? current : randomKey();
      if (random() % 2 == 0) {
        U32 const value = random();
        table_.insert(typename Traits::Slot{key, ~key, value});
        model_.emplace(place(key), value);
      } else {
        table_.erase(key);
        model_.erase(place(key));
        staying.erase(place(key));
      }
    }
  }

  std::mt19937 generator_;
  U32 keys_;
  Table table_;
  std::map<Place, U32> model_;
};

template <class C>
class HashTableRandom : public ::testing::Test {};

using Cases = ::testing::Types<Case<PlainSlot, GoodHash>, Case<PlainSlot, ConstantHash>,
                               Case<PlainSlot, FewBitsHash>, Case<PlainSlot, HighHash>,
                               Case<PlainSlot, ClusteredHash>, Case<PlainSlot, LowBitsHash>,
                               Case<OwnedSlot, GoodHash>, Case<OwnedSlot, ConstantHash>,
                               Case<OwnedSlot, FewBitsHash>, Case<OwnedSlot, HighHash>>;
TYPED_TEST_SUITE(HashTableRandom, Cases);

TYPED_TEST(HashTableRandom, AnyChangesGiveWhatAModelGives) {
  for (U32 seed : {1u, 20u, 300u}) {
    for (U32 keys : {3u, 40u, 700u}) {
      SCOPED_TRACE(::testing::Message() << "seed " << seed << ", keys below " << keys);
      Checked<TypeParam> checked(seed, keys);
      for (int step = 0; step < 40'000; ++step) {
        checked.change();
        if (step % 2'000 == 0) checked.compare();
        if (step % 15'000 == 14'999) checked.clear();
        if (this->HasFatalFailure()) return;
      }
      checked.compare();
    }
  }
}

TYPED_TEST(HashTableRandom, AWalkSurvivesAnyChangesBetweenItsSteps) {
  for (U32 seed : {5u, 60u, 700u}) {
    for (U32 keys : {3u, 40u, 700u}) {
      SCOPED_TRACE(::testing::Message() << "seed " << seed << ", keys below " << keys);
      Checked<TypeParam> checked(seed, keys);
      for (int round = 0; round < 40; ++round) {
        for (U32 step = checked.random() % (2 * keys); step > 0; --step) checked.insert();
        checked.walkChanging();
        checked.compare();
        if (round % 10 == 9) checked.clear();
        if (this->HasFatalFailure()) return;
      }
    }
  }
}

TEST(HashTableRandomLarge, ManyMembersInARandomOrderGiveWhatAModelGives) {
  for (U32 seed : {8u, 90u}) {
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    Checked<Case<PlainSlot, GoodHash>> checked(seed, 60'000);
    for (int step = 0; step < 400'000; ++step) {
      checked.change();
      if (HasFatalFailure()) return;
    }
    checked.compare();
  }
}

}  // namespace
