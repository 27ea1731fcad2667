// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <type_traits>
#include <utility>

#include "framework/collections/HashTable.h"
#include "framework/core/Fatal.h"
#include "framework/core/Hash.h"

namespace Kiv {

/// A key with a value that does not carry it.
template <class K, class V>
struct KeyAndValue {
  K key;
  V value;

  friend bool operator==(KeyAndValue const&, KeyAndValue const&) = default;
};

/// Values by a key that each value carries, in one order for the life of the process: by (seeded
/// hash, key), whatever was inserted and removed before. KeyOf is a member of Value, or anything
/// else that std::invoke takes; kConstant sets the collection's seed apart from the others'.
///
/// Does not notify; see ValueCollection. Cost: one flat table, nothing while empty. Every insertion
/// and removal invalidates iterators and pointers to values (a stale iterator is fatal, in every
/// build); a Cursor survives both.
template <class ValueT, auto KeyOf, U32 kConstant>
class HashMap2018 {
 public:
  using Value = ValueT;
  using Key = std::remove_cvref_t<std::invoke_result_t<decltype(KeyOf), Value const&>>;

 private:
  struct Traits {
    using Slot = ValueT;
    using Key = HashMap2018::Key;
    static Key key(Slot const& slot) { return std::invoke(KeyOf, slot); }
    static U32 hash(U32 seed, Key const& key) { return hashSingleAttr(seed, key); }
  };
  using Table = HashTable<Traits>;

 public:
  enum class Change { None, Inserted, Replaced };

  HashMap2018() : table_(HashHelper::hashSeed32() ^ kConstant) {}

  static Key keyOf(Value const& member) { return std::invoke(KeyOf, member); }
  size_t size() const { return table_.size(); }
  bool empty() const { return table_.empty(); }
  size_t heapBytes() const { return table_.heapBytes(); }
  auto begin() const { return table_.begin(); }
  auto end() const { return table_.end(); }

  /// Null when absent. Valid until the next insertion or removal.
  Value const* find(Key const& key) const { return table_.find(key); }
  bool has(Key const& key) const { return table_.find(key) != nullptr; }
  /// See HashTable::prefetch.
  void prefetch(Key const& key) const { table_.prefetch(key); }
  /// The stored value, or a default one.
  Value get(Key const& key) const {
    Value const* const value = table_.find(key);
    return value == nullptr ? Value() : *value;
  }

  /// Inserts, or overwrites a stored value that differs.
  Change set(Value value) {
    auto const [stored, inserted] = table_.insert(value);
    if (inserted) return Change::Inserted;
    if (*stored == value) return Change::None;
    // The old value is released after the new one is in place.
    std::swap(*stored, value);
    return Change::Replaced;
  }
  /// set() for a caller that names the key itself; a value that carries another key is fatal.
  Change set(Key const& key, Value value) {
    if (!(key == std::invoke(KeyOf, value))) [[unlikely]] {
      assertFail("fwkKey() == KeyFunktor()( _value )", __FILE__, __LINE__, __PRETTY_FUNCTION__);
    }
    return set(std::move(value));
  }
  std::optional<Value> take(Key const& key) { return table_.take(key); }
  void clear() { table_.clear(); }

  /// A walk that stays valid across any change between its steps: it continues with the first
  /// member after the last one returned. The collection must outlive it.
  class Cursor {
   public:
    explicit Cursor(HashMap2018 const& map) : cursor_(map.table_) {}
    /// Starts at `from`, or at its successor when it is absent.
    Cursor(HashMap2018 const& map, Key const& from) : cursor_(map.table_, from) {}
    /// The next member, or null at the end. Valid until the next insertion or removal.
    Value const* next() { return cursor_.next(); }

   private:
    typename Table::Cursor cursor_;
  };

  Cursor cursor() const { return Cursor(*this); }

 private:
  Table table_;
};

/// Keys mapped to values that do not carry them.
template <class K, class V, U32 kConstant>
using HashMap2018Of = HashMap2018<KeyAndValue<K, V>, &KeyAndValue<K, V>::key, kConstant>;

}  // namespace Kiv
