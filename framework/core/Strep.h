// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <string>
#include <string_view>

#include "framework/core/Exceptions.h"
#include "framework/core/HexDigits.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"

/// String forms ("streps") of values: text that a value is written to and read back from.
///
/// A value type has `Kiv::String valueToStrep() const` and a parser, the constructor
/// `T(Kiv::String::Iterator& it, Kiv::String::Iterator const& end)`, which consumes the value's
/// form from the front of [it, end) and throws RangeException when there is none; `it` is then
/// unspecified. bool is True or False, integers are decimal, texts are quoted and escaped.
/// Parsers are iterative and take time linear in what they consume.
namespace Kiv {

/// The integers with a numeric string form; bool and characters of text are not among them.
template <class T>
concept StrepInteger = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char>;

template <class T>
concept HasStrep = requires(T const& value) {
  { value.valueToStrep() } -> std::same_as<String>;
};

/// Throws the RangeException that names what was expected and shows what was found instead.
[[noreturn]] void throwUnexpected(String::Iterator it, String::Iterator end,
                                  std::string_view expected);

/// Consumes exactly `literal`, or throws RangeException naming it.
void needString(String::Iterator& it, String::Iterator const& end, std::string_view literal);

/// Throws RangeException unless the whole string has been consumed.
void strepToValueEnd(String::Iterator const& it, String::Iterator const& end);

/// The text in single quotes: quotes and backslashes escaped by a backslash, control bytes and
/// bytes above 0x7e as \xHH. Every byte string comes back from quotedFromStrep() unchanged.
String quotedToStrep(std::string_view text);
/// Reads a quoted text. Bytes that need no escape may be escaped as \xHH, and raw bytes other than
/// quote and backslash are literal.
std::string quotedFromStrep(String::Iterator& it, String::Iterator const& end);

/// Writes `text` for people: verbatim, or escaped when it has control bytes.
void streamPlain(std::ostream& stream, std::string_view text);

/// An attempt to read a form. Unless it succeeds, texts that the parsers have added to the pool of
/// names meanwhile are removed again, so that refused forms cost no memory. Attempts nest; a parser
/// keeps no name but in the value that it returns.
class StrepAttempt {
 public:
  /// The pool of names: its size, and how to remove those added later.
  struct Names {
    U32 (*population)();
    void (*shrink)(U32 population);
  };
  static void namesAre(Names const& names) { names_ = names; }

  StrepAttempt() : population_(names_.population()) {}
  StrepAttempt(StrepAttempt const&) = delete;
  StrepAttempt& operator=(StrepAttempt const&) = delete;
  ~StrepAttempt() {
    if (!succeeded_) names_.shrink(population_);
  }

  void succeed() { succeeded_ = true; }

 private:
  static Names names_;

  U32 population_;
  bool succeeded_ = false;
};

namespace detail {
bool boolFromStrep(String::Iterator& it, String::Iterator const& end);
U64 unsignedFromStrep(String::Iterator& it, String::Iterator const& end, U64 max);
std::int64_t signedFromStrep(String::Iterator& it, String::Iterator const& end, std::int64_t min,
                             std::int64_t max);
}  // namespace detail

String valueToStrep(std::same_as<bool> auto value) {
  return value ? "True" : "False";
}

String valueToStrep(StrepInteger auto value) {
  return std::to_string(value);
}

inline String valueToStrep(String const& value) {
  return quotedToStrep(value);
}

template <HasStrep T>
String valueToStrep(T const& value) {
  return value.valueToStrep();
}

/// Consumes a T's string form from the front of [it, end).
template <class T>
T strepToValue(String::Iterator& it, String::Iterator const& end) {
  if constexpr (std::same_as<T, bool>) {
    return detail::boolFromStrep(it, end);
  } else if constexpr (std::unsigned_integral<T>) {
    static_assert(StrepInteger<T>);
    return static_cast<T>(detail::unsignedFromStrep(it, end, std::numeric_limits<T>::max()));
  } else if constexpr (std::integral<T>) {
    static_assert(StrepInteger<T>);
    return static_cast<T>(detail::signedFromStrep(it, end, std::numeric_limits<T>::min(),
                                                  std::numeric_limits<T>::max()));
  } else if constexpr (std::same_as<T, String>) {
    return quotedFromStrep(it, end);
  } else {
    return T(it, end);
  }
}

/// The value of a whole string; anything after the value's form is a RangeException.
template <class T>
T strepToValue(String const& strep) {
  StrepAttempt attempt;
  String::Iterator it = strep.begin();
  T value = strepToValue<T>(it, strep.end());
  strepToValueEnd(it, strep.end());
  attempt.succeed();
  return value;
}

/// Consumes one field's value; a RangeException comes out under the field's name.
template <class T>
T strepToAttr(String::Iterator& it, String::Iterator const& end, char const* field) {
  try {
    return strepToValue<T>(it, end);
  } catch (RangeException const& exception) {
    rethrowFromDeserializeAttr(exception, field);
  }
}

/// Reads a value made of named fields, `Value('<type>', ** {'<field>': <form>, ...})`:
///
///   StrepReader in(it, end, "Pex::VrfAndIpAddr");
///   vrfId_ = in.field<VrfId>("vrfId");
///   ipAddr_ = in.field<Ovra::IpAddr>("ipAddr");
///   in.close();
class StrepReader {
 public:
  StrepReader(String::Iterator& it, String::Iterator const& end, std::string_view type);

  template <class T>
  T field(char const* name) {
    openField(name);
    return strepToAttr<T>(it_, end_, name);
  }
  void close();

 private:
  void openField(char const* name);

  StrepAttempt attempt_;
  String::Iterator& it_;
  String::Iterator const& end_;
  bool first_ = true;
};

/// Writes what StrepReader reads:
///
///   return StrepWriter("Pex::VrfAndIpAddr").field("vrfId", vrfId_).field("ipAddr",
///   ipAddr_).close();
class StrepWriter {
 public:
  explicit StrepWriter(std::string_view type);

  template <class T>
  StrepWriter& field(char const* name, T const& value) {
    addField(name, Kiv::valueToStrep(value));
    return *this;
  }
  String close();

 private:
  void addField(char const* name, String const& strep);

  std::string text_;
  bool first_ = true;
};

}  // namespace Kiv
