#pragma once

#include <concepts>
#include <utility>

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
class MemberCollection {
 public:
  using Map = HashMap<MemberT, KeyOf, kConstant>;
  using Member = MemberT;
  using Key = typename Map::Key;
  using Cursor = typename Map::Cursor;
  static constexpr bool kEntities = std::derived_from<Member, Entity>;

  template <class Owner>
  explicit MemberCollection(Owner& owner) : owner_(owner) {
    static_assert(!kEntities || std::derived_from<Owner, Entity>, "entities live in entities");
  }
  MemberCollection(MemberCollection const&) = delete;
  MemberCollection& operator=(MemberCollection const&) = delete;
  ~MemberCollection() {
    for (Ptr<Member> const& member : map_) unparent(*member);
  }

  static Key keyOf(Member const& member) { return Map::keyOf(member); }
  Map const& map() const { return map_; }
  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }
  /// The member of `key`, or the one behind where it would be.
  auto lowerBound(Key const& key) const { return map_.lowerBound(key); }
  /// Null when absent.
  Member* find(Key const& key) const { return map_.find(key); }
  Ptr<Member> get(Key const& key) const { return Ptr<Member>(map_.find(key)); }
  Cursor cursor() const { return Cursor(map_); }
  Cursor cursor(Key const& from) const { return Cursor(map_, from); }

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
    if (!member) throwMutatorArgNullPointerException(typeid(Member).name(), A.id);
    Key const key = std::invoke(KeyOf, *member);
    Ptr<Member> const keep = member;
    if (map_.find(key) == keep.get()) return;
    Ptr<Member> const replaced = map_.set(keep);
    if (replaced) unparent(*replaced);
    if constexpr (kEntities) keep->parentIs(Ptr<Entity>(&ownerEntity()), A.id);
    owner_.notify(A.id, &key);
  }
  /// Removes, then notifies, and gives the member back; absent: nothing, and null.
  Ptr<Member> del(Key const& key) {
    Ptr<Member> removed = map_.take(key);
    if (!removed) return nullptr;
    unparent(*removed);
    Key const removedKey = std::invoke(KeyOf, *removed);
    owner_.notify(A.id, &removedKey);
    return removed;
  }
  /// Removes every member that is there now, one at a time in the collection's order, each with its
  /// notification. A member that a handler adds behind the walk stays.
  void delAll() {
    Ptr<PtrInterface> const keep(&owner_);
    Cursor walk(map_);
    while (Member* const member = walk.next()) {
      Key const key = std::invoke(KeyOf, *member);
      del(key);
    }
  }

 private:
  Entity& ownerEntity() { return static_cast<Entity&>(owner_); }
  static void unparent(Member& member) {
    if constexpr (kEntities) member.parentIs(nullptr);
  }

  PtrInterface& owner_;
  Map map_;
};

}  // namespace Kiv
