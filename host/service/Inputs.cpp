// SPDX-License-Identifier: Apache-2.0
#include "host/service/Inputs.h"

#include <array>
#include <utility>

#include "agent/records/BfnMacRewriteInput.h"
#include "agent/records/BfnMacRewriteTypes.h"

namespace Host {

namespace {

struct Place {
  std::string path;
  Kiv::Type const& type;
};

// Naming the types by their functions also links the libraries that register them.
std::array<Place, 10> places() {
  Kiv::Type const& routingStatus = BfnL3::L3RoutingStatus::_kivType();
  return {{{InputPath::kConfig, BfnMacRewrite::Input::Config::_kivType()},
           {InputPath::kVrfs, Pex::L3Status::_kivType()},
           {InputPath::routingStatus("port"), routingStatus},
           {InputPath::routingStatus("vlan"), routingStatus},
           {InputPath::routingStatus("subinterface"), routingStatus},
           {InputPath::kRoutes, Routing::Hardware::RouteStatus::_kivType()},
           {InputPath::kProfiles, BfnSystem::SystemStatus::_kivType()},
           {InputPath::kAddresses, BfnMacRewrite::Agent::Status::_kivType()},
           {InputPath::kBringUp, BringUp::_kivType()},
           {InputPath::kPorts, ChipPorts::_kivType()}}};
}

}  // namespace

std::string InputPath::routingStatus(std::string_view which) {
  return "host/" + std::string(which) + "Status";
}

void Inputs::make() {
  std::vector<StoreChange> changes;
  for (Place const& place : places()) {
    if (database_.object(place.path)) continue;
    changes.push_back(
        {StoreChange::Kind::Make, place.path, {}, {}, std::string(place.type.name()), {}, {}});
  }
  if (!changes.empty()) mirror_.submit(std::move(changes));
  for (Place const& place : places()) {
    auto const there = database_.object(place.path);
    if (!there || &there->fwkType() != &place.type) {
      throw StoreRefused(mirror_.store().name() + ": what is at " + place.path + " is no " +
                         std::string(place.type.name()));
    }
  }
  made_ = true;
}

std::string Inputs::unreadable() const {
  std::string lines;
  for (auto const& [where, why] : mirror_.unreadable()) {
    for (Place const& place : places()) {
      if (where.find(place.path) == std::string::npos) continue;
      if (!lines.empty()) lines += '\n';
      lines.append(where).append(": ").append(why);
      break;
    }
  }
  return lines;
}

std::optional<std::string> Inputs::lacks() const {
  if (!made_) return "the state store has not been read yet";
  if (std::string const lines = unreadable(); !lines.empty()) {
    return "the state store holds what cannot be read: " + lines.substr(0, lines.find('\n'));
  }
  Kiv::String const& profile = bringUp().activeProfile();
  if (profile.empty()) return "there is no active profile";
  if (profiles().profileInfo(profile) == nullptr) {
    return "there is no profile \"" + profile.stdString() + "\", the active one";
  }
  if (!bringUp().inputsComplete()) return "the inputs are not complete yet";
  return std::nullopt;
}

template <class T>
Kiv::Ptr<T> Inputs::shared(std::string const& path) const {
  return Kiv::Ptr<T>(static_cast<T*>(database_.object(path).get()));
}

KnownInputs Inputs::known(Switch const& of) const {
  KnownInputs known(of);
  known.vrfs = shared<Pex::L3Status>(InputPath::kVrfs);
  known.routes = shared<Routing::Hardware::RouteStatus>(InputPath::kRoutes);
  known.profiles = shared<BfnSystem::SystemStatus>(InputPath::kProfiles);
  known.addresses = database_.object(InputPath::kAddresses);
  auto* interfaces = known.interfaces.data();
  for (char const* const which : {"port", "vlan", "subinterface"}) {
    *interfaces++ = shared<BfnL3::L3RoutingStatus>(InputPath::routingStatus(which));
  }
  return known;
}

void Inputs::connect(Switch& to) {
  to.systemStatus = shared<BfnSystem::SystemStatus>(InputPath::kProfiles);
  to.routeStatus = shared<Routing::Hardware::RouteStatus>(InputPath::kRoutes);
  set(to.l3Shared(), "l3Status", {database_.object(InputPath::kVrfs)});
  for (char const* const which : {"port", "vlan", "subinterface"}) {
    set(to.l3Shared(), routingStatusAttribute(which),
        {database_.object(InputPath::routingStatus(which))});
  }
  addresses_.emplace(database_.object(InputPath::kAddresses), to.agentStatus(),
                     InputPath::kAddresses);
}

}  // namespace Host
