#pragma once

#include "framework/core/Name.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/String.h"

namespace Kiv {

/// A framework object that has a place in a tree: a name, a parent, and the parent's attribute that
/// holds it.
///
/// Ownership: the parent owns the child through that attribute; the child points back without
/// owning, and the attribute clears the pointer when it lets the child go, so a child that outlives
/// its parent has none.
class Entity : public PtrInterface {
 public:
  static constexpr Attr<> kFullName{130};
  static constexpr Attr<> kParent{131};
  static constexpr Attr<> kParentAttrName{132};
  static constexpr Attr<> kEntity{133};

  /// Empty unless the type has names of its own.
  virtual Name name() const { return Name(); }
  /// The names and attributes from the root down, joined by '/'.
  String fullName() const;
  Ptr<Entity> parent() const { return Ptr<Entity>(parent_); }
  /// The name of the parent's attribute that holds this entity; empty without a parent.
  String parentAttrName() const;
  /// This entity itself, as the tree sees it.
  Ptr<Entity const> entity() const { return Ptr<Entity const>(this); }

  /// Puts the entity under `parent`, or under none. The caller is what owns it there: the attribute
  /// `attribute` of the parent.
  void parentIs(Ptr<Entity> const& parent, AttributeId attribute = 0);

  Type const& fwkType() const override;
  static Type const& _kivType();

 protected:
  Entity() = default;
  ~Entity() override = default;

 private:
  AttributeId parentAttribute_ = 0;
  Entity* parent_ = nullptr;
};

}  // namespace Kiv
