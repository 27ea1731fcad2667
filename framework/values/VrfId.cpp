// SPDX-License-Identifier: Apache-2.0
#include "framework/values/VrfId.h"

#include <ostream>

#include "framework/core/Strep.h"

namespace Pex {

VrfId::VrfId(Kiv::String::Iterator& it, Kiv::String::Iterator const& end)
    : value_(Kiv::strepToValue<Kiv::U32>(it, end)) {}

Kiv::String VrfId::valueToStrep() const {
  return Kiv::valueToStrep(value_);
}

std::ostream& operator<<(std::ostream& stream, VrfId id) {
  return stream << id.value_;
}

}  // namespace Pex
