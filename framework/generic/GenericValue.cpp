// SPDX-License-Identifier: Apache-2.0
#include "framework/generic/GenericValue.h"

#include "framework/generic/Type.h"

namespace Kiv {

String const& GenericValue::strep() const {
  if (auto const* const strep = std::get_if<String>(&value_)) return *strep;
  throwRangeException(isNothing() ? "a value is missing" : "an object where a value is expected");
}

Ptr<PtrInterface const> GenericValue::object() const {
  if (isNothing()) return nullptr;
  if (auto const* const object = std::get_if<Ptr<PtrInterface>>(&value_)) return *object;
  if (auto const* const object = std::get_if<Ptr<PtrInterface const>>(&value_)) return *object;
  throwRangeException("a value where an object is expected");
}

Ptr<PtrInterface> GenericValue::writableObject() const {
  if (isNothing()) return nullptr;
  if (auto const* const object = std::get_if<Ptr<PtrInterface>>(&value_)) return *object;
  throwRangeException(isStrep() ? "a value where an object is expected"
                                : "the object may only be read");
}

double GenericValue::asDouble() const {
  std::string_view const text = strep();
  double number = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) {
    throwRangeException("not a number: " + std::string(text.substr(0, 100)));
  }
  return number;
}

std::ostream& operator<<(std::ostream& out, GenericValue const& value) {
  if (value.isNothing()) return out << "nothing";
  if (value.isStrep()) return out << value.strep();
  return out << value.object()->fwkType().name();
}

}  // namespace Kiv
