#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/log/LogService.h"
#include "tests/model/Event.h"
#include "tests/model/Model.h"
#include "tests/model/Universe.h"
#include "tests/support/PluginHost.h"

namespace ModelTest {

/// The plug-in with a host around it, for the events of the sequences. Takes the process's log
/// service for as long as it lives.
class World {
 public:
  World();
  World(World const&) = delete;
  World& operator=(World const&) = delete;
  ~World();

  /// Brings the event about; false exceptions are given back by their kind, any other one passes.
  Thrown apply(Event const& event);

  // What events are made of.
  Kiv::Ptr<BfnMacRewrite::Agent::Status> status(int which) const;
  void routingStatus(int object, Pex::PortVlanPair const& key, unsigned vlan, unsigned vrfId);
  void routingVlan(int object, Pex::PortVlanPair const& key, unsigned vlan);
  void addressDel(int which, Pex::VrfId vrfId, Ovra::IpAddr ip);
  void addressDelAll(int which, Pex::VrfId vrfId);
  void route(L3::VrfName name, unsigned vrfId, unsigned vlan);
  void routeId(L3::VrfName name, unsigned vrfId);
  void routeVlan(L3::VrfName name, unsigned vlan);
  void newAgentConfig();
  void newAgentStatus();
  void supported(bool supported);
  void create();
  void stage1();
  void stage2();

  double clock = 1000;
  BfnChip::ChipModel chip{1000};
  Kiv::Ptr<BfnSystem::SystemStatus> systemStatus;
  Table<Kiv::Ptr<BfnAgentLib::BfnProfileData>, kEntries> profileData;
  Table<Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry>, kEntries> entry;
  Kiv::Ptr<BfnMacRewrite::BfnMacRewriteMount> mount;
  Table<Kiv::Ptr<BfnMacRewrite::Input::Config>, kClis> cli;
  Kiv::Ptr<BfnMacRewrite::Capability> capability;
  Kiv::Ptr<BfnMacRewrite::BfnMacRewriteL3Shared> l3Shared;
  Table<Kiv::Ptr<Pex::L3Status>, kL3> l3;
  Table<Kiv::Ptr<BfnL3::L3RoutingStatus>, kRouting> routing;
  Kiv::Ptr<Routing::Hardware::RouteStatus> routeStatus;
  Kiv::Ptr<BfnMacRewrite::AgentSm> agent;
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

}  // namespace ModelTest
