// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/corvo/Database.h"
#include "framework/corvo/Replica.h"
#include "framework/l3/L3RoutingStatus.h"
#include "framework/l3/L3Status.h"
#include "framework/l3/RouteStatus.h"
#include "framework/platform/SystemStatus.h"
#include "host/commands/KnownValues.h"
#include "host/service/Records.h"
#include "host/store/StoreMirror.h"
#include "host/switch/Switch.h"

namespace Host {

/// Paths of the state database. All but the configuration are one switch's own.
namespace InputPath {
inline constexpr char kConfig[] = "vxlan/hardware/srcMacRewrite/config";
inline constexpr char kCapability[] = "vxlan/hardware/srcMacRewrite/capability";
inline constexpr char kVrfs[] = "host/l3Status";
inline constexpr char kRoutes[] = "host/routeStatus";
inline constexpr char kProfiles[] = "host/systemStatus";
inline constexpr char kAddresses[] = "host/addresses";
inline constexpr char kBringUp[] = "host/bringUp";
inline constexpr char kPorts[] = "host/ports";
/// `which`: "port", "vlan" or "subinterface".
std::string routingStatus(std::string_view which);
}  // namespace InputPath

/// The inputs of the plug-in as the state database has them.
///
/// The mirror must outlive it. Records are there from make() on, and stay the same objects.
class Inputs {
 public:
  Inputs(StoreMirror& mirror, Corvo::Database& database) : mirror_(mirror), database_(database) {}
  Inputs(Inputs const&) = delete;
  Inputs& operator=(Inputs const&) = delete;

  /// Makes the records that the store does not have. Throws StoreError.
  void make();
  bool made() const { return made_; }

  /// Why the agent cannot be brought up with them; nothing when it can.
  std::optional<std::string> lacks() const;
  /// What the store holds of them that cannot be read: places and reasons, a line each.
  std::string unreadable() const;

  /// Makes them the inputs of the switch, which has its plug-in and has no agent yet. Profiles
  /// that are known, and those that come, get an entry at the switch.
  void connect(Switch& to);

  /// Where names are known from. The switch must outlive it.
  KnownInputs known(Switch const& of) const;

  BringUp const& bringUp() const { return record<BringUp>(InputPath::kBringUp); }
  ChipPorts const& ports() const { return record<ChipPorts>(InputPath::kPorts); }
  Pex::L3Status const& vrfs() const { return record<Pex::L3Status>(InputPath::kVrfs); }
  BfnSystem::SystemStatus const& profiles() const {
    return record<BfnSystem::SystemStatus>(InputPath::kProfiles);
  }
  Kiv::Ptr<Kiv::PtrInterface> object(std::string const& path) const {
    return database_.object(path);
  }

 private:
  template <class T>
  Kiv::Ptr<T> shared(std::string const& path) const;
  template <class T>
  T const& record(std::string const& path) const {
    return static_cast<T const&>(*database_.object(path));
  }

  StoreMirror& mirror_;
  Corvo::Database& database_;
  bool made_ = false;
  std::optional<Corvo::Replica> addresses_;
};

}  // namespace Host
