// SPDX-License-Identifier: Apache-2.0
#include "framework/values/PortVlanPair.h"

#include <ostream>

#include "framework/core/Strep.h"

namespace Pex {

namespace {

constexpr char kPortVlanPair[] = "Pex::PortVlanPair";

}  // namespace

PortVlanPair::PortVlanPair(Kiv::String::Iterator& it, Kiv::String::Iterator const& end) {
  Kiv::StrepReader in(it, end, kPortVlanPair);
  intfId_ = in.field<Ovra::IntfId>("intfId");
  vlanId_ = in.field<Kiv::U16>("vlanId");
  in.close();
}

Kiv::String PortVlanPair::valueToStrep() const {
  return Kiv::StrepWriter(kPortVlanPair).field("intfId", intfId_).field("vlanId", vlanId_).close();
}

std::ostream& operator<<(std::ostream& stream, PortVlanPair const& value) {
  return stream << value.valueToStrep();
}

}  // namespace Pex
