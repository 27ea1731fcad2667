// SPDX-License-Identifier: Apache-2.0
#include "rewrite/VrfIpCollection.h"

#include "framework/generic/Describe.h"

namespace BfnMacRewrite {

Kiv::Type const& VrfIpCollection::_kivType() {
  using T = VrfIpCollection;
  static Kiv::Type const type("BfnMacRewrite::VrfIpCollection", &Kiv::Entity::_kivType(),
                              {Kiv::describeConstant<&T::intfId>("intfId", 258),
                               Kiv::describeCollection<&T::vrfAndIpAddr_>("vrfAndIpAddr", 259)});
  return type;
}

}  // namespace BfnMacRewrite
