// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <iosfwd>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "framework/core/Types.h"

namespace Kiv {

/// A counted, shared, immutable string of bytes. A copy shares the bytes; the last one frees them.
/// The bytes may hold NUL anywhere and are followed by one NUL that is not counted. The empty
/// string allocates nothing.
///
/// Counting is atomic only while VFPtrInterface::threadSafePointers_ is set.
class String {
 public:
  /// Walks the bytes; what a parser of string forms advances. It points into the string it came
  /// from and is valid as long as a copy of that string lives.
  class Iterator {
   public:
    using iterator_concept = std::contiguous_iterator_tag;
    using iterator_category = std::random_access_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = char const*;
    using reference = char const&;

    constexpr Iterator() = default;
    constexpr explicit Iterator(char const* at) : at_(at) {}

    constexpr reference operator*() const { return *at_; }
    constexpr pointer operator->() const { return at_; }
    constexpr reference operator[](difference_type n) const { return at_[n]; }
    constexpr Iterator& operator++() { return ++at_, *this; }
    constexpr Iterator operator++(int) { return Iterator(at_++); }
    constexpr Iterator& operator--() { return --at_, *this; }
    constexpr Iterator operator--(int) { return Iterator(at_--); }
    constexpr Iterator& operator+=(difference_type n) { return at_ += n, *this; }
    constexpr Iterator& operator-=(difference_type n) { return at_ -= n, *this; }
    friend constexpr Iterator operator+(Iterator i, difference_type n) { return i += n; }
    friend constexpr Iterator operator+(difference_type n, Iterator i) { return i += n; }
    friend constexpr Iterator operator-(Iterator i, difference_type n) { return i -= n; }
    friend constexpr difference_type operator-(Iterator a, Iterator b) { return a.at_ - b.at_; }
    friend constexpr auto operator<=>(Iterator, Iterator) = default;

   private:
    char const* at_ = nullptr;
  };

  constexpr String() noexcept = default;
  /// Copies `size` bytes. Throws std::bad_alloc.
  String(char const* bytes, size_t size);
  /// Copies a NUL-terminated text. Null is fatal in debug builds.
  String(char const* text) : String(std::string_view(notNull(text))) {}
  String(std::string const& text) : String(text.data(), text.size()) {}
  String(std::string_view text) : String(text.data(), text.size()) {}
  String(std::nullptr_t) = delete;

  String(String const& other) noexcept : rep_(other.rep_) {
    if (rep_ != nullptr) retain();
  }
  String(String&& other) noexcept : rep_(std::exchange(other.rep_, nullptr)) {}
  String& operator=(String other) noexcept {
    std::swap(rep_, other.rep_);
    return *this;
  }
  ~String() {
    if (rep_ != nullptr) release();
  }

  /// The bytes, NUL-terminated; valid as long as a copy of this string lives.
  char const* charPtr() const noexcept { return rep_ != nullptr ? rep_->bytes() : kNoBytes; }
  std::string stdString() const { return std::string(view()); }
  std::string_view view() const noexcept { return {charPtr(), size()}; }
  operator std::string_view() const noexcept { return view(); }

  size_t size() const noexcept { return rep_ != nullptr ? rep_->size : 0; }
  size_t length() const noexcept { return size(); }
  bool empty() const noexcept { return rep_ == nullptr; }

  Iterator begin() const noexcept { return Iterator(charPtr()); }
  Iterator end() const noexcept { return Iterator(charPtr() + size()); }

  /// Depends on the bytes only: equal in every run.
  U32 hash() const;

  template <std::convertible_to<std::string_view> Text>
  friend bool operator==(String const& a, Text const& b) {
    return a.view() == std::string_view(b);
  }
  template <std::convertible_to<std::string_view> Text>
  friend std::strong_ordering operator<=>(String const& a, Text const& b) {
    return a.view() <=> std::string_view(b);
  }
  friend std::ostream& operator<<(std::ostream& stream, String const& string);

 private:
  friend String format(char const* fmt, ...);

  static char const* notNull(char const* text) {
    if constexpr (kDebugBuild) {
      if (text == nullptr) nullText();
    }
    return text;
  }
  [[noreturn]] static void nullText();

  // What the empty string points at: one address in every library of the process, since begin()
  // and end() may be called from different ones.
  static char const kNoBytes[1];

  // The head of the heap block; the bytes follow it.
  struct Rep {
    U32 count;
    size_t size;
    char* bytes() { return reinterpret_cast<char*>(this + 1); }
  };

  /// A block for `size` bytes with the closing NUL in place; null for no bytes.
  static Rep* allocate(size_t size);
  void retain() const noexcept;
  void release() noexcept;

  Rep* rep_ = nullptr;
};

}  // namespace Kiv
