#pragma once

#include "framework/core/Reactor.h"
#include "rewrite/BfnMacRewriteSm.h"

namespace BfnMacRewrite {

/// Watches the configured rewrites of one VRF.
class BfnMacRewriteSm::KivAgentVrfConfig final
    : public Kiv::Reactor<KivAgentVrfConfig, Agent::OverlaySrcMacRewrite const, BfnMacRewriteSm> {
 public:
  KivAgentVrfConfig(Kiv::Ptr<Agent::OverlaySrcMacRewrite const> const& config,
                    BfnMacRewriteSm* owner);

  Pex::VrfId vrfId() const { return notifierRaw()->vrfId(); }
  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  void handleInitialized();
  /// The configured MAC of one address changed. Removing one leaves its row as it is.
  void handleIpAndMac(Ovra::IpAddr ipAddr);
  void handleIpAndMac();

  using Rows = Kiv::Rows<Kiv::On<Agent::OverlaySrcMacRewrite::kIpAndMac,
                                 Kiv::keyed<Ovra::IpAddr>(&KivAgentVrfConfig::handleIpAndMac),
                                 Kiv::whole(&KivAgentVrfConfig::handleIpAndMac)>>;

 private:
  bool initialized_ = false;
};

/// Watches where the addresses of one VRF live.
class BfnMacRewriteSm::KivMacRewriteVrfStatus final
    : public Kiv::Reactor<KivMacRewriteVrfStatus, Agent::VrfStatus const, BfnMacRewriteSm> {
 public:
  KivMacRewriteVrfStatus(Kiv::Ptr<Agent::VrfStatus const> const& status, BfnMacRewriteSm* owner);

  Pex::VrfId vrfId() const { return notifierRaw()->vrfId(); }
  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  void handleInitialized();
  void handleIpAndIntfId(Ovra::IpAddr ipAddr);
  void handleIpAndIntfId();
  /// Indexes an address and adds its row when its interface has routing status. An address that is
  /// indexed on another interface is fatal: a move must arrive as a removal and an addition.
  void addIpAndIntfId(Ovra::IpAddr ipAddr);
  /// Takes an address out of the indexes and deletes its row; not indexed: nothing.
  void removeIpAndIntfId(Ovra::IpAddr ipAddr);
  /// Rebuilds the rows of the VRF's self IPs; the others carry the VLAN of their interface.
  void handleFwdVlanIdChange(U32 oldVlanId, U32 newVlanId);

  using Rows =
      Kiv::Rows<Kiv::On<Agent::VrfStatus::kIpAndIntfId,
                        Kiv::keyed<Ovra::IpAddr>(&KivMacRewriteVrfStatus::handleIpAndIntfId),
                        Kiv::whole(&KivMacRewriteVrfStatus::handleIpAndIntfId)>>;

 private:
  bool initialized_ = false;
};

/// Watches the forwarding VLAN of one VRF.
class BfnMacRewriteSm::KivHwRouteVrfStatus final
    : public Kiv::Reactor<KivHwRouteVrfStatus, Routing::Hardware::VrfStatus const,
                          BfnMacRewriteSm> {
 public:
  KivHwRouteVrfStatus(Kiv::Ptr<Routing::Hardware::VrfStatus const> const& status,
                      BfnMacRewriteSm* owner);

  L3::VrfName vrfName() const { return notifierRaw()->vrfName(); }
  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  void handleInitialized();
  void handleFwdVlanId();

  using Rows = Kiv::Rows<
      Kiv::On<Routing::Hardware::VrfStatus::kFwdVlanId, &KivHwRouteVrfStatus::handleFwdVlanId>>;

 private:
  bool initialized_ = false;
};

}  // namespace BfnMacRewrite
