#pragma once

#include <concepts>
#include <cstdint>

namespace Kiv {

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

/// An integer of one byte. Whoever writes one for a human reader writes a number, never a
/// character.
template <class T>
concept ByteInteger = std::integral<T> && sizeof(T) == 1 && !std::same_as<T, bool>;

/// What to hand to a stream in place of `value`: a byte as a number, anything else as it is.
template <class T>
constexpr decltype(auto) numberIfByte(T const& value) {
  if constexpr (ByteInteger<T>) {
    return static_cast<int>(value);
  } else {
    return (value);
  }
}

/// An opaque handle that the library passes through and never looks into.
using VoidPtr = void*;

/// Number of an attribute inside its type. A type derived from PtrInterface numbers its own
/// attributes from 130, one derived from Entity from 258.
using AttributeId = U32;

inline constexpr AttributeId kFirstPtrInterfaceAttribute = 130;
inline constexpr AttributeId kFirstEntityAttribute = 258;

/// An attribute id that carries the type of the key a notification for it passes: `void` for a
/// scalar attribute, the member key for a collection.
template <class KeyT = void>
struct Attr {
  using Key = KeyT;
  AttributeId id;
};

}  // namespace Kiv
