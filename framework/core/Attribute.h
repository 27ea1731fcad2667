// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/Types.h"

namespace Kiv {

namespace detail {

// What is replaced stays alive until the notification is over: in `value`.
template <class T>
void storeAndNotify(PtrInterface const& owner, AttributeId id, T& field, T& value) {
  if (value == field) return;
  std::swap(field, value);
  owner.notify(id);
}

}  // namespace detail

/// Sets a scalar attribute whose value the owner keeps in a field of its own, as Attribute::is()
/// does.
template <Attr A, class Owner, class T>
void attributeIs(Owner const& owner, T& field, T value) {
  static_assert(detail::isAttributeOf<A, Owner>(), "an attribute of another type");
  detail::storeAndNotify(owner, A.id, field, value);
}

/// A scalar attribute of a framework object: a value that notifies the object's notifiees when it
/// really changes. Pointers compare by identity.
///
///   void profileNameIs(Kiv::String name) { profileName_.is(name); }
///   Kiv::Attribute<kProfileName, Kiv::String> profileName_{*this};
template <Attr A, class T>
class Attribute {
 public:
  template <class Owner>
  explicit Attribute(Owner const& owner, T initial = T())
      : owner_(owner), value_(std::move(initial)) {
    static_assert(detail::isAttributeOf<A, Owner>(), "an attribute of another type");
  }
  Attribute(Attribute const&) = delete;
  Attribute& operator=(Attribute const&) = delete;

  T const& operator()() const { return value_; }

  /// Stores, then notifies with the attribute's id. An equal value: nothing. What is replaced stays
  /// alive until the notification is over.
  void is(T value) { detail::storeAndNotify(owner_, A.id, value_, value); }

 private:
  PtrInterface const& owner_;
  T value_;
};

}  // namespace Kiv
