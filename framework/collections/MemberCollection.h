// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstddef>
#include <iterator>
#include <utility>

#include "framework/collections/CollectionAttribute.h"
#include "framework/collections/HashMap.h"
#include "framework/core/Entity.h"
#include "framework/core/Exceptions.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/Types.h"

namespace Kiv {

/// A collection attribute of objects: a HashMap whose owner's notifiees are notified, with the
/// member's key, of every insertion, replacement and removal. A member that is an entity gets the
/// owner as its parent while it is in.
///
/// Each change is stored before it is notified; what is removed lives until its notification is
/// over. An entity whose parent changes by it notifies of that afterwards. A handler may change the
/// collection again, or release its owner. A mutator that throws for lack of memory has changed
/// nothing and notified nothing.
///
/// A const collection gives const members, and iterators give no others.
template <Attr A, class MemberT, auto KeyOf, U32 kConstant>
class MemberCollection
    : public CollectionAttribute<A, HashMap<MemberT, KeyOf, kConstant>, PtrInterface> {
  using Base = CollectionAttribute<A, HashMap<MemberT, KeyOf, kConstant>, PtrInterface>;
  using Base::map_;
  using Base::owner_;
  static constexpr bool kEntities = std::derived_from<MemberT, Entity>;

 public:
  using Member = MemberT;
  using Key = typename Base::Key;
  using Cursor = typename Base::Cursor;

  /// Reads the members in order. Any insertion or removal makes it stale.
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Member const*;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = value_type;

    Member const* operator*() const { return at_->get(); }
    Iterator& operator++() {
      ++at_;
      return *this;
    }
    Iterator operator++(int) { return Iterator(at_++); }
    friend bool operator==(Iterator const&, Iterator const&) = default;

   private:
    friend MemberCollection;
    using At = decltype(std::declval<typename Base::Map const&>().begin());
    explicit Iterator(At const& at) : at_(at) {}

    At at_;
  };

  /// A Cursor that gives const members.
  class ConstCursor {
   public:
    explicit ConstCursor(Cursor const& cursor) : cursor_(cursor) {}
    Member const* next() { return cursor_.next(); }

   private:
    Cursor cursor_;
  };

  template <class Owner>
  explicit MemberCollection(Owner& owner) : Base(owner) {
    static_assert(!kEntities || std::derived_from<Owner, Entity>, "entities live in entities");
  }
  ~MemberCollection() {
    if constexpr (kEntities) ownerEntity().kivLeaveChildren();
  }

  Iterator begin() const { return Iterator(map_.begin()); }
  Iterator end() const { return Iterator(map_.end()); }
  /// The member of `key`, or the one after where it would be.
  Iterator lowerBound(Key const& key) const { return Iterator(map_.lowerBound(key)); }
  /// Null when absent. Valid while the member is in.
  Member* find(Key const& key) { return map_.find(key); }
  Member const* find(Key const& key) const { return map_.find(key); }
  /// Null when absent.
  Ptr<Member> get(Key const& key) { return Ptr<Member>(map_.find(key)); }
  Ptr<Member const> get(Key const& key) const { return Ptr<Member const>(map_.find(key)); }

  Cursor cursor() { return Base::cursor(); }
  Cursor cursor(Key const& from) { return Base::cursor(from); }
  ConstCursor cursor() const { return ConstCursor(Base::cursor()); }
  ConstCursor cursor(Key const& from) const { return ConstCursor(Base::cursor(from)); }

  /// The member under `key`. When there is none: makes one from the key, switches its notification
  /// on, inserts it, sets its parent and notifies.
  Ptr<Member> is(Key const& key) {
    if (Member* const member = map_.find(key)) return Ptr<Member>(member);
    Ptr<Member> member = makeActive<Member>(key);
    memberIs(member);
    return member;
  }
  /// Stores a member made elsewhere, replacing another one under its key; the very same object:
  /// nothing. A null member throws NullPointerException.
  void memberIs(Ptr<Member> const& member) {
    Ptr<Member> const keep = member;
    Changed const changed = put(keep);
    if (!changed.stored) return;
    this->notify(Base::keyOf(*keep));
    if (changed.left) changed.replaced->notify(Entity::kParent.id);
    if (changed.moved) keep->notify(Entity::kParent.id);
  }

  // For an owner that acts between a change and its notification. The parents change without one.

  /// memberIs() without the notification, which announce() makes up for. Whether anything changed.
  bool store(Ptr<Member> const& member) { return put(member).stored; }
  void announce(Key const& key) const { this->notify(key); }
  /// del() without the notification: takes back what store() stored. Allocates nothing.
  void withdraw(Key const& key) {
    if (Ptr<Member> const removed = map_.take(key)) unparent(*removed);
  }

  /// Removes, then notifies, and gives the member back; absent: nothing, and null.
  Ptr<Member> del(Key const& key) {
    // The key may be the member's own, and a handler may release the member.
    Key const own = key;  // NOLINT(performance-unnecessary-copy-initialization)
    Ptr<Member> removed = map_.take(own);
    if (!removed) return nullptr;
    bool const left = unparent(*removed);
    this->notify(own);
    if (left) removed->notify(Entity::kParent.id);
    return removed;
  }
  /// Removes every member that is there now, one at a time in the collection's order, each with its
  /// notification. A member that a handler adds at a place already walked stays.
  void delAll() {
    this->delEach([this](Key const& key) { del(key); });
  }

 private:
  Entity& ownerEntity() { return static_cast<Entity&>(owner_); }
  struct Changed {
    bool stored = false;
    Ptr<Member> replaced;
    bool left = false;   // the replaced member its parent
    bool moved = false;  // the stored one to its parent
  };
  Changed put(Ptr<Member> const& member) {
    if (!member) throwMutatorArgNullPointerException(owner_, A.id);
    if constexpr (kEntities) ownerEntity().kivNeedPlace();
    Changed changed;
    changed.replaced = map_.set(member);
    changed.stored = changed.replaced != member;
    if (!changed.stored) return changed;
    if (changed.replaced) changed.left = unparent(*changed.replaced);
    if constexpr (kEntities) changed.moved = member->kivParentStore(ownerEntity(), A.id);
    return changed;
  }
  // True when the owner was the member's parent by this attribute.
  bool unparent(Member& member) {
    if constexpr (kEntities) return member.kivParentDrop(ownerEntity(), A.id);
    return false;
  }
};

}  // namespace Kiv
