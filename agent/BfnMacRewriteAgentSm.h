// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <tuple>
#include <utility>

#include "agent/BfnMacRewriteL3Shared.h"
#include "agent/BfnMacRewriteMount.h"
#include "agent/records/Export.h"
#include "config/BfnMacRewriteCliConfigSm.h"
#include "framework/collections/ReactorSlot.h"
#include "framework/core/Reactor.h"
#include "framework/core/StateMachine.h"
#include "framework/l3/RouteStatus.h"
#include "framework/platform/BfnProfileData.h"
#include "framework/platform/SystemStatus.h"
#include "intfstatus/BfnMacRewriteIntfRoutingStatusSm.h"
#include "intfstatus/BfnMacRewriteIntfRoutingStatusTypes.h"
#include "rewrite/BfnMacRewriteSm.h"
#include "tablemgr/BfnMacRewriteTableMgr.h"

namespace BfnMacRewrite {

/// The library's entry object: brings the plug-in up in two stages, each on the host's request.
///
///  1. A change of BfnL3Output's initMacRewriteTables: the routing status collection, the active
///     profile's chip capabilities, the table manager.
///  2. A change of startMacRewriteSm: the three state machines, when the chip has the table; and in
///     every case the supported flag into the capability record.
///
/// Deliberate: any change of a flag runs its stage, also one to false. A stage that runs again
/// keeps every child whose inputs are the very objects it was made with, and replaces the others:
/// the new child is complete before the old one is switched off and released.
///
/// Neither stage runs in the constructor, whatever the flags hold then. Destruction deletes the
/// children in a fixed order and leaves the rows in the chip.
class BFN_MAC_REWRITE_EXPORT AgentSm final : public Kiv::StateMachine<AgentSm> {
 public:
  static Kiv::Ptr<AgentSm> AgentSmIs(auto const&... inputs) {
    return Kiv::makeActive<AgentSm>(inputs...);
  }
  AgentSm(Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
          Kiv::Ptr<BfnAgentLib::BfnProfileData> const& profileData,
          Kiv::Ptr<BfnMacRewriteMount> const& agentMount,
          Kiv::Ptr<BfnMacRewriteL3Shared> const& bfnMacRewriteL3Shared,
          Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus);
  ~AgentSm() override;

  void handleInitialized();
  void handleInitMacRewriteTables();
  void handleStartMacRewriteSm();
  /// The same without nesting: a stage that a handler requests during another one runs after that
  /// one.
  void runInitMacRewriteTables() { run(tablesWanted_); }
  void runStartMacRewriteSm() { run(startWanted_); }

  /// Holds the system status; handles none of its attributes.
  struct KivSystemStatus final
      : Kiv::Reactor<KivSystemStatus, BfnSystem::SystemStatus const, AgentSm> {};
  struct KivBfnL3Output final
      : Kiv::Reactor<KivBfnL3Output, BfnL3Output, AgentSm,
                     Kiv::On<BfnL3Output::kInitMacRewriteTables, &AgentSm::runInitMacRewriteTables>,
                     Kiv::On<BfnL3Output::kStartMacRewriteSm, &AgentSm::runStartMacRewriteSm>> {};

  /// Null when no system status was given.
  Kiv::Ptr<BfnSystem::SystemStatus const> systemStatus() const { return systemStatus_.notifier(); }
  auto const& profileData() const { return profileData_; }
  auto const& agentMount() const { return agentMount_; }
  auto const& bfnMacRewriteL3Shared() const { return bfnMacRewriteL3Shared_; }
  auto const& routingHwRouteStatus() const { return routingHwRouteStatus_; }
  Kiv::Ptr<BfnL3Output> bfnL3Output() const { return bfnL3Output_.notifier(); }
  /// Watches `bfnL3Output` from now on; another object than before runs both stages.
  void bfnL3OutputIs(Kiv::Ptr<BfnL3Output> const& output) { bfnL3Output_.is(output, this); }

  // The children, each with its creator and deleter.

  auto const& intfIdToRoutingStatus() const { return intfIdToRoutingStatus_; }
  Kiv::Ptr<IntfIdToRoutingStatus> intfIdToRoutingStatusIs();
  void intfIdToRoutingStatusDel() { intfIdToRoutingStatus_.reset(); }

  auto const& overlaySrcMacRewriteManager() const { return overlaySrcMacRewriteManager_; }
  /// Takes the child's constructor arguments; keeps a child that holds these very objects, and
  /// otherwise replaces it by a new one. The same for the next three.
  auto overlaySrcMacRewriteManagerIs(auto const&... inputs) {
    return childIs(overlaySrcMacRewriteManager_, inputs...);
  }
  void overlaySrcMacRewriteManagerDel() { overlaySrcMacRewriteManager_.reset(); }

  auto const& overlaySrcMacRewriteCliConfigSm() const { return overlaySrcMacRewriteCliConfigSm_; }
  auto overlaySrcMacRewriteCliConfigSmIs(auto const&... inputs) {
    return childIs(overlaySrcMacRewriteCliConfigSm_, inputs...);
  }
  /// Switches the machine's notification off, then releases it; the same for the next two.
  void overlaySrcMacRewriteCliConfigSmDel() { drop(overlaySrcMacRewriteCliConfigSm_); }

  auto const& bfnMacRewriteSm() const { return bfnMacRewriteSm_; }
  auto bfnMacRewriteSmIs(auto const&... inputs) { return childIs(bfnMacRewriteSm_, inputs...); }
  void bfnMacRewriteSmDel() { drop(bfnMacRewriteSm_); }

  auto const& bfnMacRewriteIntfRoutingStatusSm() const { return bfnMacRewriteIntfRoutingStatusSm_; }
  auto bfnMacRewriteIntfRoutingStatusSmIs(auto const&... inputs) {
    return childIs(bfnMacRewriteIntfRoutingStatusSm_, inputs...);
  }
  void bfnMacRewriteIntfRoutingStatusSmDel() { drop(bfnMacRewriteIntfRoutingStatusSm_); }

  BfnSystem::ChipCapabilities const& chipCapabilities() const { return chipCapabilities_; }
  /// Stores a copy; does not notify.
  void chipCapabilitiesIs(BfnSystem::ChipCapabilities const& chipCapabilities) {
    chipCapabilities_ = chipCapabilities;
  }

  static Kiv::Type const& _kivType();

  void kivEachReactor(auto f) {
    f(systemStatus_);
    f(bfnL3Output_);
  }
  void kivEachChild(auto f) {
    f(overlaySrcMacRewriteCliConfigSm_);
    f(bfnMacRewriteSm_);
    f(bfnMacRewriteIntfRoutingStatusSm_);
  }

 private:
  void run(bool& wanted);

  template <class Child, class... Inputs>
  static Kiv::Ptr<Child> childIs(Kiv::Ptr<Child>& child, Inputs const&... inputs) {
    if (child && child->inputs() == std::tie(inputs...)) return child;
    // Complete and running before the old one goes, which is silent also when others hold it.
    Kiv::Ptr<Child> old = std::exchange(child, Kiv::makeActive<Child>(inputs...));
    if constexpr (!std::same_as<Child, OverlaySrcMacRewriteManager>) drop(old);
    return child;
  }
  template <class Child>
  static void drop(Kiv::Ptr<Child>& child) {
    if (!child) return;
    static_cast<Kiv::PtrInterface&>(*child).hasNotificationActiveIs(false);
    child.reset();
  }

  Kiv::ReactorSlot<KivSystemStatus> systemStatus_;
  Kiv::Ptr<BfnAgentLib::BfnProfileData> const profileData_;
  Kiv::Ptr<BfnMacRewriteMount> const agentMount_;
  Kiv::Ptr<BfnMacRewriteL3Shared> const bfnMacRewriteL3Shared_;
  Kiv::Ptr<Routing::Hardware::RouteStatus const> const routingHwRouteStatus_;
  Kiv::ReactorSlot<KivBfnL3Output> bfnL3Output_;
  Kiv::Ptr<IntfIdToRoutingStatus> intfIdToRoutingStatus_;
  Kiv::Ptr<OverlaySrcMacRewriteManager> overlaySrcMacRewriteManager_;
  Kiv::Ptr<OverlaySrcMacRewriteCliConfigSm> overlaySrcMacRewriteCliConfigSm_;
  Kiv::Ptr<BfnMacRewriteSm> bfnMacRewriteSm_;
  Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm> bfnMacRewriteIntfRoutingStatusSm_;
  BfnSystem::ChipCapabilities chipCapabilities_;
  bool running_ = false;
  bool tablesWanted_ = false;
  bool startWanted_ = false;
};

/// Called by the host agent once the mounts are done. Returns AgentSmIs with the same arguments,
/// all of which the agent holds for its life. The mount and the shared object must be there; any of
/// the others, and whatever those two have not got, may be null and contributes nothing. A null
/// system status reads as an unknown profile. Deliberate: with a null profile entry no table is
/// ever declared; when the named profile has the table all the same, the first row is fatal.
BFN_MAC_REWRITE_EXPORT Kiv::Ptr<AgentSm> agentSmFactory(
    Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
    Kiv::Ptr<BfnAgentLib::BfnProfileData> const& profileData,
    Kiv::Ptr<BfnMacRewriteMount> const& mount, Kiv::Ptr<BfnMacRewriteL3Shared> const& l3Shared,
    Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routeStatus);

}  // namespace BfnMacRewrite
