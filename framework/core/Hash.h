// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "framework/core/Types.h"

namespace Kiv {

/// What can be mixed into a hash as one machine word.
template <class T>
concept HashableWord = (std::integral<T> || std::is_enum_v<T>)&&sizeof(T) <= sizeof(U64);

/// A 32-bit hash of a sequence of fields. Every bit of the seed and of each field changes every bit
/// of the result with even odds, the top ones too: the collections take a member's home slot from
/// them.
///
///   return Hash(seed).hashMix(ipAddr_.hash()).hashMix(selfIp_).result();
///
/// Cost: one multiplication and one xor for each word of up to eight bytes, and one multiplication
/// to finish. Not for secrets.
class Hash {
 public:
  constexpr explicit Hash(U32 seed) : state_(seed * kSpread) {}

  /// Mixes in one integer, enumerator or bool.
  template <HashableWord T>
  constexpr Hash& hashMix(T word) {
    if constexpr (sizeof(T) <= sizeof(U32)) {
      fold(static_cast<U32>(word));
    } else {
      fold(static_cast<U64>(word));
    }
    return *this;
  }

  /// Mixes in `size` bytes. Sizes are mixed in, so that the boundary between neighbouring runs of
  /// bytes counts.
  Hash& hashMix(void const* data, size_t size) {
    auto const* at = static_cast<char const*>(data);
    U64 word = 0;
    for (size_t left = size; left >= sizeof word; left -= sizeof word, at += sizeof word) {
      std::memcpy(&word, at, sizeof word);
      fold(word);
    }
    word = 0;
    if (size % sizeof word != 0) std::memcpy(&word, at, size % sizeof word);
    fold(word ^ (U64{size} << 56));
    return *this;
  }

  constexpr U32 result() const { return static_cast<U32>((state_ * kFinish) >> 32); }

 private:
  __extension__ using Wide = unsigned __int128;

  // Both halves of the product are used: the upper one spreads high bits downwards, the lower one
  // spreads low bits upwards.
  constexpr void fold(U64 word) {
    Wide const product = static_cast<Wide>(state_ ^ word) * kFold;
    state_ = static_cast<U64>(product >> 64) ^ static_cast<U64>(product);
  }

  // Any odd numbers with no pattern in their bits serve.
  static constexpr U64 kSpread = 0xC5A3'9D4B'72E6'1B97;
  static constexpr U64 kFold = 0x8B35'6CD9'A74E'53E5;
  static constexpr U64 kFinish = 0x9D6E'A2C7'53B1'4F2D;

  U64 state_;
};

/// The unseeded hash of a text, equal in every run.
inline U32 hashText(std::string_view text) {
  return Hash(0).hashMix(text.data(), text.size()).result();
}

/// The hash of a collection's key under the collection's seed. A type with `hash(unsigned seed)`
/// brings its own; the 4 bytes of a type with only `hash()` are mixed in, as are plain integers.
template <class Key>
constexpr U32 hashSingleAttr(U32 seed, Key const& key) {
  if constexpr (HashableWord<Key>) {
    return Hash(seed).hashMix(key).result();
  } else if constexpr (requires {
                         { key.hash(seed) } -> std::same_as<U32>;
                       }) {
    return key.hash(seed);
  } else {
    static_assert(std::is_same_v<decltype(key.hash()), U32>);
    return Hash(seed).hashMix(key.hash()).result();
  }
}

/// The process-wide seed that every collection's own constant is xor'ed with.
class HashHelper {
 public:
  /// Drawn from the system's entropy by the first call; the same for the life of the process.
  static U32 hashSeed32();
  /// Fixes the seed, for a run that can be repeated. Fatal once hashSeed32() has been called.
  static void hashSeed32Is(U32 seed);
};

}  // namespace Kiv
