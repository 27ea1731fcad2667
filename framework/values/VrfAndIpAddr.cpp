// SPDX-License-Identifier: Apache-2.0
#include "framework/values/VrfAndIpAddr.h"

#include <ostream>

#include "framework/core/Strep.h"

namespace Pex {

namespace {

constexpr char kVrfAndIpAddr[] = "Pex::VrfAndIpAddr";

}  // namespace

VrfAndIpAddr::VrfAndIpAddr(Kiv::String::Iterator& it, Kiv::String::Iterator const& end) {
  Kiv::StrepReader in(it, end, kVrfAndIpAddr);
  vrfId_ = in.field<VrfId>("vrfId");
  ipAddr_ = in.field<Ovra::IpAddr>("ipAddr");
  in.close();
}

Kiv::String VrfAndIpAddr::valueToStrep() const {
  return Kiv::StrepWriter(kVrfAndIpAddr).field("vrfId", vrfId_).field("ipAddr", ipAddr_).close();
}

std::ostream& operator<<(std::ostream& stream, VrfAndIpAddr const& value) {
  return stream << value.valueToStrep();
}

}  // namespace Pex
