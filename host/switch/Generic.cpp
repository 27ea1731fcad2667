// SPDX-License-Identifier: Apache-2.0
#include "host/switch/Generic.h"

#include <span>

#include "framework/core/Exceptions.h"

namespace Host {

namespace {

std::span<Kiv::GenericValue const> span(std::initializer_list<Kiv::GenericValue> values) {
  return {values.begin(), values.size()};
}

}  // namespace

Object makeByName(std::string_view typeName) {
  Kiv::Type const* const type = Kiv::Type::find(typeName);
  if (type == nullptr) {
    Kiv::throwRangeException("the plug-in has no type " + std::string(typeName));
  }
  return type->construct({});
}

Kiv::GenericValue get(Object const& object, std::string_view attribute,
                      std::initializer_list<Kiv::GenericValue> key) {
  return object->genericIfAttributeOp(Kiv::GenericOp::Get, attribute, span(key));
}

Object objectOf(Kiv::GenericValue const& value) {
  if (!value.isObject()) return nullptr;
  return Object(const_cast<Kiv::PtrInterface*>(value.object().get()));
}

Object getObject(Object const& object, std::string_view attribute,
                 std::initializer_list<Kiv::GenericValue> key) {
  return objectOf(get(object, attribute, key));
}

std::string getText(Object const& object, std::string_view attribute) {
  return get(object, attribute).strep().stdString();
}

void set(Object const& object, std::string_view attribute,
         std::initializer_list<Kiv::GenericValue> value) {
  object->genericIfAttributeOp(Kiv::GenericOp::Set, attribute, span(value));
}

void del(Object const& object, std::string_view attribute, Kiv::GenericValue const& key) {
  object->genericIfAttributeOp(Kiv::GenericOp::Del, attribute, {&key, 1});
}

void delAll(Object const& object, std::string_view attribute) {
  object->genericIfAttributeOp(Kiv::GenericOp::DelAll, attribute);
}

Kiv::GenericValue call(Object const& object, std::string_view operation,
                       std::initializer_list<Kiv::GenericValue> arguments) {
  return object->genericIfAttributeOp(Kiv::GenericOp::Call, operation, span(arguments));
}

}  // namespace Host
