// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <charconv>
#include <ostream>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "framework/core/Exceptions.h"
#include "framework/core/Format.h"
#include "framework/core/Ptr.h"
#include "framework/core/Strep.h"
#include "framework/core/String.h"

namespace Kiv {

namespace detail {

template <class T>
struct PtrTarget {
  using Type = void;
};
template <class T>
struct PtrTarget<Ptr<T>> {
  using Type = T;
};

}  // namespace detail

/// Any value of the generic interface: nothing, a value in its string form, or an object. A
/// Kiv::String attribute's string form is its bare text.
class GenericValue {
 public:
  GenericValue() = default;
  GenericValue(char const* strep) : value_(String(strep)) {}
  GenericValue(String strep) : value_(std::move(strep)) {}
  template <class T>
  GenericValue(Ptr<T> const& object) {
    if (object == nullptr) return;
    if constexpr (std::is_const_v<T>) {
      value_ = Ptr<PtrInterface const>(object);
    } else {
      value_ = Ptr<PtrInterface>(object);
    }
  }
  /// The generic form of a value of any type that has a string form.
  template <class T>
  static GenericValue of(T const& value) {
    if constexpr (!std::is_void_v<typename detail::PtrTarget<T>::Type>) {
      return GenericValue(value);
    } else if constexpr (std::is_convertible_v<T const&, std::string_view>) {
      return GenericValue(String(std::string_view(value)));
    } else if constexpr (std::is_floating_point_v<T>) {
      return GenericValue(Kiv::format("%.17g", static_cast<double>(value)));
    } else {
      return GenericValue(valueToStrep(value));
    }
  }

  bool isNothing() const { return std::holds_alternative<std::monostate>(value_); }
  bool isStrep() const { return std::holds_alternative<String>(value_); }
  bool isObject() const { return !isNothing() && !isStrep(); }
  /// The string form; throws RangeException when the value is not one.
  String const& strep() const;
  /// The object for reading, or null when the value is nothing. Throws RangeException for a string.
  Ptr<PtrInterface const> object() const;
  /// The object for writing. Throws RangeException also when only reading was granted.
  Ptr<PtrInterface> writableObject() const;

  /// The value as a T. Throws RangeException when it does not parse or is an object of another
  /// type; nothing becomes a null pointer.
  template <class T>
  T as() const {
    using Target = typename detail::PtrTarget<T>::Type;
    if constexpr (!std::is_void_v<Target>) {
      if constexpr (std::is_const_v<Target>) {
        return cast<Target>(object());
      } else {
        return cast<Target>(writableObject());
      }
    } else if constexpr (std::is_same_v<T, String>) {
      return strep();
    } else if constexpr (std::is_floating_point_v<T>) {
      return static_cast<T>(asDouble());
    } else {
      return strepToValue<T>(strep());
    }
  }

  friend std::ostream& operator<<(std::ostream& out, GenericValue const& value);

 private:
  template <class Target, class From>
  static Ptr<Target> cast(Ptr<From> const& object) {
    Ptr<Target> typed = ptrCast<Target>(object);
    if (object && !typed) throwRangeException("the object is of another type");
    return typed;
  }
  double asDouble() const;

  std::variant<std::monostate, String, Ptr<PtrInterface>, Ptr<PtrInterface const>> value_;
};

}  // namespace Kiv
