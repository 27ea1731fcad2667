// SPDX-License-Identifier: Apache-2.0
#include "agent/BfnMacRewriteAgentSm.h"

#include <utility>

#include "framework/core/Restore.h"
#include "framework/generic/Describe.h"
#include "framework/trace/Trace.h"

KIV_TRACE_FACILITY("BfnMacRewriteAgentSm")

namespace BfnMacRewrite {

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

void AgentSm::handleInitialized() {
  bfnL3OutputIs(bfnMacRewriteL3Shared_->bfnL3Output());
  initializedIs(true);
}

void AgentSm::handleInitMacRewriteTables() {
  if (!initialized()) return;
  intfIdToRoutingStatusIs();
  Kiv::Ptr<BfnL3Output> const output = bfnL3Output();
  Kiv::Ptr<BfnSystem::SystemStatus const> const status = systemStatus();
  auto const* const profile = status ? status->profileInfo(output->profileName()) : nullptr;
  chipCapabilitiesIs(profile == nullptr ? BfnSystem::ChipCapabilities()
                                        : profile->chipCapabilities());
  overlaySrcMacRewriteManagerIs(output->profileEntry(), status, intfIdToRoutingStatus_,
                                bfnMacRewriteL3Shared_->l3Status());
}

// Recorded rings know the trace of this handler by its line, 51; a test says so.
void AgentSm::handleStartMacRewriteSm() {
  if (!initialized()) return;
  BfnSystem::ChipCapabilities const capabilities = chipCapabilities();
  bool const supported = capabilities.overlaySrcMacRewriteSupported;
  Kiv::Ptr<BfnMacRewriteMount> const mount = agentMount_;
  if (supported) {
    KIV_TRACE(9, "");
    // A step may run a foreign handler that drops the agent, which dispatch holds until this
    // returns.
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

void AgentSm::run(bool& wanted) {
  wanted = true;
  if (running_) return;
  Kiv::Restore<bool> const outer{running_, false};
  running_ = true;
  while (tablesWanted_ || startWanted_) {
    if (std::exchange(tablesWanted_, false)) handleInitMacRewriteTables();
    if (std::exchange(startWanted_, false)) handleStartMacRewriteSm();
  }
}

AgentSm::~AgentSm() {
  intfIdToRoutingStatusDel();
  overlaySrcMacRewriteManagerDel();
  overlaySrcMacRewriteCliConfigSmDel();
  bfnMacRewriteSmDel();
  bfnMacRewriteIntfRoutingStatusSmDel();
}

Kiv::Ptr<IntfIdToRoutingStatus> AgentSm::intfIdToRoutingStatusIs() {
  if (!intfIdToRoutingStatus_) {
    intfIdToRoutingStatus_ = Kiv::makeActive<IntfIdToRoutingStatus>();
  }
  return intfIdToRoutingStatus_;
}

Kiv::Ptr<AgentSm> agentSmFactory(
    Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
    Kiv::Ptr<BfnAgentLib::BfnProfileData> const& profileData,
    Kiv::Ptr<BfnMacRewriteMount> const& mount, Kiv::Ptr<BfnMacRewriteL3Shared> const& l3Shared,
    Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routeStatus) {
  return AgentSm::AgentSmIs(systemStatus, profileData, mount, l3Shared, routeStatus);
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
