// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/values/EthAddr.h"
#include "framework/values/IntfId.h"
#include "framework/values/IpAddr.h"
#include "framework/values/PortVlanPair.h"
#include "framework/values/VrfId.h"
#include "framework/values/VrfName.h"
#include "tests/model/Universe.h"

// The universe's values as the plug-in's.
namespace BfnTest {

L3::VrfName name(int index);
Pex::VrfId id(int index);
Ovra::IpAddr ip(int index);
Ovra::IntfId intf(int index);
Ovra::EthAddr mac(int index);
Pex::PortVlanPair key(int intfIndex, int vlan);

}  // namespace BfnTest
