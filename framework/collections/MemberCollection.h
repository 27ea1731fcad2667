#pragma once

#include <concepts>

#include "framework/collections/CollectionAttribute.h"
#include "framework/collections/HashMap.h"
#include "framework/core/Entity.h"
#include "framework/core/Exceptions.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/Types.h"

namespace Kiv {

/// A collection attribute of objects: a HashMap whose owner's notifiees are told, with the member's
/// key, of every insertion, replacement and removal. A member that is an entity gets the owner as
/// its parent while it is in.
///
/// Each change is stored before anybody is told; what is removed lives until its notification is
/// over. A handler may change the collection again, or drop its owner.
template <Attr A, class MemberT, auto KeyOf, U32 kConstant>
class MemberCollection
    : public CollectionAttribute<A, HashMap<MemberT, KeyOf, kConstant>, PtrInterface> {
  using Base = CollectionAttribute<A, HashMap<MemberT, KeyOf, kConstant>, PtrInterface>;
  using Base::map_;
  using Base::owner_;

 public:
  using Member = MemberT;
  using Key = typename Base::Key;
  static constexpr bool kEntities = std::derived_from<Member, Entity>;

  template <class Owner>
  explicit MemberCollection(Owner& owner) : Base(owner) {
    static_assert(!kEntities || std::derived_from<Owner, Entity>, "entities live in entities");
  }
  ~MemberCollection() {
    for (Ptr<Member> const& member : map_) unparent(*member);
  }

  /// The member of `key`, or the one behind where it would be.
  auto lowerBound(Key const& key) const { return map_.lowerBound(key); }
  /// Null when absent.
  Ptr<Member> get(Key const& key) const { return Ptr<Member>(map_.find(key)); }

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
    if (store(keep)) this->notify(Base::keyOf(*keep));
  }

  // For an owner that has something to do between a change and its notification.

  /// memberIs() without the notification, which announce() makes up for. Whether anything changed.
  bool store(Ptr<Member> const& member) {
    if (!member) throwMutatorArgNullPointerException(owner_, A.id);
    Ptr<Member> const replaced = map_.set(member);
    if (replaced == member) return false;
    if (replaced) unparent(*replaced);
    if constexpr (kEntities) member->parentIs(Ptr<Entity>(&ownerEntity()), A.id);
    return true;
  }
  void announce(Key const& key) const { this->notify(key); }
  /// del() without the notification: takes back what store() stored. Allocates nothing.
  void withdraw(Key const& key) {
    if (Ptr<Member> const removed = map_.take(key)) unparent(*removed);
  }

  /// Removes, then notifies, and gives the member back; absent: nothing, and null.
  Ptr<Member> del(Key const& key) {
    Ptr<Member> removed = map_.take(key);
    if (!removed) return nullptr;
    unparent(*removed);
    this->notify(Base::keyOf(*removed));
    return removed;
  }
  /// Removes every member that is there now, one at a time in the collection's order, each with its
  /// notification. A member that a handler adds behind the walk stays.
  void delAll() {
    this->delEach([this](Key const& key) { del(key); });
  }

 private:
  Entity& ownerEntity() { return static_cast<Entity&>(owner_); }
  static void unparent(Member& member) {
    if constexpr (kEntities) member.parentIs(nullptr);
  }
};

}  // namespace Kiv
