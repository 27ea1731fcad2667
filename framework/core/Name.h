// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <concepts>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

#include "framework/core/String.h"

namespace Kiv {

/// The name of an entity among its parent's children. The empty name is legal.
class Name {
 public:
  Name() = default;
  Name(String name) : name_(std::move(name)) {}
  Name(char const* name) : name_(name) {}
  Name(std::string const& name) : name_(name) {}

  String const& string() const { return name_; }
  char const* charPtr() const { return name_.charPtr(); }
  std::string stdString() const { return name_.stdString(); }
  std::string_view view() const { return name_.view(); }
  operator std::string_view() const { return view(); }
  bool empty() const { return name_.empty(); }
  U32 hash() const { return name_.hash(); }

  template <std::convertible_to<std::string_view> Text>
  friend bool operator==(Name const& a, Text const& b) {
    return a.view() == std::string_view(b);
  }
  template <std::convertible_to<std::string_view> Text>
  friend std::strong_ordering operator<=>(Name const& a, Text const& b) {
    return a.view() <=> std::string_view(b);
  }
  friend std::ostream& operator<<(std::ostream& stream, Name const& name) {
    return stream << name.name_;
  }

 private:
  String name_;
};

}  // namespace Kiv
