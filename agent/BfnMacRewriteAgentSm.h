#pragma once

#include "agent/BfnMacRewriteL3Shared.h"
#include "agent/BfnMacRewriteMount.h"
#include "agent/records/Export.h"
#include "config/BfnMacRewriteCliConfigSm.h"
#include "framework/core/ReactorSlot.h"
#include "framework/core/StateMachine.h"
#include "framework/l3/RouteStatus.h"
#include "framework/platform/BfnProfileData.h"
#include "framework/platform/SystemStatus.h"
#include "intfstatus/BfnMacRewriteIntfRoutingStatusSm.h"
#include "intfstatus/BfnMacRewriteIntfRoutingStatusTypes.h"
#include "rewrite/BfnMacRewriteSm.h"
#include "tablemgr/BfnMacRewriteTableMgr.h"

namespace BfnMacRewrite {

/// The library's entry object: brings the plug-in up in two stages, each at the host's word.
///
///  1. A change of BfnL3Output's initMacRewriteTables: the routing status collection, the active
///     profile's chip capabilities, the table manager.
///  2. A change of startMacRewriteSm: the three state machines, when the chip has the table; and in
///     every case the supported flag into the capability record.
///
/// The stages go by the change, not by the flags' values: kept. A stage that runs again keeps every
/// child whose inputs are the very objects it was made with, and replaces the others: the new child
/// is complete before the old one is switched off and goes.
///
/// Neither stage runs in the constructor, whatever the flags hold then. Destruction takes the
/// children in a fixed order and leaves the rows in the chip.
class AgentSm final : public Kiv::StateMachine<AgentSm> {
 public:
  class KivSystemStatus;
  class KivBfnL3Output;

  static Kiv::Ptr<AgentSm> AgentSmIs(
      Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
      Kiv::Ptr<BfnAgentLib::BfnProfileData> const& profileData,
      Kiv::Ptr<BfnMacRewriteMount> const& agentMount,
      Kiv::Ptr<BfnMacRewriteL3Shared> const& bfnMacRewriteL3Shared,
      Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus);

  AgentSm(Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
          Kiv::Ptr<BfnAgentLib::BfnProfileData> const& profileData,
          Kiv::Ptr<BfnMacRewriteMount> const& agentMount,
          Kiv::Ptr<BfnMacRewriteL3Shared> const& bfnMacRewriteL3Shared,
          Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus);
  ~AgentSm() override;

  void handleInitialized();
  void handleInitMacRewriteTables();
  void handleStartMacRewriteSm();

  /// Null when no system status was given.
  Kiv::Ptr<BfnSystem::SystemStatus const> systemStatus() const;
  Kiv::Ptr<BfnAgentLib::BfnProfileData> const& profileData() const { return profileData_; }
  Kiv::Ptr<BfnMacRewriteMount> const& agentMount() const { return agentMount_; }
  Kiv::Ptr<BfnMacRewriteL3Shared> const& bfnMacRewriteL3Shared() const {
    return bfnMacRewriteL3Shared_;
  }
  Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus() const {
    return routingHwRouteStatus_;
  }
  Kiv::Ptr<BfnL3Output> bfnL3Output() const;
  /// Watches `bfnL3Output` from now on; another object than before runs both stages.
  void bfnL3OutputIs(Kiv::Ptr<BfnL3Output> const& bfnL3Output);

  Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus() const {
    return intfIdToRoutingStatus_;
  }
  Kiv::Ptr<IntfIdToRoutingStatus> intfIdToRoutingStatusIs();
  void intfIdToRoutingStatusDel();

  Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteManager() const {
    return overlaySrcMacRewriteManager_;
  }
  Kiv::Ptr<OverlaySrcMacRewriteManager> overlaySrcMacRewriteManagerIs(
      Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> const& profileEntry,
      Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
      Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
      Kiv::Ptr<Pex::L3Status const> const& l3Status);
  void overlaySrcMacRewriteManagerDel();

  Kiv::Ptr<OverlaySrcMacRewriteCliConfigSm> const& overlaySrcMacRewriteCliConfigSm() const {
    return overlaySrcMacRewriteCliConfigSm_;
  }
  Kiv::Ptr<OverlaySrcMacRewriteCliConfigSm> overlaySrcMacRewriteCliConfigSmIs(
      Kiv::Ptr<Input::Config const> const& cliConfig, Kiv::Ptr<Agent::Config> const& agentConfig,
      Kiv::Ptr<Pex::L3Status const> const& l3Status);
  /// Switches the machine's notification off, then releases it; the same for the next two.
  void overlaySrcMacRewriteCliConfigSmDel();

  Kiv::Ptr<BfnMacRewriteSm> const& bfnMacRewriteSm() const { return bfnMacRewriteSm_; }
  Kiv::Ptr<BfnMacRewriteSm> bfnMacRewriteSmIs(
      Kiv::Ptr<Agent::Status const> const& agentStatus,
      Kiv::Ptr<Agent::Config const> const& agentConfig,
      Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
      Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteManager,
      Kiv::Ptr<Pex::L3Status const> const& l3Status,
      Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routeStatus);
  void bfnMacRewriteSmDel();

  Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm> const& bfnMacRewriteIntfRoutingStatusSm() const {
    return bfnMacRewriteIntfRoutingStatusSm_;
  }
  Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm> bfnMacRewriteIntfRoutingStatusSmIs(
      Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3PortAndLagRoutingStatus,
      Kiv::Ptr<BfnL3::L3RoutingStatus const> const& vlanIntfRoutingStatus,
      Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3SubIntfRoutingStatus,
      Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus);
  void bfnMacRewriteIntfRoutingStatusSmDel();

  BfnSystem::ChipCapabilities const& chipCapabilities() const { return chipCapabilities_; }
  /// Stores a copy and tells nobody.
  void chipCapabilitiesIs(BfnSystem::ChipCapabilities const& chipCapabilities);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

  template <class F>
  void kivEachReactor(F f) {
    f(systemStatus_);
    f(bfnL3Output_);
  }
  template <class F>
  void kivEachChild(F f) {
    f(overlaySrcMacRewriteCliConfigSm_);
    f(bfnMacRewriteSm_);
    f(bfnMacRewriteIntfRoutingStatusSm_);
  }

 private:
  Kiv::ReactorSlot<KivSystemStatus, BfnSystem::SystemStatus const, AgentSm> systemStatus_;
  Kiv::Ptr<BfnAgentLib::BfnProfileData> const profileData_;
  Kiv::Ptr<BfnMacRewriteMount> const agentMount_;
  Kiv::Ptr<BfnMacRewriteL3Shared> const bfnMacRewriteL3Shared_;
  Kiv::Ptr<Routing::Hardware::RouteStatus const> const routingHwRouteStatus_;
  Kiv::ReactorSlot<KivBfnL3Output, BfnL3Output, AgentSm> bfnL3Output_;
  Kiv::Ptr<IntfIdToRoutingStatus> intfIdToRoutingStatus_;
  Kiv::Ptr<OverlaySrcMacRewriteManager> overlaySrcMacRewriteManager_;
  Kiv::Ptr<OverlaySrcMacRewriteCliConfigSm> overlaySrcMacRewriteCliConfigSm_;
  Kiv::Ptr<BfnMacRewriteSm> bfnMacRewriteSm_;
  Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm> bfnMacRewriteIntfRoutingStatusSm_;
  BfnSystem::ChipCapabilities chipCapabilities_;
};

/// What the host agent calls once the mounts are done. Returns AgentSmIs with the same arguments,
/// all of which the agent holds for its life. The mount and the shared object must be there; any of
/// the others, and whatever those two have not got, may be null and contributes nothing. A null
/// system status reads as an unknown profile.
BFN_MAC_REWRITE_EXPORT Kiv::Ptr<AgentSm> agentSmFactory(
    Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
    Kiv::Ptr<BfnAgentLib::BfnProfileData> const& profileData,
    Kiv::Ptr<BfnMacRewriteMount> const& mount, Kiv::Ptr<BfnMacRewriteL3Shared> const& l3Shared,
    Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routeStatus);

}  // namespace BfnMacRewrite

// Made where the machine's reactors are complete.
extern template class Kiv::StateMachine<BfnMacRewrite::AgentSm>;
