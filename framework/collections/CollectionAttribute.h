// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/Types.h"

namespace Kiv {

/// Base of the collection attributes: read access to the map of members, and the object that they
/// belong to, whose notifiees are notified of changes under the attribute's id.
template <Attr A, class MapT, class OwnerT>
class CollectionAttribute {
 public:
  using Map = MapT;
  using Key = typename Map::Key;
  using Cursor = typename Map::Cursor;

  CollectionAttribute(CollectionAttribute const&) = delete;
  CollectionAttribute& operator=(CollectionAttribute const&) = delete;

  template <class Item>
  static Key keyOf(Item const& item) {
    return Map::keyOf(item);
  }
  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }
  /// Null when absent. Valid until the next insertion or removal; an object for as long as it is
  /// in.
  auto* find(Key const& key) const { return map_.find(key); }
  /// See HashTable::prefetch.
  void prefetch(Key const& key) const { map_.prefetch(key); }
  Cursor cursor() const { return Cursor(map_); }
  /// Starts at `from`, or at its successor when it is absent.
  Cursor cursor(Key const& from) const { return Cursor(map_, from); }

 protected:
  template <class Owner>
  explicit CollectionAttribute(Owner& owner) : owner_(owner) {
    static_assert(detail::isAttributeOf<A, Owner>(), "an attribute of another type");
  }
  ~CollectionAttribute() = default;

  // The key is the mutator's own copy, made before the change: the caller's may be part of a member
  // that is destroyed, and a copy made afterwards could fail.
  void notify(Key const& key) const { owner_.notify(A.id, &key); }

  /// Calls `del(key)` for every member that is there now, in the collection's order.
  template <class Del>
  void delEach(Del const& del) {
    Ptr<PtrInterface const> const keep(&owner_);
    Cursor walk(map_);
    while (auto* const item = walk.next()) del(keyOf(*item));
  }

  OwnerT& owner_;
  Map map_;
};

}  // namespace Kiv
