#pragma once

#include "framework/collections/HashTable.h"
#include "framework/core/Hash.h"
#include "framework/core/Ptr.h"

namespace Kiv {

/// The place of one single-object reactor in a state machine: empty, or holding the reactor R that
/// watches a Notifier for an Owner. R may be incomplete where the slot is declared if it names
/// both.
template <class R, class Notifier = typename R::Notifier, class Owner = typename R::Owner>
class ReactorSlot {
 public:
  /// Creates the reactor on `notifier` and switches it on, or rebinds the existing one through its
  /// virtual notifierIs. A null notifier creates nothing.
  void is(Ptr<Notifier> const& notifier, Owner* owner) {
    if (reactor_) {
      Ptr<R> const reactor = reactor_;
      reactor->notifierIs(notifier);
    } else if (notifier) {
      reactor_ = make<R>(notifier, owner);
      Ptr<R> const reactor = reactor_;
      reactor->hasNotificationActiveIs(true);
    }
  }
  void del() { reactor_.reset(); }

  Ptr<R> const& reactor() const { return reactor_; }
  explicit operator bool() const { return static_cast<bool>(reactor_); }
  R* operator->() const { return reactor_.operator->(); }
  /// The watched object, or null.
  Ptr<Notifier> notifier() const { return reactor_ ? reactor_->notifier() : Ptr<Notifier>(); }
  Notifier* notifierRaw() const { return reactor_ ? reactor_->notifierRaw() : nullptr; }

  void hasNotificationActiveIs(bool active) {
    if (reactor_) reactor_->hasNotificationActiveIs(active);
  }
  void kivDoZombieReactors(bool zombie) {
    if (reactor_) reactor_->kivDoZombieReactors(zombie);
  }
  void ownerIs(Owner* owner) {
    if (reactor_) reactor_->ownerIs(owner);
  }

 private:
  Ptr<R> reactor_;
};

/// The reactors of a state machine on the members of one collection, keyed like the members.
/// Walks are in hash order and tolerate changes.
template <class KeyT, class R, class Notifier, class Owner, U32 kConstant>
class ReactorCollection {
 public:
  using Key = KeyT;

  ReactorCollection() : table_(HashHelper::hashSeed32() ^ kConstant) {}

  /// No reactor under `key`: creates one on `member` and switches it on; it is stored only when its
  /// constructor has finished. The member it watches already: nothing. Another member under the
  /// key: rebinds through the reactor's virtual notifierIs.
  ///
  /// A reactor's constructor may run handlers, down to one that lets go of the owner, which does
  /// not know of the reactor yet: so the owner is held until the reactor is in place.
  void is(Key const& key, Ptr<Notifier> const& member, Owner* owner) {
    if (Slot const* slot = table_.find(key)) {
      Ptr<R> const reactor = slot->reactor;
      reactor->notifierIs(member);
      return;
    }
    Ptr<Owner> const keep(owner);
    Ptr<R> const reactor = make<R>(member, owner);
    table_.insert(Slot{key, reactor});
    reactor->hasNotificationActiveIs(true);
  }
  /// Destroys the reactor only; absent: nothing.
  void del(Key const& key) { table_.take(key); }
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
