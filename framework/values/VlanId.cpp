// SPDX-License-Identifier: Apache-2.0
#include "framework/values/VlanId.h"

#include <ostream>

#include "framework/core/Strep.h"

namespace Bridging {

VlanId::VlanId(Kiv::String::Iterator& it, Kiv::String::Iterator const& end)
    : VlanId(Kiv::strepToValue<Kiv::U32>(it, end)) {}

Kiv::String VlanId::valueToStrep() const {
  return Kiv::valueToStrep(value_);
}

std::ostream& operator<<(std::ostream& stream, VlanId id) {
  return stream << id.value_;
}

}  // namespace Bridging
