// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <tuple>
#include <vector>

#include "agent/records/BfnMacRewriteTypes.h"
#include "agent/records/Export.h"
#include "framework/collections/HashMap.h"
#include "framework/collections/HashMap2018.h"
#include "framework/collections/ReactorCollection.h"
#include "framework/collections/ReactorSlot.h"
#include "framework/core/Reactor.h"
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
/// Deliberate: losing an input as a whole deletes no rows. Removing a VRF's status, configuration
/// or route status, a reactor, or this machine leaves rows and indexes as they are.
class BFN_MAC_REWRITE_EXPORT BfnMacRewriteSm final : public Kiv::StateMachine<BfnMacRewriteSm> {
  using Sm = BfnMacRewriteSm;

 public:
  /// Makes the machine of the constructor's arguments and switches it on.
  static Kiv::Ptr<Sm> BfnMacRewriteSmIs(auto const&... inputs) {
    return Kiv::makeActive<Sm>(inputs...);
  }
  /// Writes every row that is due in one pass. A null input contributes nothing. Throws
  /// Kiv::RangeException when that pass meets a VLAN outside 1..4094; the rows before it stay.
  /// Throws std::bad_alloc; no row of the pass stays then.
  BfnMacRewriteSm(Kiv::Ptr<Agent::Status const> const& agentStatus,
                  Kiv::Ptr<Agent::Config const> const& agentConfig,
                  Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
                  Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteManager,
                  Kiv::Ptr<Pex::L3Status const> const& l3Status,
                  Kiv::Ptr<Routing::Hardware::RouteStatus const> const& routingHwRouteStatus);
  ~BfnMacRewriteSm() override;

  // The inputs as they are watched; null for one that is not.
  auto macRewriteStatus() const { return macRewriteStatus_.notifier(); }
  auto overlaySrcMacRewriteAgentConfig() const {
    return overlaySrcMacRewriteAgentConfig_.notifier();
  }
  auto intfIdToRoutingStatus() const { return intfIdToRoutingStatus_.notifier(); }
  auto const& overlaySrcMacRewriteManager() const { return manager_; }
  auto const& l3Status() const { return l3Status_; }
  auto routingHwRouteStatus() const { return routingHwRouteStatus_.notifier(); }
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
  /// pair on it, or deletes them. Deliberate: a replaced status adds every row once more, which
  /// counts a reference and leaves the VLAN of the row as it was.
  void handleL3IntfRoutingStatus(Ovra::IntfId intfId);
  /// The same for every interface that has routing status, in the collection's order.
  void handleL3IntfRoutingStatus();

  /// A per-VRF element appeared or disappeared under its key. Removal destroys the per-VRF reactor
  /// only.
  void handleMacRewriteVrfStatus(Pex::VrfId vrfId);
  void handleAgentVrfConfig(Pex::VrfId vrfId);
  void handleHwRouteVrfStatus(L3::VrfName vrfName);

  struct KivMacRewriteStatus final
      : Kiv::Reactor<KivMacRewriteStatus, Agent::Status const, Sm,
                     Kiv::On<Agent::Status::kVrfStatus, &Sm::handleMacRewriteVrfStatus>> {};
  struct KivOverlaySrcMacRewriteAgentConfig final
      : Kiv::Reactor<KivOverlaySrcMacRewriteAgentConfig, Agent::Config const, Sm,
                     Kiv::On<Agent::Config::kOverlaySrcMacRewrite, &Sm::handleAgentVrfConfig>> {};
  struct KivIntfIdToRoutingStatus final
      : Kiv::Reactor<KivIntfIdToRoutingStatus, IntfIdToRoutingStatus const, Sm,
                     Kiv::On<IntfIdToRoutingStatus::kL3IntfRoutingStatus,
                             Kiv::keyed<Ovra::IntfId>(&Sm::handleL3IntfRoutingStatus)>> {};
  struct KivRoutingHwRouteStatus final
      : Kiv::Reactor<
            KivRoutingHwRouteStatus, Routing::Hardware::RouteStatus const, Sm,
            Kiv::On<Routing::Hardware::RouteStatus::kVrfStatus, &Sm::handleHwRouteVrfStatus>> {};

  /// A reactor on the element of one VRF. Self's constructor ends with handleInitialized(), which
  /// handles everything that the element holds already.
  template <class Self, class Notifier>
  class VrfReactor : public Kiv::Reactor<Self, Notifier, BfnMacRewriteSm> {
   public:
    using VrfReactor::Reactor::Reactor;

    bool initialized() const { return initialized_; }
    void initializedIs(bool initialized) { initialized_ = initialized; }

   private:
    bool initialized_ = false;
  };

  /// Watches the configured rewrites of one VRF.
  class KivAgentVrfConfig final
      : public VrfReactor<KivAgentVrfConfig, Agent::OverlaySrcMacRewrite const> {
   public:
    KivAgentVrfConfig(Kiv::Ptr<Notifier> const& config, Sm* owner) : VrfReactor(config, owner) {
      handleInitialized();
    }

    Pex::VrfId vrfId() const { return notifierRaw()->vrfId(); }

    void handleInitialized();
    /// The configured MAC of one address changed. Deliberate: removing one leaves its row as it is.
    void handleIpAndMac(Ovra::IpAddr ipAddr);
    void handleIpAndMac();

    using Rows = Kiv::Rows<Kiv::On<Agent::OverlaySrcMacRewrite::kIpAndMac,
                                   Kiv::keyed<Ovra::IpAddr>(&KivAgentVrfConfig::handleIpAndMac),
                                   Kiv::whole(&KivAgentVrfConfig::handleIpAndMac)>>;
  };

  /// Watches where the addresses of one VRF live.
  class KivMacRewriteVrfStatus final
      : public VrfReactor<KivMacRewriteVrfStatus, Agent::VrfStatus const> {
   public:
    KivMacRewriteVrfStatus(Kiv::Ptr<Notifier> const& status, Sm* owner)
        : VrfReactor(status, owner) {
      handleInitialized();
    }

    Pex::VrfId vrfId() const { return notifierRaw()->vrfId(); }

    void handleInitialized();
    void handleIpAndIntfId(Ovra::IpAddr ipAddr);
    void handleIpAndIntfId();
    /// Indexes an address and adds its row when its interface has routing status. An address that
    /// is indexed on another interface is fatal: a move must arrive as a removal and an addition.
    void addIpAndIntfId(Ovra::IpAddr ipAddr);
    /// Takes an address out of the indexes and deletes its row; not indexed: nothing.
    void removeIpAndIntfId(Ovra::IpAddr ipAddr);
    /// Rebuilds the rows of the VRF's self IPs; the others carry the VLAN of their interface.
    void handleFwdVlanIdChange(U32 oldVlanId, U32 newVlanId);

    using Rows =
        Kiv::Rows<Kiv::On<Agent::VrfStatus::kIpAndIntfId,
                          Kiv::keyed<Ovra::IpAddr>(&KivMacRewriteVrfStatus::handleIpAndIntfId),
                          Kiv::whole(&KivMacRewriteVrfStatus::handleIpAndIntfId)>>;
  };

  /// Watches the forwarding VLAN of one VRF.
  class KivHwRouteVrfStatus final
      : public VrfReactor<KivHwRouteVrfStatus, Routing::Hardware::VrfStatus const> {
   public:
    KivHwRouteVrfStatus(Kiv::Ptr<Notifier> const& status, Sm* owner) : VrfReactor(status, owner) {
      handleInitialized();
    }

    L3::VrfName vrfName() const { return notifierRaw()->vrfName(); }

    void handleInitialized();
    void handleFwdVlanId();

    using Rows = Kiv::Rows<
        Kiv::On<Routing::Hardware::VrfStatus::kFwdVlanId, &KivHwRouteVrfStatus::handleFwdVlanId>>;
  };

  void addOverlaySrcMacRewriteTableEntry(Pex::VrfId vrfId, Ovra::IntfId intfId,
                                         Ovra::IpAddr ipAddr);
  void updateOverlaySrcMacRewriteTableEntry(Pex::VrfId vrfId, Ovra::IntfId intfId,
                                            Ovra::IpAddr ipAddr);
  /// Deliberate: fatal before initialization, where add and update are skipped silently.
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
  auto const& localVrfIpToIntf() const { return localVrfIpToIntf_; }
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
  void agentVrfConfigIs(Kiv::Ptr<Agent::OverlaySrcMacRewrite const> const& config) {
    agentVrfConfig_.is(config->vrfId(), config, this);
  }
  void agentVrfConfigDel(Pex::VrfId vrfId) { agentVrfConfig_.del(vrfId); }
  void agentVrfConfigDelAll() { agentVrfConfig_.delAll(); }
  KivHwRouteVrfStatus* hwRouteVrfStatus(L3::VrfName vrfName) const {
    return hwRouteVrfStatus_.find(vrfName);
  }
  void hwRouteVrfStatusIs(Kiv::Ptr<Routing::Hardware::VrfStatus const> const& status) {
    hwRouteVrfStatus_.is(status->vrfName(), status, this);
  }
  void hwRouteVrfStatusDel(L3::VrfName vrfName) { hwRouteVrfStatus_.del(vrfName); }
  void hwRouteVrfStatusDelAll() { hwRouteVrfStatus_.delAll(); }
  KivMacRewriteVrfStatus* macRewriteVrfStatus(Pex::VrfId vrfId) const {
    return macRewriteVrfStatus_.find(vrfId);
  }
  void macRewriteVrfStatusIs(Kiv::Ptr<Agent::VrfStatus const> const& status) {
    macRewriteVrfStatus_.is(status->vrfId(), status, this);
  }
  void macRewriteVrfStatusDel(Pex::VrfId vrfId) { macRewriteVrfStatus_.del(vrfId); }
  void macRewriteVrfStatusDelAll() { macRewriteVrfStatus_.delAll(); }

  static Kiv::Type const& _kivType();

  void kivEachReactor(auto f) {
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
  /// Puts a pair into both indexes, or takes it out of both. Without memory, std::bad_alloc leaves
  /// indexIs() half done; indexDel() takes that back.
  void indexIs(Pex::VrfAndIpAddr const& pair, Ovra::IntfId intfId);
  void indexDel(Pex::VrfAndIpAddr const& pair, Ovra::IntfId intfId);
  /// Whether a pass in progress has yet to add the row, which is then not there to be changed.
  bool rowIsYetToCome(Ovra::IntfId intfId, Ovra::IpAddr ipAddr) const {
    return addingRows_ && !manager_->matchSpecAndRefCount({ipAddr, intfId, false});
  }
  /// Prefetches the index slots and the record of a pair, so that their cache misses overlap.
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
  Kiv::ReactorCollection<Pex::VrfId, KivAgentVrfConfig, 0x56E20CB3> agentVrfConfig_;
  Kiv::ReactorCollection<L3::VrfName, KivHwRouteVrfStatus, 0xA7091F65> hwRouteVrfStatus_;
  Kiv::ReactorCollection<Pex::VrfId, KivMacRewriteVrfStatus, 0x2BD6987D> macRewriteVrfStatus_;
  /// Room for the pairs of any one interface, so that deleting their rows allocates nothing.
  std::vector<Pex::VrfAndIpAddr> passRoom_;
  /// The rows written by the constructor's pass; null after it.
  std::vector<Agent::IpAndIntfId>* firstRows_ = nullptr;
  /// A pass adds rows; pairs may be indexed whose rows are yet to come.
  bool addingRows_ = false;
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
