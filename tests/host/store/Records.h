// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sstream>
#include <string>

#include "framework/core/Notifiee.h"
#include "framework/core/Ptr.h"
#include "framework/generic/Type.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IpAddr.h"

// The records that the store's tests keep, and short forms of their keys and values.
namespace BfnTest {

constexpr char const* kConfigPath = "vxlan/hardware/srcMacRewrite/config";
constexpr char const* kConfigType = "BfnMacRewrite::Input::Config";
constexpr char const* kCapabilityPath = "vxlan/hardware/srcMacRewrite/capability";
constexpr char const* kCapabilityType = "BfnMacRewrite::Capability";
constexpr char const* kVrfsPath = "host/l3Status";
constexpr char const* kVrfsType = "Pex::L3Status";
constexpr char const* kPortsPath = "host/portStatus";
constexpr char const* kPortsType = "BfnL3::L3RoutingStatus";
constexpr char const* kRoutesPath = "host/routeStatus";
constexpr char const* kRoutesType = "Routing::Hardware::RouteStatus";
constexpr char const* kSystemPath = "host/systemStatus";
constexpr char const* kSystemType = "BfnSystem::SystemStatus";
constexpr char const* kAddressesPath = "host/addresses";
constexpr char const* kAddressesType = "BfnMacRewrite::Agent::Status";

/// The string form of any value.
template <class T>
std::string form(T const& value) {
  return Kiv::GenericValue::of(value).strep().stdString();
}

/// All that an object holds, as text.
inline std::string textOf(Kiv::PtrInterface const& object) {
  std::ostringstream text;
  Kiv::genericPrint(text, object);
  return text.str();
}

}  // namespace BfnTest
