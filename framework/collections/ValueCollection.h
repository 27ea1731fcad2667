#pragma once

#include <optional>
#include <utility>

#include "framework/collections/HashMap2018.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/Types.h"

namespace Kiv {

/// A collection attribute of values: a HashMap2018 whose owner's notifiees are told, with the
/// member's key, of every insertion, real replacement and removal.
///
/// Each change is stored before anybody is told. A handler may change the collection again, or drop
/// its owner.
template <Attr A, class ValueT, auto KeyOf, U32 kConstant>
class ValueCollection {
 public:
  using Map = HashMap2018<ValueT, KeyOf, kConstant>;
  using Value = ValueT;
  using Key = typename Map::Key;
  using Change = typename Map::Change;
  using Cursor = typename Map::Cursor;

  explicit ValueCollection(PtrInterface const& owner) : owner_(owner) {}
  ValueCollection(ValueCollection const&) = delete;
  ValueCollection& operator=(ValueCollection const&) = delete;

  static Key keyOf(Value const& member) { return Map::keyOf(member); }
  Map const& map() const { return map_; }
  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }
  Value const* find(Key const& key) const { return map_.find(key); }
  bool has(Key const& key) const { return map_.has(key); }
  Value get(Key const& key) const { return map_.get(key); }
  Cursor cursor() const { return Cursor(map_); }

  /// Inserts or overwrites, then notifies; an equal value: nothing. True when it notified.
  bool set(Value value) {
    Key const key = std::invoke(KeyOf, value);
    if (map_.set(std::move(value)) == Change::None) return false;
    owner_.notify(A.id, &key);
    return true;
  }
  /// set() for a caller that names the key itself; a value that carries another key is fatal.
  bool set(Key const& key, Value value) {
    if (map_.set(key, std::move(value)) == Change::None) return false;
    Key const changed = key;
    owner_.notify(A.id, &changed);
    return true;
  }
  /// Removes, then notifies, and gives the value back; absent: nothing, and a default value.
  Value del(Key const& key) {
    std::optional<Value> taken = map_.take(key);
    if (!taken) return Value();
    Key const removed = std::invoke(KeyOf, *taken);
    owner_.notify(A.id, &removed);
    return std::move(*taken);
  }
  /// Removes every member that is there now, one at a time in the collection's order, each with its
  /// notification. A member that a handler adds behind the walk stays.
  void delAll() {
    Ptr<PtrInterface const> const keep(&owner_);
    Cursor walk(map_);
    while (Value const* value = walk.next()) {
      Key const key = std::invoke(KeyOf, *value);
      del(key);
    }
  }

 private:
  PtrInterface const& owner_;
  Map map_;
};

/// A collection attribute of keys mapped to values that do not carry them.
template <Attr A, class K, class V, U32 kConstant>
using MapCollection = ValueCollection<A, KeyAndValue<K, V>, &KeyAndValue<K, V>::key, kConstant>;

}  // namespace Kiv
