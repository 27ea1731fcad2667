// SPDX-License-Identifier: Apache-2.0
#include "intfstatus/BfnMacRewriteIntfRoutingStatusTypes.h"

#include "framework/generic/Describe.h"

namespace BfnMacRewrite {

Kiv::Type const& IntfIdToRoutingStatus::_kivType() {
  using T = IntfIdToRoutingStatus;
  static Kiv::Type const type("BfnMacRewrite::IntfIdToRoutingStatus", &Kiv::Entity::_kivType(),
                              {Kiv::describeCollection<&T::l3IntfRoutingStatus_>(
                                  "l3IntfRoutingStatus", kL3IntfRoutingStatus.id)},
                              Kiv::describeDefault<T>());
  return type;
}

}  // namespace BfnMacRewrite
