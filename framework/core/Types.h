// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstdint>
#include <type_traits>

namespace Kiv {

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

/// An integer of one byte. Output for people writes one as a number, never as a character.
template <class T>
concept ByteInteger = std::integral<T> && sizeof(T) == 1 && !std::same_as<T, bool>;

/// What to write to a stream in place of `value`: a byte as a number, anything else as it is.
template <class T>
constexpr decltype(auto) numberIfByte(T const& value) {
  if constexpr (ByteInteger<T>) {
    return static_cast<int>(value);
  } else {
    return (value);
  }
}

/// An opaque handle that the library passes through and never interprets.
using VoidPtr = void*;

/// Number of an attribute inside its type. A type derived from PtrInterface numbers its own
/// attributes from 130, one derived from Entity from 258.
using AttributeId = U32;

inline constexpr AttributeId kFirstPtrInterfaceAttribute = 130;
inline constexpr AttributeId kFirstEntityAttribute = 258;

/// An attribute id with two types: the key that a notification for it passes, `void` for a scalar
/// attribute and the member key for a collection; and the type that has the attribute, so that
/// another type's attribute of the same number does not compile in its place. `void` as owner: not
/// checked.
///
///   static constexpr Kiv::Attr<Ovra::IpAddr, OverlaySrcMacRewrite> kIpAndMac{259};
template <class KeyT = void, class OwnerT = void>
struct Attr {
  using Key = KeyT;
  using Owner = OwnerT;
  AttributeId id;
};

namespace detail {

/// Whether A may be an attribute of T. A named owner must be complete, as must T.
template <Attr A, class T>
constexpr bool isAttributeOf() {
  using Owner = typename decltype(A)::Owner;
  if constexpr (std::is_void_v<Owner>) {
    return true;
  } else {
    return std::is_base_of_v<Owner, std::remove_cv_t<T>>;
  }
}

}  // namespace detail

/// Whether this source file is compiled with the checks that only debug builds make.
#ifdef NDEBUG
constexpr bool kDebugBuild = false;
#else
constexpr bool kDebugBuild = true;
#endif

}  // namespace Kiv
