#include "agent/BfnMacRewriteAgentSm.h"

#include "framework/core/Reactor.h"
#include "framework/generic/Describe.h"
#include "framework/trace/Trace.h"

KIV_TRACE_FACILITY("BfnMacRewriteAgentSm")

namespace BfnMacRewrite {

/// Holds the system status; there is nothing in it that this machine reacts to.
class AgentSm::KivSystemStatus final
    : public Kiv::Reactor<KivSystemStatus, BfnSystem::SystemStatus const, AgentSm> {
 public:
  using Reactor::Reactor;
  using Rows = Kiv::Rows<>;
};

class AgentSm::KivBfnL3Output final : public Kiv::Reactor<KivBfnL3Output, BfnL3Output, AgentSm> {
 public:
  using Reactor::Reactor;
  using Rows =
      Kiv::Rows<Kiv::On<BfnL3Output::kInitMacRewriteTables, &AgentSm::handleInitMacRewriteTables>,
                Kiv::On<BfnL3Output::kStartMacRewriteSm, &AgentSm::handleStartMacRewriteSm>>;
};

void AgentSm::handleInitMacRewriteTables() {
  if (!initialized()) return;
  Kiv::Ptr<AgentSm> const self(this);  // as below: whoever watches the table list may drop it
  intfIdToRoutingStatusIs();
  Kiv::Ptr<BfnL3Output> const output = bfnL3Output();
  Kiv::Ptr<BfnSystem::SystemStatus const> const status = systemStatus();
  auto const* const profile = status ? status->profileInfo(output->profileName()) : nullptr;
  chipCapabilitiesIs(profile == nullptr ? BfnSystem::ChipCapabilities()
                                        : profile->chipCapabilities());
  overlaySrcMacRewriteManagerIs(output->profileEntry(), status, intfIdToRoutingStatus_,
                                bfnMacRewriteL3Shared_->l3Status());
}

// The trace in this handler is known by its line to those who read recorded rings, so it stays on
// line 51 of this file whatever happens above it; a test says so.

void AgentSm::handleStartMacRewriteSm() {
  if (!initialized()) return;
  BfnSystem::ChipCapabilities const capabilities = chipCapabilities();
  bool const supported = capabilities.overlaySrcMacRewriteSupported;
  // Each step may run foreign handlers, down to one that drops the agent.
  Kiv::Ptr<AgentSm> const self(this);
  Kiv::Ptr<BfnMacRewriteMount> const mount = agentMount_;
  if (supported) {
    KIV_TRACE(9, "");
    auto const& l3Shared = *bfnMacRewriteL3Shared_;
    bfnMacRewriteIntfRoutingStatusSmIs(l3Shared.l3PortAndLagRoutingStatus(),
                                       l3Shared.vlanIntfRoutingStatus(),
                                       l3Shared.l3SubIntfRoutingStatus(), intfIdToRoutingStatus_);
    bfnMacRewriteSmIs(mount->bfnMacRewriteAgentStatus(), mount->bfnMacRewriteAgentConfig(),
                      intfIdToRoutingStatus_, overlaySrcMacRewriteManager_, l3Shared.l3Status(),
                      routingHwRouteStatus_);
    overlaySrcMacRewriteCliConfigSmIs(mount->bfnMacRewriteCliConfig(),
                                      mount->bfnMacRewriteAgentConfig(), l3Shared.l3Status());
  }
  if (Kiv::Ptr<Capability> const capability = mount->bfnMacRewriteCapability()) {
    capability->overlaySrcMacRewriteSupportedIs(supported);
  }
}

Kiv::Ptr<AgentSm> agentSmFactory(
    Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
    Kiv::Ptr<BfnAgentLib::BfnProfileData> const& profileData,
    Kiv::Ptr<BfnMacRewriteMount> const& mount, Kiv::Ptr<BfnMacRewriteL3Shared> const& l3Shared,
    Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routeStatus) {
  return AgentSm::AgentSmIs(systemStatus, profileData, mount, l3Shared, routeStatus);
}

Kiv::Ptr<AgentSm> AgentSm::AgentSmIs(
    Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
    Kiv::Ptr<BfnAgentLib::BfnProfileData> const& profileData,
    Kiv::Ptr<BfnMacRewriteMount> const& agentMount,
    Kiv::Ptr<BfnMacRewriteL3Shared> const& bfnMacRewriteL3Shared,
    Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus) {
  return Kiv::makeActive<AgentSm>(systemStatus, profileData, agentMount, bfnMacRewriteL3Shared,
                                  routingHwRouteStatus);
}

AgentSm::AgentSm(Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
                 Kiv::Ptr<BfnAgentLib::BfnProfileData> const& profileData,
                 Kiv::Ptr<BfnMacRewriteMount> const& agentMount,
                 Kiv::Ptr<BfnMacRewriteL3Shared> const& bfnMacRewriteL3Shared,
                 Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus)
    : profileData_(profileData),
      agentMount_(agentMount),
      bfnMacRewriteL3Shared_(bfnMacRewriteL3Shared),
      routingHwRouteStatus_(routingHwRouteStatus) {
  systemStatus_.is(systemStatus, this);
  handleInitialized();
}

AgentSm::~AgentSm() {
  kivTeardown();
  intfIdToRoutingStatusDel();
  overlaySrcMacRewriteManagerDel();
  overlaySrcMacRewriteCliConfigSmDel();
  bfnMacRewriteSmDel();
  bfnMacRewriteIntfRoutingStatusSmDel();
}

void AgentSm::handleInitialized() {
  bfnL3OutputIs(bfnMacRewriteL3Shared_->bfnL3Output());
  initializedIs(true);
}

namespace {

template <class Child>
void switchOffAndRelease(Kiv::Ptr<Child>& child) {
  if (!child) return;
  static_cast<Kiv::PtrInterface&>(*child).hasNotificationActiveIs(false);
  child.reset();
}

/// Stores a child that is complete and running. The old one is silent from then on, also in the
/// hands of somebody else.
template <class Child>
void replace(Kiv::Ptr<Child>& child, Kiv::Ptr<Child> const& made) {
  Kiv::Ptr<Child> old = child;
  child = made;
  switchOffAndRelease(old);
}

}  // namespace

Kiv::Ptr<BfnSystem::SystemStatus const> AgentSm::systemStatus() const {
  return systemStatus_.notifier();
}
Kiv::Ptr<BfnL3Output> AgentSm::bfnL3Output() const {
  return bfnL3Output_.notifier();
}
void AgentSm::bfnL3OutputIs(Kiv::Ptr<BfnL3Output> const& bfnL3Output) {
  bfnL3Output_.is(bfnL3Output, this);
}

Kiv::Ptr<IntfIdToRoutingStatus> AgentSm::intfIdToRoutingStatusIs() {
  if (!intfIdToRoutingStatus_) {
    intfIdToRoutingStatus_ = Kiv::makeActive<IntfIdToRoutingStatus>();
  }
  return intfIdToRoutingStatus_;
}
void AgentSm::intfIdToRoutingStatusDel() {
  intfIdToRoutingStatus_.reset();
}

Kiv::Ptr<OverlaySrcMacRewriteManager> AgentSm::overlaySrcMacRewriteManagerIs(
    Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> const& profileEntry,
    Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
    Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
    Kiv::Ptr<Pex::L3Status const> const& l3Status) {
  auto const& old = overlaySrcMacRewriteManager_;
  bool const keep =
      old && old->profileEntry() == profileEntry && old->systemStatus() == systemStatus &&
      old->intfIdToRoutingStatus() == intfIdToRoutingStatus && old->l3Status() == l3Status;
  if (!keep) {
    overlaySrcMacRewriteManager_ = overlaySrcMacRewriteManagerFactory(
        profileEntry, systemStatus, intfIdToRoutingStatus, l3Status);
  }
  return overlaySrcMacRewriteManager_;
}
void AgentSm::overlaySrcMacRewriteManagerDel() {
  overlaySrcMacRewriteManager_.reset();
}

Kiv::Ptr<OverlaySrcMacRewriteCliConfigSm> AgentSm::overlaySrcMacRewriteCliConfigSmIs(
    Kiv::Ptr<Input::Config const> const& cliConfig, Kiv::Ptr<Agent::Config> const& agentConfig,
    Kiv::Ptr<Pex::L3Status const> const& l3Status) {
  auto const& old = overlaySrcMacRewriteCliConfigSm_;
  bool const keep = old && old->overlaySrcMacRewriteCliConfig() == cliConfig &&
                    old->overlaySrcMacRewriteAgentConfig() == agentConfig &&
                    old->l3Status() == l3Status;
  if (!keep) {
    replace(overlaySrcMacRewriteCliConfigSm_,
            OverlaySrcMacRewriteCliConfigSm::OverlaySrcMacRewriteCliConfigSmIs(
                cliConfig, agentConfig, l3Status));
  }
  return overlaySrcMacRewriteCliConfigSm_;
}
void AgentSm::overlaySrcMacRewriteCliConfigSmDel() {
  switchOffAndRelease(overlaySrcMacRewriteCliConfigSm_);
}

Kiv::Ptr<BfnMacRewriteSm> AgentSm::bfnMacRewriteSmIs(
    Kiv::Ptr<Agent::Status const> const& agentStatus,
    Kiv::Ptr<Agent::Config const> const& agentConfig,
    Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
    Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteManager,
    Kiv::Ptr<Pex::L3Status const> const& l3Status,
    Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routeStatus) {
  auto const& old = bfnMacRewriteSm_;
  bool const keep = old && old->macRewriteStatus() == agentStatus &&
                    old->overlaySrcMacRewriteAgentConfig() == agentConfig &&
                    old->intfIdToRoutingStatus() == intfIdToRoutingStatus &&
                    old->overlaySrcMacRewriteManager() == overlaySrcMacRewriteManager &&
                    old->l3Status() == l3Status && old->routingHwRouteStatus() == routeStatus;
  if (!keep) {
    replace(bfnMacRewriteSm_,
            BfnMacRewriteSm::BfnMacRewriteSmIs(agentStatus, agentConfig, intfIdToRoutingStatus,
                                               overlaySrcMacRewriteManager, l3Status, routeStatus));
  }
  return bfnMacRewriteSm_;
}
void AgentSm::bfnMacRewriteSmDel() {
  switchOffAndRelease(bfnMacRewriteSm_);
}

Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm> AgentSm::bfnMacRewriteIntfRoutingStatusSmIs(
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3PortAndLagRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& vlanIntfRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3SubIntfRoutingStatus,
    Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus) {
  auto const& old = bfnMacRewriteIntfRoutingStatusSm_;
  bool const keep = old && old->l3PortAndLagRoutingStatus() == l3PortAndLagRoutingStatus &&
                    old->vlanIntfRoutingStatus() == vlanIntfRoutingStatus &&
                    old->l3SubIntfRoutingStatus() == l3SubIntfRoutingStatus &&
                    old->intfIdToRoutingStatus() == intfIdToRoutingStatus;
  if (!keep) {
    replace(bfnMacRewriteIntfRoutingStatusSm_,
            BfnMacRewriteIntfRoutingStatusSm::BfnMacRewriteIntfRoutingStatusSmIs(
                l3PortAndLagRoutingStatus, vlanIntfRoutingStatus, l3SubIntfRoutingStatus,
                intfIdToRoutingStatus));
  }
  return bfnMacRewriteIntfRoutingStatusSm_;
}
void AgentSm::bfnMacRewriteIntfRoutingStatusSmDel() {
  switchOffAndRelease(bfnMacRewriteIntfRoutingStatusSm_);
}

void AgentSm::chipCapabilitiesIs(BfnSystem::ChipCapabilities const& chipCapabilities) {
  chipCapabilities_ = chipCapabilities;
}

Kiv::Type const& AgentSm::_kivType() {
  using T = AgentSm;
  static Kiv::Type const type(
      "BfnMacRewrite::AgentSm", &Kiv::PtrInterface::_kivType(),
      {Kiv::describeConstant<&T::systemStatus>("systemStatus", 130),
       Kiv::describeConstant<&T::profileData>("profileData", 131),
       Kiv::describeConstant<&T::agentMount>("agentMount", 132),
       Kiv::describeConstant<&T::bfnMacRewriteL3Shared>("bfnMacRewriteL3Shared", 133),
       Kiv::describeConstant<&T::routingHwRouteStatus>("routingHwRouteStatus", 134),
       Kiv::describeConstant<&T::bfnL3Output>("bfnL3Output", 135),
       Kiv::describeConstant<&T::intfIdToRoutingStatus>("intfIdToRoutingStatus", 136),
       Kiv::describeConstant<&T::overlaySrcMacRewriteManager>("overlaySrcMacRewriteManager", 137),
       Kiv::describeConstant<&T::overlaySrcMacRewriteCliConfigSm>("overlaySrcMacRewriteCliConfigSm",
                                                                  138),
       Kiv::describeConstant<&T::bfnMacRewriteSm>("bfnMacRewriteSm", 139),
       Kiv::describeConstant<&T::bfnMacRewriteIntfRoutingStatusSm>(
           "bfnMacRewriteIntfRoutingStatusSm", 140),
       Kiv::describeConstant<&T::chipCapabilities>("chipCapabilities", 141),
       Kiv::describeConstant<&T::initialized>("initialized", 142)});
  return type;
}

}  // namespace BfnMacRewrite

template class Kiv::StateMachine<BfnMacRewrite::AgentSm>;
