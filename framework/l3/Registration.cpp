// SPDX-License-Identifier: Apache-2.0
#include "framework/generic/Type.h"
#include "framework/l3/L3RoutingStatus.h"
#include "framework/l3/L3Status.h"
#include "framework/l3/RouteStatus.h"

namespace {

// What the host's L3 agent publishes, so that a state database can hold it.
Kiv::TypeRegistration const l3Registration{
    &Pex::L3Status::_kivType,
    &BfnL3::L3RoutingStatus::_kivType,
    &Routing::Hardware::RouteStatus::_kivType,
};

}  // namespace
