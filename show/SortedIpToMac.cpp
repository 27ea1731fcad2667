// SPDX-License-Identifier: Apache-2.0
#include "show/SortedIpToMac.h"

#include "framework/generic/Describe.h"

namespace BfnMacRewrite {

Kiv::Type const& SortedIpToMac::_kivType() {
  using T = SortedIpToMac;
  static Kiv::Type const type("BfnMacRewrite::SortedIpToMac", &Kiv::Entity::_kivType(),
                              {Kiv::describeConstant<&T::vrfName>("vrfName", 258)});
  return type;
}

}  // namespace BfnMacRewrite
