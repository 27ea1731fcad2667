#pragma once

#include <tuple>

#include "agent/records/BfnMacRewriteTypes.h"
#include "agent/records/Export.h"
#include "framework/collections/HashMap.h"
#include "framework/collections/HashMap2018.h"
#include "framework/core/Reactor.h"
#include "framework/core/ReactorSlot.h"
#include "framework/core/StateMachine.h"
#include "framework/l3/L3Status.h"
#include "framework/l3/RouteStatus.h"
#include "framework/values/IntfId.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VrfAndIpAddr.h"
#include "framework/values/VrfId.h"
#include "framework/values/VrfName.h"
#include "intfstatus/BfnMacRewriteIntfRoutingStatusTypes.h"
#include "rewrite/VrfIpCollection.h"
#include "tablemgr/BfnMacRewriteTableMgr.h"

namespace BfnMacRewrite {

/// Joins addresses, configured MACs, interface routing status and forwarding VLANs into the rows
/// that must exist, and has the table manager write them.
///
/// A row exists for a (VRF, IP) when the agent's status says on which interface the address lives,
/// that interface has routing status, and, for one of the switch's own addresses (`selfIp`), the
/// VRF's forwarding VLAN is known. An interface address's row carries the interface's VLAN, a self
/// IP's row the VRF's forwarding VLAN. Without a configured MAC the row carries the all-zero one.
///
/// The machine keeps three indexes. A (VRF, IP) is in localVrfIpToIntf with interface I exactly
/// when it is in the VrfIpCollection of I, which is never empty; its interface never changes
/// without a removal in between. A pair stays indexed without routing status, and also when its
/// row could not be written.
///
/// No way of losing an input as a whole deletes rows: removing a VRF's status, configuration or
/// route status, a reactor, or this machine leaves rows and indexes as they are.
class BfnMacRewriteSm final : public Kiv::StateMachine<BfnMacRewriteSm> {
 public:
  class KivAgentVrfConfig;
  class KivHwRouteVrfStatus;
  class KivMacRewriteVrfStatus;

  /// Makes the machine of the constructor's arguments and switches it on.
  template <class... Inputs>
  static Kiv::Ptr<BfnMacRewriteSm> BfnMacRewriteSmIs(Inputs const&... inputs) {
    return Kiv::makeActive<BfnMacRewriteSm>(inputs...);
  }
  /// Writes every row that is due in one pass. A null input contributes nothing. Throws
  /// Kiv::RangeException when that pass meets a VLAN outside 1..4094.
  BfnMacRewriteSm(Kiv::Ptr<Agent::Status const> const& agentStatus,
                  Kiv::Ptr<Agent::Config const> const& agentConfig,
                  Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
                  Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteManager,
                  Kiv::Ptr<Pex::L3Status const> const& l3Status,
                  Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus);
  ~BfnMacRewriteSm() override;

  Kiv::Ptr<Agent::Status const> macRewriteStatus() const { return macRewriteStatus_.notifier(); }
  Kiv::Ptr<Agent::Config const> overlaySrcMacRewriteAgentConfig() const {
    return overlaySrcMacRewriteAgentConfig_.notifier();
  }
  Kiv::Ptr<IntfIdToRoutingStatus const> intfIdToRoutingStatus() const {
    return intfIdToRoutingStatus_.notifier();
  }
  Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteManager() const {
    return manager_;
  }
  Kiv::Ptr<Pex::L3Status const> const& l3Status() const { return l3Status_; }
  Kiv::Ptr<Routing::Hardware::RouteStatus const> routingHwRouteStatus() const {
    return routingHwRouteStatus_.notifier();
  }
  /// The constructor's arguments.
  auto inputs() const {
    return std::tuple(macRewriteStatus(), overlaySrcMacRewriteAgentConfig(),
                      intfIdToRoutingStatus(), manager_, l3Status_, routingHwRouteStatus());
  }

  /// Drop one singleton reactor: that input is not watched any more, nor read.
  void macRewriteStatusDel() { macRewriteStatus_.del(); }
  void overlaySrcMacRewriteAgentConfigDel() { overlaySrcMacRewriteAgentConfig_.del(); }
  void intfIdToRoutingStatusDel() { intfIdToRoutingStatus_.del(); }
  void routingHwRouteStatusDel() { routingHwRouteStatus_.del(); }

  void handleInitialized();
  /// The routing status of one interface was added, replaced or removed: adds the rows of every
  /// pair on it, or deletes them. Kept: a replaced status adds every row once more, which counts a
  /// reference and leaves the VLAN of the row as it was.
  void handleL3IntfRoutingStatus(Ovra::IntfId intfId);
  /// The same for every interface that has routing status, in the collection's order.
  void handleL3IntfRoutingStatus();

  /// A per-VRF element appeared or disappeared under its key. Removal destroys the per-VRF reactor
  /// only.
  void handleMacRewriteVrfStatus(Pex::VrfId vrfId);
  void handleAgentVrfConfig(Pex::VrfId vrfId);
  void handleHwRouteVrfStatus(L3::VrfName vrfName);

  using KivMacRewriteStatus = Kiv::OwnerReactor<
      Agent::Status const, BfnMacRewriteSm,
      Kiv::On<Agent::Status::kVrfStatus, &BfnMacRewriteSm::handleMacRewriteVrfStatus>>;
  using KivOverlaySrcMacRewriteAgentConfig = Kiv::OwnerReactor<
      Agent::Config const, BfnMacRewriteSm,
      Kiv::On<Agent::Config::kOverlaySrcMacRewrite, &BfnMacRewriteSm::handleAgentVrfConfig>>;
  using KivIntfIdToRoutingStatus = Kiv::OwnerReactor<
      IntfIdToRoutingStatus const, BfnMacRewriteSm,
      Kiv::On<IntfIdToRoutingStatus::kL3IntfRoutingStatus,
              Kiv::keyed<Ovra::IntfId>(&BfnMacRewriteSm::handleL3IntfRoutingStatus)>>;
  using KivRoutingHwRouteStatus =
      Kiv::OwnerReactor<Routing::Hardware::RouteStatus const, BfnMacRewriteSm,
                        Kiv::On<Routing::Hardware::RouteStatus::kVrfStatus,
                                &BfnMacRewriteSm::handleHwRouteVrfStatus>>;

  void addOverlaySrcMacRewriteTableEntry(Pex::VrfId vrfId, Ovra::IntfId intfId,
                                         Ovra::IpAddr ipAddr);
  void updateOverlaySrcMacRewriteTableEntry(Pex::VrfId vrfId, Ovra::IntfId intfId,
                                            Ovra::IpAddr ipAddr);
  /// Kept: fatal before initialization, where add and update are skipped silently.
  void deleteOverlaySrcMacRewriteTableEntry(Pex::VrfId vrfId, Ovra::IntfId intfId,
                                            Ovra::IpAddr ipAddr);

  /// The pairs on an interface, or null.
  Kiv::Ptr<VrfIpCollection> localIntfToVrfIp(Ovra::IntfId intfId) const {
    return Kiv::Ptr<VrfIpCollection>(localIntfToVrfIp_.find(intfId));
  }
  Kiv::Ptr<VrfIpCollection> localIntfToVrfIpIs(Ovra::IntfId intfId);
  void localIntfToVrfIpDel(Ovra::IntfId intfId) { localIntfToVrfIp_.take(intfId); }
  void localIntfToVrfIpDelAll() { localIntfToVrfIp_.clear(); }
  /// The interface of a pair, or the empty id.
  Ovra::IntfId localVrfIpToIntf(Pex::VrfAndIpAddr const& pair) const {
    return localVrfIpToIntf_.get(pair).value;
  }
  void localVrfIpToIntfIs(Pex::VrfAndIpAddr const& pair, Ovra::IntfId intfId) {
    localVrfIpToIntf_.set({pair, intfId});
  }
  void localVrfIpToIntfDel(Pex::VrfAndIpAddr const& pair) { localVrfIpToIntf_.take(pair); }
  void localVrfIpToIntfDelAll() { localVrfIpToIntf_.clear(); }
  /// The last forwarding VLAN reported for a VRF; 0: none.
  U32 fwdVlanIdPerVrf(U32 vrfId) const { return fwdVlanIdPerVrf_.get(vrfId).value; }
  bool fwdVlanIdPerVrfHas(U32 vrfId) const { return fwdVlanIdPerVrf_.has(vrfId); }
  void fwdVlanIdPerVrfIs(U32 vrfId, U32 vlan) { fwdVlanIdPerVrf_.set({vrfId, vlan}); }
  void fwdVlanIdPerVrfDel(U32 vrfId) { fwdVlanIdPerVrf_.take(vrfId); }
  void fwdVlanIdPerVrfDelAll() { fwdVlanIdPerVrf_.clear(); }

  KivAgentVrfConfig* agentVrfConfig(Pex::VrfId vrfId) const { return agentVrfConfig_.find(vrfId); }
  void agentVrfConfigIs(Kiv::Ptr<Agent::OverlaySrcMacRewrite const> const& config);
  void agentVrfConfigDel(Pex::VrfId vrfId);
  void agentVrfConfigDelAll();
  KivHwRouteVrfStatus* hwRouteVrfStatus(L3::VrfName vrfName) const {
    return hwRouteVrfStatus_.find(vrfName);
  }
  void hwRouteVrfStatusIs(Kiv::Ptr<Routing::Hardware::VrfStatus const> const& status);
  void hwRouteVrfStatusDel(L3::VrfName vrfName);
  void hwRouteVrfStatusDelAll();
  KivMacRewriteVrfStatus* macRewriteVrfStatus(Pex::VrfId vrfId) const {
    return macRewriteVrfStatus_.find(vrfId);
  }
  void macRewriteVrfStatusIs(Kiv::Ptr<Agent::VrfStatus const> const& status);
  void macRewriteVrfStatusDel(Pex::VrfId vrfId);
  void macRewriteVrfStatusDelAll();

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

  template <class F>
  void kivEachReactor(F f) {
    f(macRewriteStatus_);
    f(overlaySrcMacRewriteAgentConfig_);
    f(intfIdToRoutingStatus_);
    f(routingHwRouteStatus_);
    f(agentVrfConfig_);
    f(hwRouteVrfStatus_);
    f(macRewriteVrfStatus_);
  }

 private:
  /// The routing status of an interface, or null.
  BfnL3::L3IntfRoutingStatus const* routingStatus(Ovra::IntfId intfId) const;
  /// Whether the agent's status calls the address one of the switch's own.
  bool selfIp(Pex::VrfId vrfId, Ovra::IpAddr ipAddr) const;
  /// Asks for the memory that adding or removing a pair will touch. The tables are too large for
  /// the caches, so that an event is little more than waiting for memory: better for all at once
  /// than for one after the other.
  void prefetch(Pex::VrfAndIpAddr const& pair, Ovra::IntfId intfId) const;
  /// The configured MAC, all-zero when there is none.
  Ovra::EthAddr configuredMac(Pex::VrfId vrfId, Ovra::IpAddr ipAddr) const;

  Kiv::ReactorSlot<KivMacRewriteStatus> macRewriteStatus_;
  Kiv::ReactorSlot<KivOverlaySrcMacRewriteAgentConfig> overlaySrcMacRewriteAgentConfig_;
  Kiv::ReactorSlot<KivIntfIdToRoutingStatus> intfIdToRoutingStatus_;
  Kiv::Ptr<OverlaySrcMacRewriteManager> const manager_;
  Kiv::Ptr<Pex::L3Status const> const l3Status_;
  Kiv::ReactorSlot<KivRoutingHwRouteStatus> routingHwRouteStatus_;
  Kiv::HashMap<VrfIpCollection, &VrfIpCollection::intfId, 0x0C8E51D7> localIntfToVrfIp_;
  Kiv::HashMap2018Of<Pex::VrfAndIpAddr, Ovra::IntfId, 0x92D7A46B> localVrfIpToIntf_;
  Kiv::HashMap2018Of<U32, U32, 0xE4513B0F> fwdVlanIdPerVrf_;
  Kiv::ReactorCollection<Pex::VrfId, KivAgentVrfConfig, Agent::OverlaySrcMacRewrite const,
                         BfnMacRewriteSm, 0x56E20CB3>
      agentVrfConfig_;
  Kiv::ReactorCollection<L3::VrfName, KivHwRouteVrfStatus, Routing::Hardware::VrfStatus const,
                         BfnMacRewriteSm, 0xA7091F65>
      hwRouteVrfStatus_;
  Kiv::ReactorCollection<Pex::VrfId, KivMacRewriteVrfStatus, Agent::VrfStatus const,
                         BfnMacRewriteSm, 0x2BD6987D>
      macRewriteVrfStatus_;
};

/// See BfnMacRewriteSm::BfnMacRewriteSmIs.
BFN_MAC_REWRITE_EXPORT Kiv::Ptr<BfnMacRewriteSm> bfnMacRewriteSmFactory(
    Kiv::Ptr<Agent::Status const> const& agentStatus,
    Kiv::Ptr<Agent::Config const> const& agentConfig,
    Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
    Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteManager,
    Kiv::Ptr<Pex::L3Status const> const& l3Status,
    Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus);

}  // namespace BfnMacRewrite

// Made where the machine's reactors are complete.
extern template class Kiv::StateMachine<BfnMacRewrite::BfnMacRewriteSm>;
