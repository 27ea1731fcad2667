// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/log/LogService.h"
#include "tests/model/Event.h"
#include "tests/model/Model.h"
#include "tests/model/Universe.h"
#include "tests/support/PluginHost.h"

namespace BfnTest {

/// A host for the events of the sequences: with several objects of each kind, of which it gives the
/// plug-in the first ones. Takes the process's log service for as long as it lives.
class World : public PluginHost {
 public:
  World();
  ~World();

  /// Brings the event about; expected exceptions are returned by their kind, any other one passes.
  Thrown apply(Event const& event);

  // What events are made of.

  /// The current status object, or the one that the machine watches.
  Kiv::Ptr<BfnMacRewrite::Agent::Status> status(bool watched) const;
  void routingStatus(int object, Pex::PortVlanPair const& key, unsigned vlan, unsigned vrfId);
  void routingVlan(int object, Pex::PortVlanPair const& key, unsigned vlan);
  void useRouting(int source, Kiv::Ptr<BfnL3::L3RoutingStatus> const& object);
  void addressDel(bool watched, Pex::VrfId vrfId, Ovra::IpAddr ip);
  void addressDelAll(bool watched, Pex::VrfId vrfId);
  void routeIs(L3::VrfName name, unsigned vrfId, unsigned vlan);
  void routeIdIs(L3::VrfName name, unsigned vrfId);
  void routeVlanIs(L3::VrfName name, unsigned vlan);
  void newAgentConfig();
  void newAgentStatus();

  double clock = 1000;
  Table<Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry>, kEntries> entry;
  Table<Kiv::Ptr<BfnMacRewrite::Input::Config>, kClis> cli;
  Table<Kiv::Ptr<Pex::L3Status>, kL3> l3;
  Table<Kiv::Ptr<BfnL3::L3RoutingStatus>, kRouting> routing;
  /// Every interface status ever made, by the model's serial; the serials run over the route status
  /// as well.
  std::vector<Kiv::Ptr<BfnL3::L3IntfRoutingStatus>> made{nullptr};
  std::vector<Kiv::LogMessage> logged;
};

/// The order of this process's collections, asked of ones that hold the whole universe.
Orders askOrders();

/// What differs between what the event did and what the model says that it does; nothing when they
/// agree. Empties the world's journal and log.
std::optional<std::string> effectsDiffer(World& world, Thrown thrown, Effects const& expected);
/// What differs between the world and the model's state.
std::optional<std::string> stateDiffers(World const& world, State const& expected);

}  // namespace BfnTest
