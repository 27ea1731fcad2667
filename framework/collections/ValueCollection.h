// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <utility>

#include "framework/collections/CollectionAttribute.h"
#include "framework/collections/HashMap2018.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/Types.h"

namespace Kiv {

/// A collection attribute of values: a HashMap2018 whose owner's notifiees are notified, with the
/// member's key, of every insertion, real replacement and removal.
///
/// Each change is stored before it is notified. A handler may change the collection again, or
/// release its owner. A mutator that throws for lack of memory has changed nothing and notified
/// nothing.
template <Attr A, class ValueT, auto KeyOf, U32 kConstant>
class ValueCollection
    : public CollectionAttribute<A, HashMap2018<ValueT, KeyOf, kConstant>, PtrInterface const> {
  using Base = CollectionAttribute<A, HashMap2018<ValueT, KeyOf, kConstant>, PtrInterface const>;
  using Base::map_;

 public:
  using Value = ValueT;
  using Key = typename Base::Key;
  using Change = typename Base::Map::Change;

  template <class Owner>
  explicit ValueCollection(Owner const& owner) : Base(owner) {}

  bool has(Key const& key) const { return map_.has(key); }
  /// The stored value, or a default one.
  Value get(Key const& key) const { return map_.get(key); }

  /// Inserts or overwrites, then notifies; an equal value: nothing. True when it notified.
  bool set(Value value) {
    Key const key = Base::keyOf(value);
    if (map_.set(std::move(value)) == Change::None) return false;
    this->notify(key);
    return true;
  }
  /// set() for a caller that names the key itself; a value that carries another key is fatal.
  bool set(Key const& key, Value value) {
    Key const own = key;
    if (map_.set(own, std::move(value)) == Change::None) return false;
    this->notify(own);
    return true;
  }
  /// Removes, then notifies, and gives the value back; absent: nothing, and a default value.
  Value del(Key const& key) {
    // The key may be in the member that goes.
    Key const own = key;  // NOLINT(performance-unnecessary-copy-initialization)
    std::optional<Value> taken = map_.take(own);
    if (!taken) return Value();
    this->notify(own);
    return std::move(*taken);
  }
  /// Removes every member that is there now, one at a time in the collection's order, each with its
  /// notification. A member that a handler adds at a place already walked stays.
  void delAll() {
    this->delEach([this](Key const& key) { del(key); });
  }
};

/// A collection attribute of keys mapped to values that do not carry them.
template <Attr A, class K, class V, U32 kConstant>
using MapCollection = ValueCollection<A, KeyAndValue<K, V>, &KeyAndValue<K, V>::key, kConstant>;

}  // namespace Kiv
