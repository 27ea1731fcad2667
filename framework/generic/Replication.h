// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <tuple>
#include <type_traits>

#include "framework/core/Ptr.h"
#include "framework/generic/Type.h"

// The typed halves of AttributeReplication. describeScalar and describeCollection put them in.
namespace Kiv::detail {

template <class F>
struct Signature;
template <class R, class... A>
struct Signature<R (*)(A...)> {
  using Class = void;
  using Result = R;
  using Arguments = std::tuple<std::remove_cvref_t<A>...>;
};
template <class C, class R, class... A>
struct Signature<R (C::*)(A...)> {
  using Class = C;
  using Result = R;
  using Arguments = std::tuple<std::remove_cvref_t<A>...>;
};
template <class C, class R, class... A>
struct Signature<R (C::*)(A...) const> : Signature<R (C::*)(A...)> {};

template <class M>
struct MemberPointer;
template <class C, class T>
struct MemberPointer<T C::*> {
  using Class = C;
  using Type = T;
};

template <auto Getter, auto Setter>
AttributeReplication replicateScalar() {
  using Class = typename Signature<decltype(Setter)>::Class;
  using Value = std::remove_cvref_t<typename Signature<decltype(Getter)>::Result>;
  AttributeReplication r;
  if constexpr (std::equality_comparable<Value>) {
    r.copy = [](PtrInterface const& from, PtrInterface& to, void const*) {
      Value const value = (static_cast<Class const&>(from).*Getter)();
      if (value == (static_cast<Class const&>(to).*Getter)()) return false;
      (static_cast<Class&>(to).*Setter)(value);
      return true;
    };
  }
  return r;
}

template <auto Collection, auto Setter, auto Deleter>
bool copyValue(PtrInterface const& from, PtrInterface& to, void const* key) {
  using T = typename MemberPointer<decltype(Collection)>::Class;
  using C = typename MemberPointer<decltype(Collection)>::Type;
  // Copies: what the notification points at may be destroyed while the change is notified.
  auto const own = *static_cast<typename C::Key const*>(key);
  auto& target = static_cast<T&>(to);
  auto const* const wanted = (static_cast<T const&>(from).*Collection).find(own);
  auto const* const there = (target.*Collection).find(own);
  if (wanted == nullptr) {
    if (there == nullptr) return false;
    (void)(target.*Deleter)(own);
    return true;
  }
  if (there != nullptr && *there == *wanted) return false;
  auto const value = *wanted;
  if constexpr (std::tuple_size_v<typename Signature<decltype(Setter)>::Arguments> == 2) {
    (void)(target.*Setter)(value.key, value.value);
  } else {
    (void)(target.*Setter)(value);
  }
  return true;
}

template <auto Collection, auto Setter, auto Deleter>
AttributeReplication replicateCollection() {
  using T = typename MemberPointer<decltype(Collection)>::Class;
  using C = typename MemberPointer<decltype(Collection)>::Type;
  AttributeReplication r;
  if constexpr (!std::is_null_pointer_v<decltype(Setter)> &&
                !std::is_null_pointer_v<decltype(Deleter)>) {
    using Key = typename C::Key;
    if constexpr (!requires { typename C::Member; }) {
      r.copy = &copyValue<Collection, Setter, Deleter>;
    } else {
      using Member = typename C::Member;
      r.member = [](PtrInterface const& owner, void const* key) {
        auto const& collection = static_cast<T const&>(owner).*Collection;
        return Ptr<PtrInterface>(
            const_cast<Member*>(collection.find(*static_cast<Key const*>(key))));
      };
      r.makeMember = [](void const* key) -> Ptr<PtrInterface> {
        return makeActive<Member>(*static_cast<Key const*>(key));
      };
      r.memberIs = [](PtrInterface& owner, Ptr<PtrInterface> const& member) {
        (static_cast<T&>(owner).*Collection)
            .memberIs(Ptr<Member>(static_cast<Member*>(member.get())));
      };
      r.memberDel = [](PtrInterface& owner, void const* key) {
        (void)(static_cast<T&>(owner).*Deleter)(Key(*static_cast<Key const*>(key)));
      };
    }
    r.eachKey = [](PtrInterface const& owner, void* context,
                   void (*visit)(void* context, void const* key)) {
      auto walk = (static_cast<T const&>(owner).*Collection).cursor();
      while (auto const* const item = walk.next()) {
        Key const key = C::keyOf(*item);
        visit(context, &key);
      }
    };
  }
  return r;
}

}  // namespace Kiv::detail
