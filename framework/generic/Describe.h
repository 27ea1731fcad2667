// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

#include "framework/generic/Replication.h"
#include "framework/generic/Type.h"

/// The pieces of a type's one table. Used in `Type const& X::_kivType()`:
///
///   static Kiv::Type const type("BfnMacRewrite::Agent::OverlaySrcMacRewrite",
///       &Kiv::Entity::_kivType(),
///       {Kiv::describeConstant<&X::vrfId>("vrfId", 258),
///        Kiv::describeCollection<&X::ipAndMac_, &X::ipAndMacIs, &X::ipAndMacDel>(
///            "ipAndMac", X::kIpAndMac.id)});
namespace Kiv {

namespace detail {

[[noreturn]] void throwArgumentCount(size_t expected, size_t given);

template <class Arguments, size_t... I>
Arguments genericArguments([[maybe_unused]] std::span<GenericValue const> values,
                           std::index_sequence<I...>) {
  return Arguments{values[I].as<std::tuple_element_t<I, Arguments>>()...};
}
template <class Arguments>
Arguments genericArguments(std::span<GenericValue const> values) {
  constexpr size_t kCount = std::tuple_size_v<Arguments>;
  if (values.size() != kCount) throwArgumentCount(kCount, values.size());
  return genericArguments<Arguments>(values, std::make_index_sequence<kCount>());
}

template <class T>
struct NumberOrSame {
  using Type = T;
};
template <class T>
requires std::is_enum_v<T>
struct NumberOrSame<T> {
  using Type = std::underlying_type_t<T>;
};

// What a collection gives for one position of its walk: the key and the member.
template <class C>
struct CollectionTraits {
  using Key = typename C::Key;
  static constexpr bool kMembers = requires { typename C::Member; };

  template <class Item>
  static GenericValue object(Item const& item) {
    if constexpr (kMembers) {
      return GenericValue(Ptr<std::remove_reference_t<decltype(*item)>>(item));
    } else if constexpr (requires {
                           item->value;
                           item->key;
                         }) {
      return GenericValue::of(item->value);
    } else {
      return GenericValue::of(*item);
    }
  }
};

}  // namespace detail

/// A value that never changes: `Getter` is a const member function without arguments.
template <auto Getter>
AttributeDescription describeConstant(std::string_view name, AttributeId id) {
  using S = detail::Signature<decltype(Getter)>;
  using T = std::remove_cvref_t<typename S::Result>;
  AttributeDescription d;
  d.name = name;
  d.id = id;
  d.kind = AttributeKind::Constant;
  d.valueType = &typeid(T);
  d.get = [](PtrInterface const& object, std::span<GenericValue const>) {
    return GenericValue::of<T>((static_cast<typename S::Class const&>(object).*Getter)());
  };
  return d;
}

/// A value with a setter that takes it.
template <auto Getter, auto Setter>
AttributeDescription describeScalar(std::string_view name, AttributeId id) {
  using S = detail::Signature<decltype(Setter)>;
  AttributeDescription d = describeConstant<Getter>(name, id);
  d.kind = AttributeKind::Scalar;
  d.set = [](PtrInterface& object, GenericValue const& value) {
    using T = std::tuple_element_t<0, typename S::Arguments>;
    (static_cast<typename S::Class&>(object).*Setter)(value.as<T>());
  };
  d.replication = detail::replicateScalar<Getter, Setter>();
  return d;
}

/// A collection, named by the data member that holds it, with its setter and deleter where it may
/// be written by name. Setter takes the value, the key of a member to make, or a key and a value
/// (given as two arguments); Deleter takes the key.
template <auto Collection, auto Setter = nullptr, auto Deleter = nullptr>
AttributeDescription describeCollection(std::string_view name, AttributeId id);

/// An operation called by name. An enumerator that it returns is given as its number.
template <auto Operation>
AttributeDescription describeOperation(std::string_view name, AttributeId id = 0) {
  using S = detail::Signature<decltype(Operation)>;
  using Result = typename detail::NumberOrSame<std::remove_cvref_t<typename S::Result>>::Type;
  AttributeDescription d;
  d.name = name;
  d.id = id;
  d.kind = AttributeKind::Operation;
  d.valueType = &typeid(Result);
  d.call = [](PtrInterface& object, std::span<GenericValue const> values) {
    return std::apply(
        [&object](auto const&... arguments) {
          auto& self = static_cast<typename S::Class&>(object);
          if constexpr (std::is_void_v<typename S::Result>) {
            (self.*Operation)(arguments...);
            return GenericValue();
          } else {
            return GenericValue::of(static_cast<Result>((self.*Operation)(arguments...)));
          }
        },
        detail::genericArguments<typename S::Arguments>(values));
  };
  return d;
}

/// A constructor from an argument array, made of the type's free factory.
template <auto Factory>
Type::Constructor describeFactory() {
  using S = detail::Signature<decltype(Factory)>;
  return [](std::span<GenericValue const> values) -> Ptr<PtrInterface> {
    return std::apply(Factory, detail::genericArguments<typename S::Arguments>(values));
  };
}
/// A constructor without arguments, for a type that others fill by name.
template <class T>
Type::Constructor describeDefault() {
  return [](std::span<GenericValue const> values) -> Ptr<PtrInterface> {
    detail::genericArguments<std::tuple<>>(values);
    return makeActive<T>();
  };
}

namespace detail {

template <class T, auto Collection, class C>
class CollectionIterator final : public GenericIterator {
 public:
  CollectionIterator(Ptr<PtrInterface> owner, AttributeDescription const& attribute)
      : owner_(std::move(owner)),
        attribute_(attribute),
        cursor_((static_cast<T&>(*owner_).*Collection).cursor()) {
    CollectionIterator::iterInc();
  }
  bool atEnd() const override { return ended_; }
  GenericValue iterKey() const override { return key_; }
  GenericValue iterObj() const override { return object_; }
  void iterInc() override {
    auto* const item = cursor_.next();
    ended_ = item == nullptr;
    if (ended_) return;
    key_ = GenericValue::of(C::keyOf(*item));
    object_ = CollectionTraits<C>::object(item);
  }
  void iterDel() override {
    if (attribute_.del == nullptr) throwRangeException("the collection cannot be written by name");
    attribute_.del(*owner_, key_);
    iterInc();
  }

 private:
  Ptr<PtrInterface> owner_;
  AttributeDescription const& attribute_;
  typename C::Cursor cursor_;
  GenericValue key_;
  GenericValue object_;
  bool ended_ = false;
};

template <auto Collection, auto Setter>
ReadValue readValue(GenericValue const& value) {
  using C = typename MemberPointer<decltype(Collection)>::Type;
  auto const read = value.as<typename C::Value>();
  auto const set = [read](PtrInterface& object) {
    auto& self = static_cast<typename MemberPointer<decltype(Collection)>::Class&>(object);
    auto const* const there = (self.*Collection).find(C::keyOf(read));
    if (there == nullptr || !(*there == read)) (void)(self.*Setter)(read);
  };
  return {GenericValue::of(C::keyOf(read)), set};
}

}  // namespace detail

template <auto Collection, auto Setter, auto Deleter>
AttributeDescription describeCollection(std::string_view name, AttributeId id) {
  using T = typename detail::MemberPointer<decltype(Collection)>::Class;
  using C = typename detail::MemberPointer<decltype(Collection)>::Type;
  AttributeDescription d;
  d.name = name;
  d.id = id;
  d.kind = detail::CollectionTraits<C>::kMembers ? AttributeKind::Members : AttributeKind::Values;
  d.keyType = &typeid(typename C::Key);
  if constexpr (detail::CollectionTraits<C>::kMembers) {
    d.valueType = &typeid(typename C::Member);
  } else {
    d.valueType = &typeid(typename C::Value);
  }
  d.get = [](PtrInterface const& object, std::span<GenericValue const> values) {
    auto const [key] = detail::genericArguments<std::tuple<typename C::Key>>(values);
    auto const* const item = (static_cast<T const&>(object).*Collection).find(key);
    if (item == nullptr) return GenericValue();
    if constexpr (detail::CollectionTraits<C>::kMembers) {
      return detail::CollectionTraits<C>::object(const_cast<typename C::Member*>(item));
    } else {
      return detail::CollectionTraits<C>::object(item);
    }
  };
  if constexpr (!std::is_null_pointer_v<decltype(Setter)>) {
    d.call = [](PtrInterface& object, std::span<GenericValue const> values) {
      using S = detail::Signature<decltype(Setter)>;
      std::apply(
          [&object](auto const&... arguments) {
            (void)(static_cast<T&>(object).*Setter)(arguments...);
          },
          detail::genericArguments<typename S::Arguments>(values));
      return GenericValue();
    };
  }
  if constexpr (!std::is_null_pointer_v<decltype(Deleter)>) {
    d.del = [](PtrInterface& object, GenericValue const& key) {
      (void)(static_cast<T&>(object).*Deleter)(key.as<typename C::Key>());
    };
  }
  d.canonicalKey = [](GenericValue const& key) {
    return GenericValue::of(key.as<typename C::Key>());
  };
  if constexpr (!std::is_null_pointer_v<decltype(Setter)>) {
    using Arguments = typename detail::Signature<decltype(Setter)>::Arguments;
    d.keyAndValue = std::tuple_size_v<Arguments> == 2;
    if constexpr (!detail::CollectionTraits<C>::kMembers) {
      if constexpr (std::is_same_v<Arguments, std::tuple<typename C::Value>>) {
        d.readValue = &detail::readValue<Collection, Setter>;
      }
    }
    if constexpr (detail::CollectionTraits<C>::kMembers &&
                  !std::is_null_pointer_v<decltype(Deleter)>) {
      d.makeMember = [](GenericValue const& key) -> Ptr<PtrInterface> {
        return makeActive<typename C::Member>(key.as<typename C::Key>());
      };
    }
  }
  d.replication = detail::replicateCollection<Collection, Setter, Deleter>();
  d.iterate = [](Ptr<PtrInterface> const& object,
                 AttributeDescription const& self) -> std::unique_ptr<GenericIterator> {
    return std::make_unique<detail::CollectionIterator<T, Collection, C>>(object, self);
  };
  return d;
}

}  // namespace Kiv
