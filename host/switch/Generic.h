// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/generic/GenericValue.h"
#include "framework/generic/Type.h"

namespace Host {

/// Short words for the operations by name that the lab uses on the plug-in's objects.
using Object = Kiv::Ptr<Kiv::PtrInterface>;

/// A new object of the type of that name. Throws Kiv::RangeException when there is none.
Object makeByName(std::string_view typeName);

Kiv::GenericValue get(Object const& object, std::string_view attribute,
                      std::initializer_list<Kiv::GenericValue> key = {});
/// The object that an attribute points at, also when it grants reading only: the lab prints it.
Object getObject(Object const& object, std::string_view attribute,
                 std::initializer_list<Kiv::GenericValue> key = {});
std::string getText(Object const& object, std::string_view attribute);
void set(Object const& object, std::string_view attribute,
         std::initializer_list<Kiv::GenericValue> value);
void del(Object const& object, std::string_view attribute, Kiv::GenericValue const& key);
void delAll(Object const& object, std::string_view attribute);
Kiv::GenericValue call(Object const& object, std::string_view operation,
                       std::initializer_list<Kiv::GenericValue> arguments = {});

/// Calls `f(key, member)` for each member of a collection, in the collection's order.
template <class F>
void forEach(Object const& object, std::string_view attribute, F const& f) {
  for (auto walk = object->genericIfIterator(attribute); !walk->atEnd(); walk->iterInc()) {
    f(walk->iterKey(), walk->iterObj());
  }
}

/// The object that a generic value holds, also when it grants reading only; null when it holds
/// none.
Object objectOf(Kiv::GenericValue const& value);

}  // namespace Host
