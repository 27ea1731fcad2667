// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "framework/collections/HashTable.h"
#include "framework/collections/ReactorSlot.h"
#include "framework/core/Hash.h"
#include "framework/core/Ptr.h"

namespace Kiv {

/// The reactors of a state machine on the members of one collection, keyed like the members. The
/// contract of ReactorSlot holds for each of them. Walks are in hash order and tolerate changes.
template <class KeyT, class R, U32 kConstant, class Notifier = typename R::Notifier,
          class Owner = typename R::Owner>
class ReactorCollection {
 public:
  using Key = KeyT;

  ReactorCollection() : table_(HashHelper::hashSeed32() ^ kConstant) {}
  ReactorCollection(ReactorCollection const&) = delete;
  ReactorCollection& operator=(ReactorCollection const&) = delete;
  ~ReactorCollection() {
    for (Slot const& slot : table_) detail::endReactor(*slot.reactor);
  }

  /// No reactor under `key`: creates one on `member`, switches it on and then stores it. The member
  /// it watches already: nothing. Another member under the key: rebinds through the reactor's
  /// virtual notifierIs. Throws std::bad_alloc; nothing has changed then.
  void is(Key const& key, Ptr<Notifier> const& member, Owner* owner) {
    if (Slot const* slot = table_.find(key)) {
      Ptr<R> const reactor = slot->reactor;
      reactor->notifierIs(member);
      return;
    }
    Ptr<Owner> const keep(owner);
    table_.reserve(table_.size() + 1);  // nothing may fail after the reactor's handlers have run
    table_.insert(Slot{key, detail::makeReactor<R>(member, owner)});
  }
  /// Destroys the reactor only; absent: nothing.
  void del(Key const& key) {
    if (std::optional<Slot> const taken = table_.take(key)) {
      taken->reactor->kivDoZombieReactors(true);
    }
  }
  void delAll() {
    typename Table::Cursor cursor(table_);
    while (Slot const* slot = cursor.next()) {
      Key const key = slot->key;
      del(key);
    }
  }

  R* find(Key const& key) const {
    Slot const* slot = table_.find(key);
    return slot == nullptr ? nullptr : slot->reactor.get();
  }
  size_t size() const { return table_.size(); }

  void hasNotificationActiveIs(bool active) {
    each([active](R& reactor) { reactor.hasNotificationActiveIs(active); });
  }
  void kivDoZombieReactors(bool zombie) {
    each([zombie](R& reactor) { reactor.kivDoZombieReactors(zombie); });
  }
  void ownerIs(Owner* owner) {
    each([owner](R& reactor) { reactor.ownerIs(owner); });
  }

 private:
  struct Slot {
    Key key;
    Ptr<R> reactor;
  };
  struct Traits {
    using Slot = ReactorCollection::Slot;
    using Key = KeyT;
    static Key const& key(Slot const& slot) { return slot.key; }
    static U32 hash(U32 seed, Key const& key) { return hashSingleAttr(seed, key); }
  };
  using Table = HashTable<Traits>;

  template <class F>
  void each(F const& f) {
    typename Table::Cursor cursor(table_);
    while (Slot const* slot = cursor.next()) {
      Ptr<R> const reactor = slot->reactor;
      f(*reactor);
    }
  }

  Table table_;
};

}  // namespace Kiv
