// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <new>
#include <ostream>
#include <string_view>
#include <type_traits>

#include "framework/trace/RingBuf.h"
#include "framework/trace/WordReader.h"

namespace Ringlog {

/// How an argument of type T is stored in a record. A specialisation has
///
///   static constexpr U32 kMaxWords;                        // at most this many words
///   [[gnu::always_inline]] static void put(Message& message, T const& value) noexcept;
///   static void render(std::ostream& stream, WordReader& words);
///
/// put() allocates and traces nothing; render() writes what `stream << value` would. There is one
/// for texts (whatever converts to std::string_view), for the arithmetic types, for enumerations
/// and for trivially copyable values with a stream operator. A trivially copyable value is rendered
/// from its bytes, maybe after the original is gone: one that points at memory that may go away
/// wants a specialisation. A raw pointer that is no text is therefore refused.
template <class T>
struct ArgTraits;

constexpr U32 wordsFor(size_t bytes) {
  return static_cast<U32>((bytes + sizeof(U64) - 1) / sizeof(U64));
}

template <class T>
concept TextArg = std::convertible_to<T const&, std::string_view> && !std::is_null_pointer_v<T>;

template <class T>
concept Streamable = requires(std::ostream& stream, T const& value) {
  stream << value;
};

/// Pointers, pointers to members and nullptr.
template <class T>
concept PointerArg = std::is_scalar_v<T> && !std::is_arithmetic_v<T> && !std::is_enum_v<T>;

template <class T>
concept ValueArg = !TextArg<T> && !PointerArg<T> && std::is_trivially_copyable_v<T> &&
                   (Streamable<T> || std::is_enum_v<T>)&&sizeof(T) <= kMaxArgBytes;

/// What a trace takes as an argument.
template <class T>
concept TraceArg = requires {
  ArgTraits<T>::kMaxWords;
};

/// Texts: the first word has the number of bytes that follow and the length of the whole.
struct TextArgTraits {
  static constexpr U32 kMaxWords = 1 + wordsFor(kMaxArgBytes);

  [[gnu::always_inline]] static void put(Message& message, std::string_view text) noexcept {
    size_t const kept = std::min<size_t>(text.size(), kMaxArgBytes);
    message.word(U64{text.size()} << 8 | kept);
    message.bytes(text.data(), kept);
  }
  static void render(std::ostream& stream, WordReader& words);
};

template <TextArg T>
struct ArgTraits<T> : TextArgTraits {};

/// C strings; a null pointer is "(null)".
template <>
struct ArgTraits<char const*> : TextArgTraits {
  [[gnu::always_inline]] static void put(Message& message, char const* text) noexcept {
    TextArgTraits::put(message, text != nullptr ? std::string_view(text) : "(null)");
  }
};

template <>
struct ArgTraits<char*> : ArgTraits<char const*> {};

template <ValueArg T>
struct ArgTraits<T> {
  static constexpr U32 kMaxWords = wordsFor(sizeof(T));

  [[gnu::always_inline]] static void put(Message& message, T const& value) noexcept {
    char bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));
    message.bytes(bytes, sizeof(T));
  }

  static void render(std::ostream& stream, WordReader& words) {
    alignas(T) std::byte bytes[sizeof(T)];
    words.bytes(bytes, sizeof(T));
    show(stream, *std::launder(reinterpret_cast<T const*>(bytes)));
  }

 private:
  static void show(std::ostream& stream, T const& value) {
    if constexpr (Streamable<T>) {
      stream << Kiv::numberIfByte(value);
    } else {
      stream << +static_cast<std::underlying_type_t<T>>(value);
    }
  }
};

}  // namespace Ringlog
