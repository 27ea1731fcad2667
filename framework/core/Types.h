#pragma once

#include <cstdint>

namespace Kiv {

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

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
