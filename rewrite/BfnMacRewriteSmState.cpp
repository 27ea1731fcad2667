#include "framework/generic/Describe.h"
#include "rewrite/BfnMacRewriteSm.h"
#include "rewrite/BfnMacRewriteSmReactors.h"

// The machine's state: its making, its indexes and its reactors. What is decided about rows stands
// in BfnMacRewriteSm.cpp.
namespace BfnMacRewrite {

Kiv::Ptr<BfnMacRewriteSm> bfnMacRewriteSmFactory(
    Kiv::Ptr<Agent::Status const> const& agentStatus,
    Kiv::Ptr<Agent::Config const> const& agentConfig,
    Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
    Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteManager,
    Kiv::Ptr<Pex::L3Status const> const& l3Status,
    Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus) {
  return BfnMacRewriteSm::BfnMacRewriteSmIs(agentStatus, agentConfig, intfIdToRoutingStatus,
                                            overlaySrcMacRewriteManager, l3Status,
                                            routingHwRouteStatus);
}

BfnMacRewriteSm::BfnMacRewriteSm(
    Kiv::Ptr<Agent::Status const> const& agentStatus,
    Kiv::Ptr<Agent::Config const> const& agentConfig,
    Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
    Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteManager,
    Kiv::Ptr<Pex::L3Status const> const& l3Status,
    Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus)
    : manager_(overlaySrcMacRewriteManager), l3Status_(l3Status) {
  macRewriteStatus_.is(agentStatus, this);
  overlaySrcMacRewriteAgentConfig_.is(agentConfig, this);
  intfIdToRoutingStatus_.is(intfIdToRoutingStatus, this);
  routingHwRouteStatus_.is(routingHwRouteStatus, this);

  // The order matters. Configuration first; then the forwarding VLANs, while no status reactor is
  // there to act on them; then the status reactors index every address, self IPs included. No row
  // is written before handleInitialized() makes its one pass.
  if (agentConfig) {
    auto walk = agentConfig->overlaySrcMacRewrite().cursor();
    while (auto* const config = walk.next()) {
      agentVrfConfigIs(Kiv::Ptr<Agent::OverlaySrcMacRewrite const>(config));
    }
  }
  if (routingHwRouteStatus) {
    auto walk = routingHwRouteStatus->vrfStatus().cursor();
    while (auto* const status = walk.next()) {
      hwRouteVrfStatusIs(Kiv::Ptr<Routing::Hardware::VrfStatus const>(status));
    }
  }
  if (agentStatus) {
    auto walk = agentStatus->vrfStatus().cursor();
    while (auto* const status = walk.next()) {
      macRewriteVrfStatusIs(Kiv::Ptr<Agent::VrfStatus const>(status));
    }
  }
  handleInitialized();
}

BfnMacRewriteSm::~BfnMacRewriteSm() {
  kivTeardown();
  localIntfToVrfIpDelAll();
}

void BfnMacRewriteSm::handleMacRewriteVrfStatus(Pex::VrfId vrfId) {
  if (auto* const status = macRewriteStatus_.notifierRaw()->vrfStatus(vrfId)) {
    macRewriteVrfStatusIs(Kiv::Ptr<Agent::VrfStatus const>(status));
  } else {
    macRewriteVrfStatusDel(vrfId);
  }
}

void BfnMacRewriteSm::handleAgentVrfConfig(Pex::VrfId vrfId) {
  auto const* const config = overlaySrcMacRewriteAgentConfig_.notifierRaw();
  if (auto* const vrfConfig = config->overlaySrcMacRewrite(vrfId)) {
    agentVrfConfigIs(Kiv::Ptr<Agent::OverlaySrcMacRewrite const>(vrfConfig));
  } else {
    agentVrfConfigDel(vrfId);
  }
}

void BfnMacRewriteSm::handleHwRouteVrfStatus(L3::VrfName vrfName) {
  if (auto* const status = routingHwRouteStatus_.notifierRaw()->vrfStatus(vrfName)) {
    hwRouteVrfStatusIs(Kiv::Ptr<Routing::Hardware::VrfStatus const>(status));
  } else {
    hwRouteVrfStatusDel(vrfName);
  }
}

Kiv::Ptr<VrfIpCollection> BfnMacRewriteSm::localIntfToVrfIpIs(Ovra::IntfId intfId) {
  if (auto* const collection = localIntfToVrfIp_.find(intfId)) {
    return Kiv::Ptr<VrfIpCollection>(collection);
  }
  auto collection = Kiv::makeActive<VrfIpCollection>(intfId);
  localIntfToVrfIp_.set(collection);
  return collection;
}
void BfnMacRewriteSm::agentVrfConfigIs(Kiv::Ptr<Agent::OverlaySrcMacRewrite const> const& config) {
  agentVrfConfig_.is(config->vrfId(), config, this);
}
void BfnMacRewriteSm::agentVrfConfigDel(Pex::VrfId vrfId) {
  agentVrfConfig_.del(vrfId);
}
void BfnMacRewriteSm::agentVrfConfigDelAll() {
  agentVrfConfig_.delAll();
}

void BfnMacRewriteSm::hwRouteVrfStatusIs(
    Kiv::Ptr<Routing::Hardware::VrfStatus const> const& status) {
  hwRouteVrfStatus_.is(status->vrfName(), status, this);
}
void BfnMacRewriteSm::hwRouteVrfStatusDel(L3::VrfName vrfName) {
  hwRouteVrfStatus_.del(vrfName);
}
void BfnMacRewriteSm::hwRouteVrfStatusDelAll() {
  hwRouteVrfStatus_.delAll();
}

void BfnMacRewriteSm::macRewriteVrfStatusIs(Kiv::Ptr<Agent::VrfStatus const> const& status) {
  macRewriteVrfStatus_.is(status->vrfId(), status, this);
}
void BfnMacRewriteSm::macRewriteVrfStatusDel(Pex::VrfId vrfId) {
  macRewriteVrfStatus_.del(vrfId);
}
void BfnMacRewriteSm::macRewriteVrfStatusDelAll() {
  macRewriteVrfStatus_.delAll();
}

Kiv::Type const& BfnMacRewriteSm::_kivType() {
  using T = BfnMacRewriteSm;
  static Kiv::Type const type(
      "BfnMacRewrite::BfnMacRewriteSm", &Kiv::PtrInterface::_kivType(),
      {Kiv::describeConstant<&T::macRewriteStatus>("macRewriteStatus", 130),
       Kiv::describeConstant<&T::overlaySrcMacRewriteAgentConfig>("overlaySrcMacRewriteAgentConfig",
                                                                  131),
       Kiv::describeConstant<&T::intfIdToRoutingStatus>("intfIdToRoutingStatus", 132),
       Kiv::describeConstant<&T::overlaySrcMacRewriteManager>("overlaySrcMacRewriteManager", 133),
       Kiv::describeConstant<&T::l3Status>("l3Status", 134),
       Kiv::describeConstant<&T::routingHwRouteStatus>("routingHwRouteStatus", 135),
       Kiv::describeCollection<&T::localIntfToVrfIp_>("localIntfToVrfIp", 136),
       Kiv::describeCollection<&T::localVrfIpToIntf_>("localVrfIpToIntf", 137),
       Kiv::describeCollection<&T::fwdVlanIdPerVrf_>("fwdVlanIdPerVrf", 138),
       Kiv::describeConstant<&T::initialized>("initialized", 142)});
  return type;
}

}  // namespace BfnMacRewrite

template class Kiv::StateMachine<BfnMacRewrite::BfnMacRewriteSm>;
