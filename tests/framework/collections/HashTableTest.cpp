// SPDX-License-Identifier: Apache-2.0
#include "framework/collections/HashTable.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include "framework/core/Hash.h"

namespace {

// How many allocations succeed before one fails; negative: all.
int allocationsLeft = -1;

void* allocate(size_t size) {
  if (allocationsLeft == 0) throw std::bad_alloc();
  if (allocationsLeft > 0) --allocationsLeft;
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

// The alignments that the tables of this program ask for are malloc's own.
void* operator new(size_t size, std::align_val_t) {
  return allocate(size);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t, std::align_val_t) noexcept {
  std::free(memory);
}

namespace {

using namespace Kiv;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct NumberTraits {
  using Slot = U32;
  using Key = U32;
  static Key const& key(Slot const& slot) { return slot; }
  static U32 hash(U32 seed, Key const& key) { return hashSingleAttr(seed, key); }
};
using Numbers = HashTable<NumberTraits>;

// The upper half of a key is its hash's upper half; the seed turns every bit of the hash over.
struct PlainHashTraits {
  using Slot = U32;
  using Key = U32;
  static Key key(Slot const& slot) { return slot; }
  static U32 hash(U32 seed, Key const& key) { return (key & 0xFFFF'0000) ^ seed; }
};
using PlainHash = HashTable<PlainHashTraits>;

struct AllEqualTraits : PlainHashTraits {
  static U32 hash(U32 seed, Key const&) { return seed; }
};
using AllEqual = HashTable<AllEqualTraits>;

struct Owned {
  U32 key = 0;
  std::unique_ptr<int> value;
};
struct OwnedTraits {
  using Slot = Owned;
  using Key = U32;
  static Key key(Slot const& slot) { return slot.key; }
  static U32 hash(U32 seed, Key const& key) { return hashSingleAttr(seed, key); }
};
using OwnedTable = HashTable<OwnedTraits>;

template <class Table>
std::vector<U32> walk(Table const& table) {
  return {table.begin(), table.end()};
}

static_assert(std::forward_iterator<Numbers::Iterator>);
static_assert(!std::is_copy_constructible_v<Numbers> && !std::is_copy_assignable_v<Numbers>);
static_assert(std::is_nothrow_move_constructible_v<Numbers>);

TEST(HashTable, AnEmptyTableFindsNothingAndOwnsNoMemory) {
  Numbers table(1);
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(table.find(0), nullptr);
  EXPECT_FALSE(table.contains(0xFFFF'FFFF));
  EXPECT_FALSE(table.erase(7));
  EXPECT_EQ(table.take(7), std::nullopt);
  EXPECT_EQ(table.begin(), table.end());
  EXPECT_EQ(table.lowerBound(7), table.end());
  EXPECT_EQ(table.upperBound(7), table.end());
  EXPECT_EQ(table.heapBytes(), 0u);
}

TEST(HashTable, OneMemberTakesLessThanSixtyFourBytes) {
  Numbers table(1);
  table.insert(5);
  EXPECT_THAT(walk(table), ElementsAre(5));
  EXPECT_GT(table.heapBytes(), 0u);
  EXPECT_LT(table.heapBytes(), 64u);
}

TEST(HashTable, InsertingAPresentKeyKeepsTheStoredMember) {
  OwnedTable table(1);
  auto const [first, isNew] = table.insert({4, std::make_unique<int>(10)});
  ASSERT_TRUE(isNew);
  EXPECT_EQ(*first->value, 10);
  auto const [second, isNewAgain] = table.insert({4, std::make_unique<int>(20)});
  EXPECT_FALSE(isNewAgain);
  EXPECT_EQ(second, table.find(4));
  EXPECT_EQ(*second->value, 10);
  EXPECT_EQ(table.size(), 1u);
}

TEST(HashTable, TakeGivesTheMemberBackAndRemovesIt) {
  OwnedTable table(1);
  for (U32 key = 0; key < 100; ++key) table.insert({key, std::make_unique<int>(key)});
  for (U32 key = 0; key < 100; key += 2) {
    std::optional<Owned> const taken = table.take(key);
    ASSERT_TRUE(taken);
    EXPECT_EQ(*taken->value, static_cast<int>(key));
    EXPECT_FALSE(table.contains(key));
  }
  EXPECT_EQ(table.size(), 50u);
  for (U32 key = 1; key < 100; key += 2) EXPECT_EQ(*table.find(key)->value, static_cast<int>(key));
}

TEST(HashTable, TakeAcceptsTheKeyInsideTheMember) {
  Numbers table(1);
  for (U32 key = 0; key < 20; ++key) table.insert(key);
  U32 const& inside = *table.find(11);
  EXPECT_EQ(table.take(inside), 11u);
  EXPECT_EQ(table.size(), 19u);
}

TEST(HashTable, WalksByHashAndThenByKey) {
  PlainHash table(0);
  for (U32 key : {0x3'0001u, 0x1'0002u, 0xFFFF'0000u, 0x1'0001u, 0x0u, 0x8000'0000u, 0x7FFF'0000u})
    table.insert(key);
  EXPECT_THAT(walk(table), ElementsAre(0x0, 0x1'0001, 0x1'0002, 0x3'0001, 0x7FFF'0000, 0x8000'0000,
                                       0xFFFF'0000));
}

TEST(HashTable, TheSeedGivesTheOrder) {
  PlainHash table(0xFFFF'0000);
  for (U32 key : {0x3'0001u, 0x1'0002u, 0x1'0001u, 0x2'0001u}) table.insert(key);
  EXPECT_THAT(walk(table), ElementsAre(0x3'0001, 0x2'0001, 0x1'0001, 0x1'0002));
}

TEST(HashTable, TheOrderIsTheSameWhateverTheCapacityAndTheHistory) {
  Numbers grown(77);
  Numbers reserved(77);
  reserved.reserve(5000);
  for (U32 key = 0; key < 1000; ++key) grown.insert(key);
  for (U32 key = 2000; key-- > 0;) reserved.insert(key);
  for (U32 key = 1000; key < 2000; ++key) reserved.erase(key);
  EXPECT_GT(reserved.heapBytes(), grown.heapBytes());
  EXPECT_EQ(walk(grown), walk(reserved));
}

TEST(HashTable, TheGreatestHashesAreOrderedByKeyAlone) {
  // 0xFFFFFFFF marks unused slots, so a real hash of that value counts as the one below it.
  struct Traits : PlainHashTraits {
    static U32 hash(U32, Key const& key) { return key % 2 == 0 ? 0xFFFF'FFFF : 0xFFFF'FFFE; }
  };
  HashTable<Traits> table(0);
  for (U32 key : {5u, 2u, 4u, 1u, 3u}) table.insert(key);
  EXPECT_THAT(walk(table), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_TRUE(table.erase(4));
  EXPECT_FALSE(table.contains(4));
  EXPECT_THAT(walk(table), ElementsAre(1, 2, 3, 5));
}

TEST(HashTable, EqualHashesStayCorrectAndGrowNoFasterThanOthers) {
  constexpr U32 kCount = 3000;
  for (U32 hash : {0u, 0x7FFF'FFFFu, 0xFFFF'FFFEu, 0xFFFF'FFFFu}) {
    AllEqual table(hash);
    Numbers others(1);
    for (U32 i = 0; i < kCount; ++i) {
      table.insert(i * 7 % kCount);
      others.insert(i);
    }
    std::vector<U32> sorted(kCount);
    for (U32 i = 0; i < kCount; ++i) sorted[i] = i;
    EXPECT_EQ(walk(table), sorted);
    // The run needs an overflow area of its own length, doubled at most.
    EXPECT_LE(table.heapBytes(), others.heapBytes() + 2 * kCount * (sizeof(U32) + sizeof(U32)));
    for (U32 i = 0; i < kCount; i += 3) EXPECT_TRUE(table.erase(i));
    for (U32 i = 0; i < kCount; ++i) EXPECT_EQ(table.contains(i), i % 3 != 0);
  }
}

TEST(HashTable, MembersInsertedInItsOwnOrderAreFoundInTheLongRunsTheyMake) {
  // Three keys of each second hash, from the least one on: they are all near the first homes.
  auto const keyOf = [](U32 i) { return (i / 3 * 2) << 16 | i % 3; };
  PlainHash table(0);
  std::vector<U32> inserted;
  for (U32 i = 0; i < 10'000; ++i) {
    ASSERT_TRUE(table.insert(keyOf(i)).second);
    inserted.push_back(keyOf(i));
    for (U32 const at : {i, i / 2, i / 3, i / 5 * 4, i * 7 % (i + 1)}) {
      U32 const key = keyOf(at);
      ASSERT_NE(table.find(key), nullptr) << i << " " << at;
      ASSERT_EQ(*table.find(key), key);
      ASSERT_FALSE(table.contains(key | 3)) << i << " " << at;
      ASSERT_FALSE(table.contains(key + 0x1'0000)) << i << " " << at;
      ASSERT_EQ(*table.lowerBound(key), key);
    }
  }
  EXPECT_EQ(walk(table), inserted);
  for (U32 i = 0; i < 10'000; i += 2) ASSERT_TRUE(table.erase(keyOf(i)));
  for (U32 i = 0; i < 10'000; ++i) ASSERT_EQ(table.contains(keyOf(i)), i % 2 == 1);
}

TEST(HashTable, BoundsOfAnAbsentKeyAreItsSuccessor) {
  PlainHash table(0);
  for (U32 key : {0x10'0000u, 0x20'0000u, 0x20'0005u, 0x30'0000u}) table.insert(key);
  EXPECT_EQ(*table.lowerBound(0x20'0000), 0x20'0000u);
  EXPECT_EQ(*table.upperBound(0x20'0000), 0x20'0005u);
  EXPECT_EQ(*table.lowerBound(0x20'0003), 0x20'0005u);
  EXPECT_EQ(*table.upperBound(0x20'0003), 0x20'0005u);
  EXPECT_EQ(*table.lowerBound(0), 0x10'0000u);
  EXPECT_EQ(table.upperBound(0x30'0000), table.end());
  EXPECT_EQ(table.lowerBound(0x40'0000), table.end());
}

TEST(HashTable, ClearGivesTheMemoryBack) {
  Numbers table(1);
  for (U32 key = 0; key < 100; ++key) table.insert(key);
  table.clear();
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(table.heapBytes(), 0u);
  EXPECT_THAT(walk(table), IsEmpty());
  table.insert(3);
  EXPECT_THAT(walk(table), ElementsAre(3));
}

TEST(HashTable, ReservedRoomIsNotAllocatedAgain) {
  Numbers table(1);
  table.reserve(1000);
  size_t const bytes = table.heapBytes();
  for (U32 key = 0; key < 1000; ++key) table.insert(key);
  EXPECT_EQ(table.heapBytes(), bytes);
}

TEST(HashTable, MoveAndSwapCarryMembersAndSeeds) {
  Numbers a(1);
  Numbers b(2);
  for (U32 key = 0; key < 50; ++key) a.insert(key);
  b.insert(99);
  std::vector<U32> const order = walk(a);
  swap(a, b);
  EXPECT_THAT(walk(a), ElementsAre(99));
  EXPECT_EQ(walk(b), order);
  EXPECT_EQ(b.seed(), 1u);
  Numbers moved(std::move(b));
  EXPECT_EQ(walk(moved), order);
  a = std::move(moved);
  EXPECT_EQ(walk(a), order);
  EXPECT_TRUE(a.contains(49));
}

TEST(HashTable, AFailedAllocationChangesNothing) {
  OwnedTable table(5);
  U32 key = 0;
  int failures = 0;
  while (table.size() < 200) {
    size_t const size = table.size();
    allocationsLeft = 0;
    Owned slot{key, nullptr};
    try {
      table.insert(std::move(slot));
      ++key;
    } catch (std::bad_alloc const&) {
      ++failures;
      ASSERT_EQ(table.size(), size);
      ASSERT_FALSE(table.contains(key));
      for (U32 i = 0; i < key; ++i) ASSERT_TRUE(table.contains(i));
      allocationsLeft = -1;
      ASSERT_TRUE(table.insert({key, nullptr}).second);
      ++key;
    }
    allocationsLeft = -1;
  }
  EXPECT_GE(failures, 6);
}

TEST(HashTable, AFailedExtensionOfTheOverflowAreaChangesNothing) {
  AllEqual table(0xFFFF'FFFE);
  table.reserve(1000);
  int failures = 0;
  for (U32 key = 0; key < 1000; ++key) {
    allocationsLeft = 0;
    try {
      table.insert(key);
    } catch (std::bad_alloc const&) {
      ++failures;
      allocationsLeft = -1;
      ASSERT_EQ(table.size(), key);
      ASSERT_FALSE(table.contains(key));
      table.insert(key);
    }
    allocationsLeft = -1;
  }
  EXPECT_EQ(failures, 5);
  for (U32 key = 0; key < 1000; ++key) ASSERT_TRUE(table.contains(key));
}

// A slot whose destruction looks at the table that held it.
struct Watching {
  explicit Watching(U32 k, HashTable<struct WatchingTraits>* t, std::vector<size_t>* s)
      : key(k), table(t), sizes(s) {}
  Watching(Watching&& other) noexcept
      : key(other.key), table(std::exchange(other.table, nullptr)), sizes(other.sizes) {}
  Watching& operator=(Watching&&) = delete;
  ~Watching();

  U32 key;
  HashTable<WatchingTraits>* table;
  std::vector<size_t>* sizes;
};
struct WatchingTraits {
  using Slot = Watching;
  using Key = U32;
  static Key key(Slot const& slot) { return slot.key; }
  static U32 hash(U32 seed, Key const& key) { return hashSingleAttr(seed, key); }
};
Watching::~Watching() {
  if (table == nullptr) return;
  EXPECT_FALSE(table->contains(key));
  sizes->push_back(table->size());
}

TEST(HashTable, ADyingMemberSeesAWholeTableWithoutIt) {
  std::vector<size_t> sizes;
  HashTable<WatchingTraits> table(3);
  for (U32 key = 0; key < 3; ++key) table.insert(Watching(key, &table, &sizes));
  EXPECT_TRUE(table.erase(1));
  table.clear();
  EXPECT_THAT(sizes, ElementsAre(2, 0, 0));
}

TEST(HashTableCursor, AWalkThatRemovesEachMemberVisitsAllOnce) {
  Numbers table(1);
  for (U32 key = 0; key < 100; ++key) table.insert(key);
  std::vector<U32> const order = walk(table);
  std::vector<U32> visited;
  Numbers::Cursor cursor(table);
  while (U32 const* slot = cursor.next()) {
    visited.push_back(*slot);
    table.erase(*slot);
  }
  EXPECT_EQ(visited, order);
  EXPECT_TRUE(table.empty());
}

TEST(HashTableCursor, AMemberThatIsAddedAgainIsNotVisitedAgain) {
  for (U32 seed : {0u, 0xFFFF'FFFEu}) {
    AllEqual table(seed);
    for (U32 key = 0; key < 50; ++key) table.insert(key);
    size_t steps = 0;
    AllEqual::Cursor cursor(table);
    while (U32 const* slot = cursor.next()) {
      U32 const key = *slot;
      table.erase(key);
      table.insert(key);
      ASSERT_LE(++steps, 50u);
    }
    EXPECT_EQ(steps, 50u);
  }
}

TEST(HashTableCursor, GrowthNeitherRepeatsNorSkipsAMember) {
  Numbers table(9);
  for (U32 key = 0; key < 10; ++key) table.insert(key);
  std::vector<U32> visited;
  U32 fresh = 1000;
  Numbers::Cursor cursor(table);
  while (U32 const* slot = cursor.next()) {
    if (*slot < 10) visited.push_back(*slot);
    for (int i = 0; i < 20 && fresh < 3000; ++i) table.insert(fresh++);
  }
  Numbers expected(9);
  for (U32 key = 0; key < 10; ++key) expected.insert(key);
  EXPECT_EQ(visited, walk(expected));
}

TEST(HashTableCursor, StartsAtAKeyOrAtItsSuccessor) {
  PlainHash table(0);
  for (U32 key : {0x10'0000u, 0x20'0000u, 0x30'0000u}) table.insert(key);
  PlainHash::Cursor present(table, 0x20'0000);
  EXPECT_EQ(*present.next(), 0x20'0000u);
  EXPECT_EQ(*present.next(), 0x30'0000u);
  EXPECT_EQ(present.next(), nullptr);
  PlainHash::Cursor absent(table, 0x20'0001);
  table.erase(0x20'0000);
  EXPECT_EQ(*absent.next(), 0x30'0000u);
  PlainHash::Cursor last(table, 0x40'0000);
  EXPECT_EQ(last.next(), nullptr);
}

TEST(HashTableCursor, ClearingTheTableEndsTheWalk) {
  Numbers table(1);
  for (U32 key = 0; key < 10; ++key) table.insert(key);
  Numbers::Cursor cursor(table);
  ASSERT_NE(cursor.next(), nullptr);
  table.clear();
  EXPECT_EQ(cursor.next(), nullptr);
}

TEST(HashTableCursor, OverwritingInPlaceKeepsItsPlace) {
  OwnedTable table(1);
  for (U32 key = 0; key < 10; ++key) table.insert({key, std::make_unique<int>(1)});
  OwnedTable::Cursor cursor(table);
  size_t steps = 0;
  while (Owned const* slot = cursor.next()) {
    table.find(slot->key)->value = std::make_unique<int>(2);
    EXPECT_EQ(*slot->value, 2);
    ++steps;
  }
  EXPECT_EQ(steps, 10u);
}

TEST(HashTableDeathTest, TheMemberAtTheEndIsFatalInDebugBuilds) {
  if (!kDebugBuild) GTEST_SKIP() << "debug builds check it";
  Numbers table(1);
  EXPECT_DEATH((void)*table.end(), "The end of a hash table is no member");
  table.insert(7);
  EXPECT_DEATH((void)*table.lowerBound(7).operator++(), "The end of a hash table is no member");
}

TEST(HashTableDeathTest, AStaleIteratorIsFatal) {
  Numbers table(1);
  table.insert(1);
  auto const it = table.begin();
  table.insert(2);
  EXPECT_DEATH((void)*it, "Stale iterator of a hash table");
  auto other = table.begin();
  table.erase(2);
  EXPECT_DEATH(++other, "Stale iterator of a hash table");
}

}  // namespace
