// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "agent/BfnMacRewriteAgentSm.h"
#include "agent/BfnMacRewriteL3Shared.h"
#include "agent/BfnMacRewriteMount.h"
#include "chip/ChipModel.h"
#include "framework/l3/L3RoutingStatus.h"
#include "framework/l3/L3Status.h"
#include "framework/l3/RouteStatus.h"
#include "framework/platform/BfnProfileData.h"
#include "framework/platform/SystemStatus.h"
#include "framework/platform/TableInitialization.h"

namespace BfnTest {

Ovra::IpAddr ip(char const* text);
Ovra::EthAddr mac(char const* text);

/// Everything that a host has around the plug-in: the chip, the platform's records, the host
/// agent's records, the mounted configuration. Each is a public member that a test may replace
/// before bringUp(), or set to null.
class PluginHost {
 public:
  static constexpr char const* kProfile = "vxlan-routing";

  explicit PluginHost(size_t capacity = BfnChip::ChipModel::kDefaultCapacity);
  ~PluginHost();

  /// Gives the plug-in the records below: mount, shared object, profile.
  void connect();
  /// Makes the agent through agentSmFactory, in place of an earlier one; nothing is set up yet.
  void agentIs();
  /// Both.
  void createAgent();
  /// Flips initMacRewriteTables and has the platform initialise what is declared.
  void stage1();
  /// Flips startMacRewriteSm.
  void stage2();
  /// createAgent() and both stages.
  void bringUp();
  /// What the chip says of the profile: whether it has the table, with 1,000 rows.
  void supportedIs(bool supported);

  // The host agent's hand.
  void vrf(char const* name, unsigned id) { l3Status->vrfIs(L3::VrfName(name), Pex::VrfId(id)); }
  /// A routed port with routing status.
  void port(char const* intf, unsigned vlan, unsigned vrfId = 0);
  void portDel(char const* intf);
  void address(unsigned vrfId, char const* ipText, char const* intf, bool self = false);
  void addressDel(unsigned vrfId, char const* ipText);
  void route(char const* vrfName, unsigned vrfId, unsigned fwdVlan);
  // The operator's hand.
  void rewrite(char const* vrfName, char const* ipText, char const* macText);
  void rewriteDel(char const* vrfName, char const* ipText);

  /// The chip's rows as text, sorted: "100 10.0.0.1 02:11:22:33:44:55".
  std::vector<std::string> rows() const;
  /// What was written and deleted since the last call: "write 100 10.0.0.1 02:..", "erase 100 ..",
  /// with " full" and the like after what failed.
  std::vector<std::string> journal();

  BfnChip::ChipModel chip;
  /// The plug-in's driver where it is not the chip; not owned.
  BfnDriver::TableDriver* driver = nullptr;
  Kiv::Ptr<BfnSystem::SystemStatus> systemStatus;
  Kiv::Ptr<BfnAgentLib::BfnProfileData> profileData;
  Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> profileEntry;
  Kiv::Ptr<BfnMacRewrite::BfnMacRewriteMount> mount;
  Kiv::Ptr<BfnMacRewrite::Input::Config> cliConfig;
  Kiv::Ptr<BfnMacRewrite::Capability> capability;
  Kiv::Ptr<BfnMacRewrite::BfnMacRewriteL3Shared> l3Shared;
  Kiv::Ptr<Pex::L3Status> l3Status;
  Kiv::Ptr<BfnL3::L3RoutingStatus> ports;
  Kiv::Ptr<BfnL3::L3RoutingStatus> vlans;
  Kiv::Ptr<BfnL3::L3RoutingStatus> subIntfs;
  Kiv::Ptr<Routing::Hardware::RouteStatus> routeStatus;
  Kiv::Ptr<BfnMacRewrite::AgentSm> agent;
};

}  // namespace BfnTest
