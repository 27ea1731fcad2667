// SPDX-License-Identifier: Apache-2.0
#include "rewrite/BfnMacRewriteSm.h"

#include <new>
#include <utility>

#include "framework/core/Fatal.h"
#include "framework/core/Restore.h"
#include "framework/generic/Describe.h"
#include "framework/trace/Trace.h"

KIV_TRACE_FACILITY("BfnMacRewriteSm")

namespace BfnMacRewrite {

namespace {

// The one VRF whose id may legitimately be 0.
bool isDefaultVrf(L3::VrfName vrfName) {
  return vrfName == L3::VrfName("default");
}

template <class Members, class F>
void eachOf(Members const& members, F const& f) {
  auto walk = members.cursor();
  while (auto* const member = walk.next()) f(Kiv::Ptr(member));
}

}  // namespace

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
    eachOf(agentConfig->overlaySrcMacRewrite(), [this](auto const& p) { agentVrfConfigIs(p); });
  }
  if (routingHwRouteStatus) {
    eachOf(routingHwRouteStatus->vrfStatus(), [this](auto const& p) { hwRouteVrfStatusIs(p); });
  }
  if (agentStatus) {
    eachOf(agentStatus->vrfStatus(), [this](auto const& p) { macRewriteVrfStatusIs(p); });
  }
  std::vector<Agent::IpAndIntfId> rows;
  rows.reserve(localVrfIpToIntf_.size());
  try {
    Kiv::Restore<std::vector<Agent::IpAndIntfId>*> const after{firstRows_, nullptr};
    firstRows_ = &rows;
    handleInitialized();
  } catch (std::bad_alloc const&) {
    // The next machine writes every row again; it must not find this one's references.
    for (Agent::IpAndIntfId const& row : rows) {
      if (manager_->matchSpecAndRefCount(row)) manager_->deleteEntry(row.intfId, row.ipAddr);
    }
    throw;
  }
}

BfnMacRewriteSm::~BfnMacRewriteSm() {
  localIntfToVrfIpDelAll();
}

void BfnMacRewriteSm::handleInitialized() {
  KIV_TRACE(9, "");
  initializedIs(true);
  handleL3IntfRoutingStatus();
}

void BfnMacRewriteSm::handleMacRewriteVrfStatus(Pex::VrfId vrfId) {
  if (!initialized()) return;
  Kiv::Ptr const status(macRewriteStatus_.notifierRaw()->vrfStatus(vrfId));
  status ? macRewriteVrfStatusIs(status) : macRewriteVrfStatusDel(vrfId);
}

void BfnMacRewriteSm::handleAgentVrfConfig(Pex::VrfId vrfId) {
  if (!initialized()) return;
  Kiv::Ptr const config(
      overlaySrcMacRewriteAgentConfig_.notifierRaw()->overlaySrcMacRewrite(vrfId));
  config ? agentVrfConfigIs(config) : agentVrfConfigDel(vrfId);
}

void BfnMacRewriteSm::handleHwRouteVrfStatus(L3::VrfName vrfName) {
  if (!initialized()) return;
  Kiv::Ptr const status(routingHwRouteStatus_.notifierRaw()->vrfStatus(vrfName));
  status ? hwRouteVrfStatusIs(status) : hwRouteVrfStatusDel(vrfName);
}

Kiv::Ptr<VrfIpCollection> BfnMacRewriteSm::localIntfToVrfIpIs(Ovra::IntfId intfId) {
  if (auto* const collection = localIntfToVrfIp_.find(intfId)) {
    return Kiv::Ptr<VrfIpCollection>(collection);
  }
  auto collection = Kiv::makeActive<VrfIpCollection>(intfId);
  localIntfToVrfIp_.set(collection);
  return collection;
}

void BfnMacRewriteSm::indexIs(Pex::VrfAndIpAddr const& pair, Ovra::IntfId intfId) {
  localVrfIpToIntfIs(pair, intfId);
  Kiv::Ptr<VrfIpCollection> const pairs = localIntfToVrfIpIs(intfId);
  pairs->vrfAndIpAddrIs(pair);
  size_t const count = pairs->vrfAndIpAddr().size();
  if (passRoom_.capacity() < count) passRoom_.reserve(2 * count);
}

void BfnMacRewriteSm::indexDel(Pex::VrfAndIpAddr const& pair, Ovra::IntfId intfId) {
  localVrfIpToIntfDel(pair);
  Kiv::Ptr<VrfIpCollection> const pairs = localIntfToVrfIp(intfId);
  if (!pairs) return;
  pairs->vrfAndIpAddrDel(pair);
  if (pairs->vrfAndIpAddr().empty()) localIntfToVrfIpDel(intfId);
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
  if (config != nullptr) config->ipAndMac().prefetch(pair.ipAddr());
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
  if (firstRows_ != nullptr) {  // room first: nothing may fail after the row is written
    firstRows_->emplace_back();
    firstRows_->pop_back();
  }
  auto const added = manager_->addEntry(vrfName, l3Aintf, intfId, ipAddr, macAddr);
  if (firstRows_ != nullptr && added == PexTypes::TableAddStatus::Success) {
    firstRows_->push_back({ipAddr, intfId, false});
  }
}

void BfnMacRewriteSm::updateOverlaySrcMacRewriteTableEntry(Pex::VrfId vrfId, Ovra::IntfId intfId,
                                                           Ovra::IpAddr ipAddr) {
  if (!initialized()) return;
  KIV_TRACE(9, "vrfId: ", vrfId, ", ipAddr: ", ipAddr, " intfId: ", intfId);
  if (rowIsYetToCome(intfId, ipAddr)) return;
  manager_->updateEntry(intfId, ipAddr, configuredMac(vrfId, ipAddr));
}

void BfnMacRewriteSm::deleteOverlaySrcMacRewriteTableEntry(Pex::VrfId vrfId, Ovra::IntfId intfId,
                                                           Ovra::IpAddr ipAddr) {
  KIV_CHECK(initialized(), "Sm not initialized yet");
  KIV_TRACE(9, "vrfId: ", vrfId, ", ipAddr: ", ipAddr, " intfId: ", intfId);
  if (rowIsYetToCome(intfId, ipAddr)) return;
  manager_->deleteEntry(intfId, ipAddr);
}

void BfnMacRewriteSm::handleL3IntfRoutingStatus(Ovra::IntfId intfId) {
  if (!initialized()) return;
  KIV_TRACE(9, "intfId: ", intfId);
  Kiv::Ptr<VrfIpCollection> const pairs = localIntfToVrfIp(intfId);
  if (!pairs) return;
  bool const present = routingStatus(intfId) != nullptr;
  Kiv::Restore<bool> const outer{addingRows_, addingRows_};
  addingRows_ |= present;
  // A copy: a pair that a handler removes while rows are deleted still has its row, and one that it
  // adds has none, or has written it already.
  Kiv::Restore<std::vector<Pex::VrfAndIpAddr>> room{passRoom_, std::move(passRoom_)};
  room.value.assign(pairs->vrfAndIpAddr().begin(), pairs->vrfAndIpAddr().end());
  for (Pex::VrfAndIpAddr const& pair : room.value) {
    if (!present) {
      deleteOverlaySrcMacRewriteTableEntry(pair.vrfId(), intfId, pair.ipAddr());
      continue;
    }
    auto const* const now = localIntfToVrfIp_.find(intfId);
    bool const isThere = now != nullptr && now->vrfAndIpAddr().has(pair);
    if (isThere && routingStatus(intfId) != nullptr) {
      addOverlaySrcMacRewriteTableEntry(pair.vrfId(), intfId, pair.ipAddr());
    }
  }
}

void BfnMacRewriteSm::handleL3IntfRoutingStatus() {
  KIV_CHECK(initialized(), "Sm not initialized yet.");
  KIV_TRACE(9, "");
  Kiv::Ptr<IntfIdToRoutingStatus const> const all = intfIdToRoutingStatus();
  if (!all) return;
  auto walk = all->l3IntfRoutingStatus().cursor();
  while (auto const* const status = walk.next()) handleL3IntfRoutingStatus(status->key);
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
  if (!intfId || owner()->routingStatus(intfId) == nullptr) return;
  owner()->updateOverlaySrcMacRewriteTableEntry(vrfId(), intfId, ipAddr);
}

void BfnMacRewriteSm::KivAgentVrfConfig::handleIpAndMac() {
  KIV_CHECK(initialized(), "Sm not initialized yet");
  KIV_TRACE(9, "vrfId: ", vrfId());
  auto const watched = notifier();
  auto walk = watched->ipAndMac().cursor();
  while (auto const* const ipAndMac = walk.next()) handleIpAndMac(ipAndMac->ip);
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
    // handleFwdVlanIdChange() adds the address later.
    KIV_TRACE(9, "fwdVlan not set yet, returning");
    return;
  }
  KIV_CHECK(!oldIntfId || oldIntfId == intfId,
            "(Vrf, Ip)->Intf mapping shouldn't change dynamically, without an explicit delete and "
            "add");
  // The empty id names no interface: there is nothing to find the address under.
  if (!intfId) return;
  if (oldIntfId) {
    removeIpAndIntfId(ipAddr);
    // A handler of the removal may have changed the address or its VLAN, which is then already
    // handled.
    auto const* const now = notifierRaw()->ipAndIntfId().find(ipAddr);
    if (now == nullptr || !(*now == ipAndIntfId) || sm.localVrfIpToIntf(pair)) return;
    if (now->selfIp && sm.fwdVlanIdPerVrf(vrfId().value()) == 0) return;
  }
  try {
    sm.indexIs(pair, intfId);
    if (sm.routingStatus(intfId) == nullptr) return;
    sm.addOverlaySrcMacRewriteTableEntry(vrfId(), intfId, ipAddr);
  } catch (std::bad_alloc const&) {
    // Undoes the addition, so that the address can be added again, or removed.
    sm.indexDel(pair, intfId);
    throw;
  }
}

void BfnMacRewriteSm::KivMacRewriteVrfStatus::removeIpAndIntfId(Ovra::IpAddr ipAddr) {
  KIV_TRACE(9, "vrfId: ", vrfId(), ", ip-address: ", ipAddr);
  BfnMacRewriteSm& sm = *owner();
  Pex::VrfAndIpAddr const pair(vrfId(), ipAddr);
  Ovra::IntfId const intfId = sm.localVrfIpToIntf(pair);
  if (!intfId) return;
  sm.prefetch(pair, intfId);
  sm.indexDel(pair, intfId);
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
