// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>

#include "framework/collections/HashProbe.h"
#include "framework/collections/HashStorage.h"
#include "framework/core/Fatal.h"
#include "framework/core/Prefetch.h"
#include "framework/core/Types.h"

namespace Kiv {

/// The flat table under every hash collection: members in one order, by (seeded hash, key), which
/// depends neither on the capacity nor on what was inserted and removed before.
///
/// Traits gives `Slot`, what is stored (it may be move-only; its move must not throw); `Key`,
/// copied by cursors, with `==` and `<`; `static Key key(Slot const&)` or one that returns a
/// reference; and `static U32 hash(U32 seed, Key const&)`. A slot's key must not change while it is
/// in the table.
///
/// A member's home is the top bits of its hash. Members are kept sorted from their homes on, so
/// that a walk is a scan. Growth goes by the number of members only, never by how long a run of
/// equal or near hashes is. An empty table that never held anything owns no memory; erasing gives
/// none back, clear() gives back all.
///
/// Insertion and removal invalidate iterators and pointers to slots; the use of such an iterator is
/// fatal, in every build, and in debug builds so is `*end()`. A Cursor survives every change.
/// Throws std::bad_alloc; the table is then as before the call. Slots are destroyed only when the
/// table is consistent again, so their destructors may use it. At most 2^31 members.
///
///   HashTable<NameTraits> table(HashHelper::hashSeed32() ^ 0x1F4E6C39);
///   auto const [slot, isNew] = table.insert(Named{key, "r1"});
///   if (Named const* found = table.find(key)) out << found->name;
///
/// Which collection when:
///
///   | members                         | order    | notifies | collection       |
///   |---------------------------------|----------|----------|------------------|
///   | values by a key within them     | hash     | yes      | ValueCollection  |
///   | values by a key beside them     | hash     | yes      | MapCollection    |
///   | objects, which carry their key  | hash     | yes      | MemberCollection |
///   | values by a key within them     | hash     | no       | HashMap2018      |
///   | values by a key beside them     | hash     | no       | HashMap2018Of    |
///   | objects, which carry their key  | hash     | no       | HashMap          |
///   | anything by a key beside it     | by `<`   | no       | RbTreeMap        |
template <class Traits>
class HashTable {
 public:
  using Slot = typename Traits::Slot;
  using Key = typename Traits::Key;
  class Iterator;
  class Cursor;
  // The names that the standard's algorithms and test matchers ask for.
  using value_type = Slot;
  using iterator = Iterator;
  using const_iterator = Iterator;

  static constexpr size_t kMaxSize = size_t{1} << 31;

  explicit HashTable(U32 seed) : seed_(seed) {}
  HashTable(HashTable const&) = delete;
  HashTable& operator=(HashTable const&) = delete;
  /// The source is left empty, with the same seed.
  HashTable(HashTable&& other) noexcept : seed_(other.seed_) { swap(other); }
  HashTable& operator=(HashTable&& other) noexcept {
    HashTable taken(std::move(other));
    swap(taken);
    return *this;
  }
  ~HashTable() { clear(); }
  /// Swaps the seeds too. A cursor stays with its table object.
  void swap(HashTable& other) noexcept {
    storage_.swap(other.storage_);
    std::swap(size_, other.size_);
    std::swap(limit_, other.limit_);
    std::swap(seed_, other.seed_);
    epoch_ = other.epoch_ = std::max(epoch_, other.epoch_) + 1;
  }
  friend void swap(HashTable& a, HashTable& b) noexcept { a.swap(b); }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  /// Bytes allocated by the table itself.
  size_t heapBytes() const { return storage_.bytes(); }
  U32 seed() const { return seed_; }

  /// Null when absent. What is written through it must keep the key.
  Slot* find(Key const& key) { return locate(key); }
  Slot const* find(Key const& key) const { return locate(key); }
  bool contains(Key const& key) const { return locate(key) != nullptr; }
  /// Prefetches the memory where `key` belongs, for a look-up soon after.
  void prefetch(Key const& key) const {
    size_t const at = storage_.home(hashOf(key));
    Kiv::prefetch(storage_.hashes(at));
    storage_.prefetchSlot(at);
  }

  /// Stores `slot` unless its key is present. The slot now under the key, and whether it is new.
  std::pair<Slot*, bool> insert(Slot slot) {
    Key const& key = Traits::key(slot);
    U32 const hash = hashOf(key);
    size_t at = lowerIndex(hash, key);
    if (isAt(at, hash, key)) return {storage_.slot(at), false};
    if (size_ >= limit_) {
      grow(size_ + 1);
      at = lowerIndex(hash, key);
    }
    makeRoom(at);
    storage_.put(at, hash, std::move(slot));
    ++size_;
    ++epoch_;
    return {storage_.slot(at), true};
  }
  /// Removes a member and gives it back. `key` may be a part of the member.
  std::optional<Slot> take(Key const& key) {
    Slot* const slot = locate(key);
    if (slot == nullptr) return std::nullopt;
    std::optional<Slot> taken(std::move(*slot));
    remove(storage_.index(slot));
    return taken;
  }
  /// True when there was one to remove.
  bool erase(Key const& key) { return take(key).has_value(); }
  void clear() {
    Storage removed;
    storage_.swap(removed);
    size_ = limit_ = 0;
    ++epoch_;
  }
  /// Makes room for `count` members in all.
  void reserve(size_t count) {
    if (count > limit_) grow(count);
  }

  Iterator begin() const { return Iterator(*this, 0); }
  Iterator end() const { return Iterator(*this, storage_.end()); }
  /// The first member that does not come before `key`, present or not.
  Iterator lowerBound(Key const& key) const {
    return Iterator(*this, lowerIndex(hashOf(key), key));
  }
  /// The first member that comes after `key`, present or not.
  Iterator upperBound(Key const& key) const {
    return Iterator(*this, upperIndex(hashOf(key), key));
  }

 private:
  using Storage = HashStorage<Slot>;
  // Groups from its home on in which nearly every member is.
  static constexpr size_t kNearGroups = 4;

  U32 hashOf(Key const& key) const {
    return std::min(static_cast<U32>(Traits::hash(seed_, key)), HashProbe::kUnused - 1);
  }
  bool isAt(size_t at, U32 hash, Key const& key) const {
    return storage_.hash(at) == hash && Traits::key(*storage_.slot(at)) == key;
  }
  Slot* locate(Key const& key) const {
    U32 const hash = hashOf(key);
    size_t at = storage_.home(hash);
    // The slot comes from memory while the hashes do.
    storage_.prefetchSlot(at);
    for (size_t const far = at + kNearGroups * HashProbe::kLanes; at != far;
         at += HashProbe::kLanes) {
      unsigned lanes = HashProbe::equal(storage_.hashes(at), hash);
      for (; lanes != 0; lanes &= lanes - 1) {
        Slot* const candidate = storage_.slot(at + HashProbe::first(lanes));
        if (Traits::key(*candidate) == key) return candidate;
      }
      // After an unused slot, too, there are only greater hashes.
      if (storage_.hash(at + HashProbe::kLanes - 1) > hash) return nullptr;
    }
    return locateFar(hash, key);
  }
  // A call of its own, so that locate() stays small enough to be inlined.
  [[gnu::noinline]] Slot* locateFar(U32 hash, Key const& key) const {
    size_t const at = lowerIndex(hash, key);
    return isAt(at, hash, key) ? storage_.slot(at) : nullptr;
  }
  // The last group, counted from `at`, whose first hash is less, or `at` itself. From a hash's home
  // on, lesser hashes come first and all others after them. Members that are inserted in the
  // table's own order, from another table's walk, make long runs until the table has its full size.
  [[gnu::noinline]] size_t skipBelow(size_t at, U32 hash) const {
    size_t const end = storage_.end();
    size_t step = HashProbe::kLanes;
    while (at + step < end && storage_.hash(at + step) < hash) {
      at += step;
      step *= 2;
    }
    for (; step >= HashProbe::kLanes; step /= 2) {
      if (at + step < end && storage_.hash(at + step) < hash) at += step;
    }
    return at;
  }
  // Where (hash, key) is, or would be inserted.
  size_t lowerIndex(U32 hash, Key const& key) const {
    size_t at = storage_.home(hash);
    unsigned below = HashProbe::below(storage_.hashes(at), hash);
    for (unsigned groups = 1; below == HashProbe::kAllLanes; ++groups) {
      at = groups == kNearGroups ? skipBelow(at, hash) : at + HashProbe::kLanes;
      below = HashProbe::below(storage_.hashes(at), hash);
    }
    at += HashProbe::first(~below);
    while (storage_.hash(at) == hash && Traits::key(*storage_.slot(at)) < key) ++at;
    return at;
  }
  size_t upperIndex(U32 hash, Key const& key) const {
    size_t const at = lowerIndex(hash, key);
    return isAt(at, hash, key) ? at + 1 : at;
  }

  // Makes slot `at`, which may be one past the last, unused by moving its run up.
  void makeRoom(size_t at) {
    size_t const unused = storage_.firstUnused(at);
    if (unused == storage_.end()) extend();
    if (unused != at) storage_.shiftUp(at, unused);
  }
  void remove(size_t at) {
    storage_.remove(at);
    --size_;
    ++epoch_;
  }
  // More home slots, for `count` members at least.
  void grow(size_t count) {
    if (count > kMaxSize) throw std::length_error("HashTable: more than 2^31 members");
    unsigned bits = storage_.end() == 0 ? 1 : storage_.homeBits() + 1;
    while (limitOf(bits) < count) ++bits;
    // With more homes, no member reaches farther beyond the last one than it did before.
    size_t const overflow = std::max(overflowOf(bits), storage_.overflow());
    Storage grown(bits, overflow);
    size_t next = 0;
    for (size_t i = 0; i < storage_.end(); ++i) {
      if (!storage_.used(i)) continue;
      next = std::max(next, grown.home(storage_.hash(i)));
      grown.adopt(next++, storage_, i);
    }
    storage_.swap(grown);
    limit_ = static_cast<U32>(limitOf(bits));
    ++epoch_;
  }
  // A longer overflow area; every member stays at its index.
  void extend() {
    Storage extended(storage_.homeBits(), 2 * storage_.overflow());
    for (size_t i = 0; i < storage_.end(); ++i) {
      if (storage_.used(i)) extended.adopt(i, storage_, i);
    }
    storage_.swap(extended);
  }

  static size_t limitOf(unsigned bits) { return std::min((size_t{4} << bits) / 5, kMaxSize); }
  // Few tables need more than this at full load; extend() serves those.
  static size_t overflowOf(unsigned bits) { return bits > 6 ? 32 : (size_t{1} << bits) / 2; }

  Storage storage_;
  U32 size_ = 0;
  U32 limit_ = 0;
  U32 seed_;
  // Counts the changes that may move a member to another index.
  U64 epoch_ = 0;
};

/// Reads the members in order. Any insertion or removal makes it stale.
template <class Traits>
class HashTable<Traits>::Iterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = Slot;
  using difference_type = std::ptrdiff_t;
  using pointer = Slot const*;
  using reference = Slot const&;

  Iterator() = default;

  Slot const& operator*() const {
    check();
    if constexpr (kDebugBuild) {
      KIV_CHECK(at_ != table_->storage_.end(), "The end of a hash table is no member");
    }
    return *table_->storage_.slot(at_);
  }
  Slot const* operator->() const { return &**this; }
  Iterator& operator++() {
    check();
    lanes_ &= lanes_ - 1;
    settle();
    return *this;
  }
  Iterator operator++(int) {
    Iterator const before = *this;
    ++*this;
    return before;
  }
  friend bool operator==(Iterator const& a, Iterator const& b) { return a.at_ == b.at_; }

 private:
  friend HashTable;
  static constexpr unsigned kBlock = 4 * HashProbe::kLanes;

  // The first member at or after index `at`.
  Iterator(HashTable const& table, size_t at)
      : table_(&table), epoch_(table.epoch_), block_(at), lanes_(read()) {
    settle();
  }
  // The used slots of the block.
  unsigned read() const {
    Storage const& storage = table_->storage_;
    unsigned lanes = 0;
    for (unsigned i = 0; i < kBlock && block_ + i < storage.end(); i += HashProbe::kLanes)
      lanes |= HashProbe::used(storage.hashes(block_ + i)) << i;
    return lanes;
  }
  void settle() {
    while (lanes_ == 0) {
      block_ += kBlock;
      if (block_ >= table_->storage_.end()) {
        at_ = table_->storage_.end();
        return;
      }
      lanes_ = read();
    }
    at_ = block_ + HashProbe::first(lanes_);
  }
  void check() const {
    KIV_CHECK(table_ != nullptr && epoch_ == table_->epoch_, "Stale iterator of a hash table");
  }

  HashTable const* table_ = nullptr;
  U64 epoch_ = 0;
  // The slots [block_, block_ + kBlock) that are still to be read, one bit each, at_ the first.
  size_t block_ = 0;
  unsigned lanes_ = 0;
  size_t at_ = 0;
};

/// A walk that stays valid across any change between its steps: growth, insertion, removal of the
/// current member or of others. It remembers the key of the member that it returned last and
/// continues with the first one after it, so that a member that stays throughout is visited exactly
/// once, and one that is removed and added again is not visited again. The table must outlive it.
///
///   Cursor cursor(table);
///   while (Slot const* slot = cursor.next()) table.erase(keyOf(*slot));
///
/// Cost: a step is a scan to the next slot, or a look-up when the table has changed.
template <class Traits>
class HashTable<Traits>::Cursor {
 public:
  explicit Cursor(HashTable const& table) : table_(&table), epoch_(table.epoch_) {}
  /// Starts at `from`, or at its successor when it is absent.
  Cursor(HashTable const& table, Key const& from)
      : table_(&table), epoch_(table.epoch_ - 1), key_(from) {}

  /// The next member, or null at the end; members added after the last one may follow later. The
  /// pointer is valid until the table changes.
  Slot const* next() {
    Storage const& storage = table_->storage_;
    if (epoch_ != table_->epoch_) resume();
    at_ = storage.firstUsed(at_);
    if (at_ >= storage.end()) return nullptr;
    Slot const* const slot = storage.slot(at_);
    key_.emplace(Traits::key(*slot));
    visited_ = true;
    ++at_;
    return slot;
  }

 private:
  // Out of line: next() is a few instructions as long as nothing changes.
  [[gnu::noinline]] void resume() {
    epoch_ = table_->epoch_;
    if (!key_) {
      at_ = 0;
    } else if (visited_) {
      at_ = table_->upperIndex(table_->hashOf(*key_), *key_);
    } else {
      at_ = table_->lowerIndex(table_->hashOf(*key_), *key_);
    }
  }

  HashTable const* table_;
  U64 epoch_;
  size_t at_ = 0;
  // The last member's key, or where to start while there is none.
  std::optional<Key> key_;
  bool visited_ = false;
};

}  // namespace Kiv
