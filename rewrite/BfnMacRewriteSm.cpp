#include "framework/core/Fatal.h"
#include "framework/trace/Trace.h"
#include "rewrite/BfnMacRewriteSmReactors.h"

KIV_TRACE_FACILITY("BfnMacRewriteSm")

// Which rows exist, and with what in them.
namespace BfnMacRewrite {

namespace {

// The one VRF whose id may legitimately be 0.
bool isDefaultVrf(L3::VrfName vrfName) {
  return vrfName == L3::VrfName("default");
}

}  // namespace

void BfnMacRewriteSm::handleInitialized() {
  KIV_TRACE(9, "");
  initializedIs(true);
  handleL3IntfRoutingStatus();
}

BfnL3::L3IntfRoutingStatus const* BfnMacRewriteSm::routingStatus(Ovra::IntfId intfId) const {
  auto const* const all = intfIdToRoutingStatus_.notifierRaw();
  return all == nullptr ? nullptr : all->l3IntfRoutingStatus(intfId);
}

bool BfnMacRewriteSm::selfIp(Pex::VrfId vrfId, Ovra::IpAddr ipAddr) const {
  auto const* const all = macRewriteStatus_.notifierRaw();
  auto const* const status = all == nullptr ? nullptr : all->vrfStatus(vrfId);
  return status != nullptr && status->ipAndIntfId(ipAddr).selfIp;
}

void BfnMacRewriteSm::prefetch(Pex::VrfAndIpAddr const& pair, Ovra::IntfId intfId) const {
  localVrfIpToIntf_.prefetch(pair);
  if (auto const* const pairs = localIntfToVrfIp_.find(intfId)) {
    pairs->vrfAndIpAddr().prefetch(pair);
  }
  auto const* const all = overlaySrcMacRewriteAgentConfig_.notifierRaw();
  auto const* const config = all == nullptr ? nullptr : all->overlaySrcMacRewrite(pair.vrfId());
  if (config != nullptr) config->ipAndMac().map().prefetch(pair.ipAddr());
  if (manager_) manager_->prefetch(intfId, pair.ipAddr());
}

Ovra::EthAddr BfnMacRewriteSm::configuredMac(Pex::VrfId vrfId, Ovra::IpAddr ipAddr) const {
  auto const* const all = overlaySrcMacRewriteAgentConfig_.notifierRaw();
  auto const* const config = all == nullptr ? nullptr : all->overlaySrcMacRewrite(vrfId);
  return config == nullptr ? Ovra::EthAddr() : config->ipAndMac(ipAddr).mac;
}

void BfnMacRewriteSm::addOverlaySrcMacRewriteTableEntry(Pex::VrfId vrfId, Ovra::IntfId intfId,
                                                        Ovra::IpAddr ipAddr) {
  if (!initialized()) return;
  KIV_TRACE(9, "vrfId: ", vrfId, ", ipAddr: ", ipAddr, " intfId: ", intfId);
  bool const self = selfIp(vrfId, ipAddr);
  auto const* const l3IntfRoutingStatus = routingStatus(intfId);
  KIV_CHECK(l3IntfRoutingStatus, "intfId: ", intfId);
  Bridging::VlanId l3Aintf(l3IntfRoutingStatus->vlanId());
  if (self) {
    U32 const fwdVlanId = fwdVlanIdPerVrf(vrfId.value());
    if (fwdVlanId == 0) {
      KIV_TRACE(4, "fwdVlan not set, returning");
      return;
    }
    l3Aintf = Bridging::VlanId(fwdVlanId);
  }
  Ovra::EthAddr const macAddr = configuredMac(vrfId, ipAddr);
  KIV_TRACE(4, "intfId: ", intfId, ", l3Aintf: ", l3Aintf, ", macAddr: ", macAddr);
  L3::VrfName const vrfName = l3Status_ ? l3Status_->vrfName(vrfId) : L3::VrfName();
  manager_->addEntry(vrfName, l3Aintf, intfId, ipAddr, macAddr);
}

void BfnMacRewriteSm::updateOverlaySrcMacRewriteTableEntry(Pex::VrfId vrfId, Ovra::IntfId intfId,
                                                           Ovra::IpAddr ipAddr) {
  if (!initialized()) return;
  KIV_TRACE(9, "vrfId: ", vrfId, ", ipAddr: ", ipAddr, " intfId: ", intfId);
  manager_->updateEntry(intfId, ipAddr, configuredMac(vrfId, ipAddr));
}

void BfnMacRewriteSm::deleteOverlaySrcMacRewriteTableEntry(Pex::VrfId vrfId, Ovra::IntfId intfId,
                                                           Ovra::IpAddr ipAddr) {
  KIV_CHECK(initialized(), "Sm not initialized yet");
  KIV_TRACE(9, "vrfId: ", vrfId, ", ipAddr: ", ipAddr, " intfId: ", intfId);
  manager_->deleteEntry(intfId, ipAddr);
}

void BfnMacRewriteSm::handleL3IntfRoutingStatus(Ovra::IntfId intfId) {
  if (!initialized()) return;
  KIV_TRACE(9, "intfId: ", intfId);
  Kiv::Ptr<VrfIpCollection> const pairs = localIntfToVrfIp(intfId);
  if (!pairs) return;
  auto walk = pairs->vrfAndIpAddr().cursor();
  while (auto const* const at = walk.next()) {
    Pex::VrfAndIpAddr const pair = *at;
    if (routingStatus(intfId) != nullptr) {
      addOverlaySrcMacRewriteTableEntry(pair.vrfId(), intfId, pair.ipAddr());
    } else {
      deleteOverlaySrcMacRewriteTableEntry(pair.vrfId(), intfId, pair.ipAddr());
    }
  }
}

void BfnMacRewriteSm::handleL3IntfRoutingStatus() {
  KIV_CHECK(initialized(), "Sm not initialized yet.");
  KIV_TRACE(9, "");
  Kiv::Ptr<IntfIdToRoutingStatus const> const all = intfIdToRoutingStatus();
  if (!all) return;
  auto walk = all->l3IntfRoutingStatus().cursor();
  while (auto const* const status = walk.next()) {
    Ovra::IntfId const intfId = status->key;
    handleL3IntfRoutingStatus(intfId);
  }
}

BfnMacRewriteSm::KivAgentVrfConfig::KivAgentVrfConfig(
    Kiv::Ptr<Agent::OverlaySrcMacRewrite const> const& config, BfnMacRewriteSm* owner)
    : Reactor(config, owner) {
  handleInitialized();
}

void BfnMacRewriteSm::KivAgentVrfConfig::handleInitialized() {
  KIV_TRACE(9, "vrfId: ", vrfId());
  initializedIs(true);
  handleIpAndMac();
}

void BfnMacRewriteSm::KivAgentVrfConfig::handleIpAndMac(Ovra::IpAddr ipAddr) {
  if (!initialized() || owner() == nullptr) return;
  KIV_TRACE(9, "vrfId: ", vrfId(), ", ipAddr: ", ipAddr);
  IpAndMac const* const ipAndMac = notifierRaw()->ipAndMac().find(ipAddr);
  if (ipAndMac == nullptr) return;
  KIV_TRACE(4, "AgentConfig::IpAndMac is populated, overlayRewriteSrcMac: ", ipAndMac->mac);
  Ovra::IntfId const intfId = owner()->localVrfIpToIntf({vrfId(), ipAddr});
  if (!intfId) return;
  if (owner()->routingStatus(intfId) == nullptr) return;
  owner()->updateOverlaySrcMacRewriteTableEntry(vrfId(), intfId, ipAddr);
}

void BfnMacRewriteSm::KivAgentVrfConfig::handleIpAndMac() {
  KIV_CHECK(initialized(), "Sm not initialized yet");
  KIV_TRACE(9, "vrfId: ", vrfId());
  auto const watched = notifier();
  auto walk = watched->ipAndMac().cursor();
  while (auto const* const ipAndMac = walk.next()) handleIpAndMac(ipAndMac->ip);
}

BfnMacRewriteSm::KivMacRewriteVrfStatus::KivMacRewriteVrfStatus(
    Kiv::Ptr<Agent::VrfStatus const> const& status, BfnMacRewriteSm* owner)
    : Reactor(status, owner) {
  handleInitialized();
}

void BfnMacRewriteSm::KivMacRewriteVrfStatus::handleInitialized() {
  KIV_TRACE(9, "vrfId: ", vrfId());
  initializedIs(true);
  handleIpAndIntfId();
}

void BfnMacRewriteSm::KivMacRewriteVrfStatus::handleIpAndIntfId(Ovra::IpAddr ipAddr) {
  if (!initialized() || owner() == nullptr) return;
  KIV_TRACE(9, "vrfId: ", vrfId(), ", ip-address: ", ipAddr);
  if (auto const* const ipAndIntfId = notifierRaw()->ipAndIntfId().find(ipAddr)) {
    owner()->prefetch({vrfId(), ipAddr}, ipAndIntfId->intfId);
    addIpAndIntfId(ipAddr);
  } else {
    removeIpAndIntfId(ipAddr);
  }
}

void BfnMacRewriteSm::KivMacRewriteVrfStatus::handleIpAndIntfId() {
  KIV_CHECK(initialized(), "Sm not initialized yet.");
  KIV_TRACE(9, "vrfId: ", vrfId());
  auto const watched = notifier();
  auto walk = watched->ipAndIntfId().cursor();
  while (auto const* const ipAndIntfId = walk.next()) handleIpAndIntfId(ipAndIntfId->ipAddr);
}

void BfnMacRewriteSm::KivMacRewriteVrfStatus::addIpAndIntfId(Ovra::IpAddr ipAddr) {
  KIV_TRACE(9, "vrfId: ", vrfId(), ", ip-address: ", ipAddr);
  BfnMacRewriteSm& sm = *owner();
  Pex::VrfAndIpAddr const pair(vrfId(), ipAddr);
  Ovra::IntfId const oldIntfId = sm.localVrfIpToIntf(pair);
  Agent::IpAndIntfId const ipAndIntfId = notifierRaw()->ipAndIntfId(ipAddr);
  Ovra::IntfId const intfId = ipAndIntfId.intfId;
  if (ipAndIntfId.selfIp && sm.fwdVlanIdPerVrf(vrfId().value()) == 0) {
    // handleFwdVlanIdChange() comes back for the address.
    KIV_TRACE(9, "fwdVlan not set yet, returning");
    return;
  }
  KIV_CHECK(!oldIntfId || oldIntfId == intfId,
            "(Vrf, Ip)->Intf mapping shouldn't change dynamically, without an explicit delete and "
            "add");
  // The empty id names no interface: there is nothing to find the address under.
  if (!intfId) return;
  if (oldIntfId) removeIpAndIntfId(ipAddr);
  sm.localVrfIpToIntfIs(pair, intfId);
  sm.localIntfToVrfIpIs(intfId)->vrfAndIpAddrIs(pair);
  if (sm.routingStatus(intfId) == nullptr) return;
  sm.addOverlaySrcMacRewriteTableEntry(vrfId(), intfId, ipAddr);
}

void BfnMacRewriteSm::KivMacRewriteVrfStatus::removeIpAndIntfId(Ovra::IpAddr ipAddr) {
  KIV_TRACE(9, "vrfId: ", vrfId(), ", ip-address: ", ipAddr);
  BfnMacRewriteSm& sm = *owner();
  Pex::VrfAndIpAddr const pair(vrfId(), ipAddr);
  Ovra::IntfId const intfId = sm.localVrfIpToIntf(pair);
  if (!intfId) return;
  sm.prefetch(pair, intfId);
  sm.localVrfIpToIntfDel(pair);
  if (auto const pairs = sm.localIntfToVrfIp(intfId)) {
    pairs->vrfAndIpAddrDel(pair);
    if (pairs->vrfAndIpAddr().empty()) sm.localIntfToVrfIpDel(intfId);
  }
  if (sm.routingStatus(intfId) == nullptr) return;
  sm.deleteOverlaySrcMacRewriteTableEntry(vrfId(), intfId, ipAddr);
}

void BfnMacRewriteSm::KivMacRewriteVrfStatus::handleFwdVlanIdChange(U32 oldVlanId, U32 newVlanId) {
  KIV_TRACE(9, "vrfId: ", vrfId(), " old: ", oldVlanId, " new: ", newVlanId);
  auto const watched = notifier();
  auto walk = watched->ipAndIntfId().cursor();
  while (auto const* const ipAndIntfId = walk.next()) {
    if (!ipAndIntfId->selfIp) continue;
    Ovra::IpAddr const ipAddr = ipAndIntfId->ipAddr;
    if (owner() == nullptr) return;
    if (oldVlanId != 0) removeIpAndIntfId(ipAddr);
    handleIpAndIntfId(ipAddr);
  }
}

BfnMacRewriteSm::KivHwRouteVrfStatus::KivHwRouteVrfStatus(
    Kiv::Ptr<Routing::Hardware::VrfStatus const> const& status, BfnMacRewriteSm* owner)
    : Reactor(status, owner) {
  handleInitialized();
}

void BfnMacRewriteSm::KivHwRouteVrfStatus::handleInitialized() {
  KIV_TRACE(9, "vrfName: ", vrfName(), "vrfId: ", notifierRaw()->vrfId());
  initializedIs(true);
  handleFwdVlanId();
}

void BfnMacRewriteSm::KivHwRouteVrfStatus::handleFwdVlanId() {
  U32 const vrfId = notifierRaw()->vrfId();
  KIV_TRACE(9, "vrfName: ", vrfName(), "vrfId: ", vrfId);
  if (vrfId == 0 && !isDefaultVrf(vrfName())) {
    KIV_TRACE(9, "vrfId not set");
    return;
  }
  U32 const oldVlanId = owner()->fwdVlanIdPerVrf(vrfId);
  U32 const newVlanId = notifierRaw()->fwdVlanId();
  owner()->fwdVlanIdPerVrfIs(vrfId, newVlanId);
  if (auto* const status = owner()->macRewriteVrfStatus(Pex::VrfId(vrfId))) {
    Kiv::Ptr<KivMacRewriteVrfStatus> const keep(status);
    keep->handleFwdVlanIdChange(oldVlanId, newVlanId);
  }
}

}  // namespace BfnMacRewrite
