// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "framework/core/Name.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/String.h"

namespace Kiv {

/// A framework object that has a place in a tree: a name, a parent, and the parent's attribute that
/// holds it.
///
/// Ownership: the parent owns the child through that attribute; the child refers to its parent
/// without holding it. A child that is removed, or outlives its parent, has none. An entity in two
/// collections is a child of the one that it was put into last, until that one removes it.
class Entity : public PtrInterface {
 public:
  static constexpr Attr<void, Entity> kFullName{130};
  static constexpr Attr<void, Entity> kParent{131};
  static constexpr Attr<void, Entity> kParentAttrName{132};
  static constexpr Attr<void, Entity> kEntity{133};

  /// Empty unless the type has names of its own.
  virtual Name name() const { return Name(); }
  /// The names and attributes from the root down, joined by '/'. Entities that are each other's
  /// parents have no root: the path begins with the last one before a repetition.
  String fullName() const;
  Ptr<Entity> parent() const { return Ptr<Entity>(parentRaw()); }
  /// The name of the parent's attribute that holds this entity; empty without a parent.
  String parentAttrName() const;
  /// This entity as a node of the tree.
  Ptr<Entity const> entity() const { return Ptr<Entity const>(this); }

  /// Puts the entity under `parent`, or under none, and notifies kParent on a real change. The
  /// caller is the attribute `attribute` of the parent, which owns the entity. Destruction of the
  /// parent does not notify. Throws std::bad_alloc; nothing has changed then.
  void parentIs(Ptr<Entity> const& parent, AttributeId attribute = 0);

  // parentIs() in steps, for a collection: it changes the parent together with itself, and only
  // then notifies of both. True when there was a change to notify of.
  /// What kivParentStore() under this entity needs. Throws std::bad_alloc.
  void kivNeedPlace() {
    if (!hasOwnPlace()) makePlace();
  }
  bool kivParentStore(Entity& parent, AttributeId attribute) noexcept;
  /// Under no parent any more, if it is under that attribute of `parent`.
  bool kivParentDrop(Entity const& parent, AttributeId attribute) noexcept;
  /// For a collection of an entity that is being destroyed: its members have no parent any more.
  void kivLeaveChildren() noexcept {
    if (hasOwnPlace()) leavePlace();
  }

  Type const& fwkType() const override;
  static Type const& _kivType();

 protected:
  Entity() = default;
  ~Entity() override {
    kivLeaveChildren();
    if (place_ != nullptr) release(place_);
  }

 private:
  // Where an entity with children is, shared by it and them; it outlives the entity.
  struct Place {
    Entity* entity;
    Place* parent;
    U32 uses;
  };

  bool hasOwnPlace() const { return place_ != nullptr && place_->entity == this; }
  Place* const& parentPlace() const { return hasOwnPlace() ? place_->parent : place_; }
  Place*& parentPlace() { return hasOwnPlace() ? place_->parent : place_; }
  Entity* parentRaw() const {
    Place const* const place = parentPlace();
    return place == nullptr ? nullptr : place->entity;
  }
  static void release(Place* place) noexcept {
    if (--place->uses == 0) delete place;
  }
  void makePlace();
  void leavePlace() noexcept;

  AttributeId parentAttribute_ = 0;
  // Its own place, if it has children; otherwise its parent's. One pointer serves for both, since
  // there is an entity for every row.
  Place* place_ = nullptr;
};

inline bool Entity::kivParentStore(Entity& parent, AttributeId attribute) noexcept {
  bool const same = parentRaw() == &parent && parentAttribute_ == attribute;
  ++parent.place_->uses;
  Place* const left = std::exchange(parentPlace(), parent.place_);
  if (left != nullptr) release(left);
  parentAttribute_ = attribute;
  return !same;
}

inline bool Entity::kivParentDrop(Entity const& parent, AttributeId attribute) noexcept {
  if (parentRaw() != &parent || parentAttribute_ != attribute) return false;
  release(std::exchange(parentPlace(), nullptr));
  parentAttribute_ = 0;
  return true;
}

}  // namespace Kiv
