// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <iosfwd>

#include "agent/records/Export.h"
#include "framework/collections/MemberCollection.h"
#include "framework/collections/ValueCollection.h"
#include "framework/core/Entity.h"
#include "framework/core/String.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IntfId.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VrfId.h"

namespace BfnMacRewrite {

using Kiv::U16;
using Kiv::U32;
using Kiv::U8;

/// A source IPv4 address and the MAC that packets from it leave with.
struct BFN_MAC_REWRITE_EXPORT IpAndMac {
  Ovra::IpAddr ip;
  Ovra::EthAddr mac;

  IpAndMac() = default;
  IpAndMac(Ovra::IpAddr ipAddr, Ovra::EthAddr const& ethAddr) : ip(ipAddr), mac(ethAddr) {}
  /// Parses the form that valueToStrep() writes from the front of [it, end) and moves `it` past it.
  /// Throws Kiv::RangeException, naming the field where there is one.
  IpAndMac(Kiv::String::Iterator& it, Kiv::String::Iterator const& end);
  Kiv::String valueToStrep() const;

  friend bool operator==(IpAndMac const&, IpAndMac const&) = default;
};

BFN_MAC_REWRITE_EXPORT std::ostream& operator<<(std::ostream& out, IpAndMac const& value);

/// The agent's own records: what is configured and where addresses live, as the rewrite logic joins
/// them into rows of the chip's table.
namespace Agent {

/// Where one IPv4 address of a VRF lives.
struct BFN_MAC_REWRITE_EXPORT IpAndIntfId {
  Ovra::IpAddr ipAddr;  ///< the key
  Ovra::IntfId intfId;  ///< the empty id: on no interface
  bool selfIp = false;  ///< one of the switch's own addresses

  IpAndIntfId() = default;
  IpAndIntfId(Ovra::IpAddr ip, Ovra::IntfId intf, bool self)
      : ipAddr(ip), intfId(intf), selfIp(self) {}
  /// Parses the form that valueToStrep() writes from the front of [it, end) and moves `it` past it.
  /// Throws Kiv::RangeException, naming the field where there is one.
  IpAndIntfId(Kiv::String::Iterator& it, Kiv::String::Iterator const& end);
  /// "Value('BfnMacRewrite::Agent::IpAndIntfId', ** {'ipAddr': ..., 'intfId': ..., 'selfIp': ...})"
  Kiv::String valueToStrep() const;

  U32 hash(unsigned int seed) const;

  friend bool operator==(IpAndIntfId const&, IpAndIntfId const&) = default;
  /// By address, then interface id, then false before true.
  friend bool operator<(IpAndIntfId const& a, IpAndIntfId const& b) {
    if (!(a.ipAddr == b.ipAddr)) return a.ipAddr < b.ipAddr;
    if (!(a.intfId == b.intfId)) return a.intfId < b.intfId;
    return a.selfIp < b.selfIp;
  }
};

/// Writes valueToStrep().
BFN_MAC_REWRITE_EXPORT std::ostream& operator<<(std::ostream& out, IpAndIntfId const& value);

/// The configured rewrites of one VRF: source IP to MAC.
///
/// Lives in Agent::Config; a record whose last rewrite is removed stays until its owner deletes it.
class BFN_MAC_REWRITE_EXPORT OverlaySrcMacRewrite final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, OverlaySrcMacRewrite> kVrfId{258};
  static constexpr Kiv::Attr<Ovra::IpAddr, OverlaySrcMacRewrite> kIpAndMac{259};

  explicit OverlaySrcMacRewrite(Pex::VrfId vrfId);

  Pex::VrfId vrfId() const { return vrfId_; }

  /// The rewrite of one address; a default value (all zero) when there is none.
  IpAndMac ipAndMac(Ovra::IpAddr ip) const { return ipAndMac_.get(ip); }
  auto const& ipAndMac() const { return ipAndMac_; }
  /// Inserts or overwrites and notifies with the address; an equal value: nothing.
  void ipAndMacIs(IpAndMac const& value);
  /// Removes, notifies and returns the value; absent: an all-zero value and no notification.
  IpAndMac ipAndMacDel(Ovra::IpAddr ip);
  /// Removes every rewrite, each with its notification.
  void ipAndMacDelAll();

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Pex::VrfId const vrfId_;
  Kiv::ValueCollection<kIpAndMac, IpAndMac, &IpAndMac::ip, 0x2C8B2578> ipAndMac_{*this};
};

/// The rewrites of all VRFs, by VRF id. Written by the configuration translator, read by the
/// rewrite state machine. Local to the agent; lives as long as the mount.
class BFN_MAC_REWRITE_EXPORT Config final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<Pex::VrfId, Config> kOverlaySrcMacRewrite{258};

  Config();

  /// The record of one VRF, or null. Valid while it is in.
  OverlaySrcMacRewrite* overlaySrcMacRewrite(Pex::VrfId vrfId) {
    return overlaySrcMacRewrite_.find(vrfId);
  }
  OverlaySrcMacRewrite const* overlaySrcMacRewrite(Pex::VrfId vrfId) const {
    return overlaySrcMacRewrite_.find(vrfId);
  }
  auto const& overlaySrcMacRewrite() const { return overlaySrcMacRewrite_; }
  /// The record of one VRF; made, switched on, put under this entity and announced when absent.
  Kiv::Ptr<OverlaySrcMacRewrite> overlaySrcMacRewriteIs(Pex::VrfId vrfId);
  /// Removes the whole record and notifies; absent: nothing.
  void overlaySrcMacRewriteDel(Pex::VrfId vrfId);
  /// Removes every record, each with its notification.
  void overlaySrcMacRewriteDelAll();

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::MemberCollection<kOverlaySrcMacRewrite, OverlaySrcMacRewrite, &OverlaySrcMacRewrite::vrfId,
                        0x6B423388>
      overlaySrcMacRewrite_{*this};
};

/// Where the addresses of one VRF live.
class BFN_MAC_REWRITE_EXPORT VrfStatus final : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<void, VrfStatus> kVrfId{130};
  static constexpr Kiv::Attr<Ovra::IpAddr, VrfStatus> kIpAndIntfId{131};

  explicit VrfStatus(Pex::VrfId vrfId);

  Pex::VrfId vrfId() const { return vrfId_; }

  /// Where one address lives; a default value when it is not known.
  IpAndIntfId ipAndIntfId(Ovra::IpAddr ip) const { return ipAndIntfId_.get(ip); }
  auto const& ipAndIntfId() const { return ipAndIntfId_; }
  /// Inserts or overwrites and notifies with the address; an equal value: nothing.
  void ipAndIntfIdIs(IpAndIntfId const& value);
  /// Removes, notifies and returns the value; absent: a default value and no notification.
  IpAndIntfId ipAndIntfIdDel(Ovra::IpAddr ip);
  /// Removes every address, each with its notification.
  void ipAndIntfIdDelAll();

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Pex::VrfId const vrfId_;
  Kiv::ValueCollection<kIpAndIntfId, IpAndIntfId, &IpAndIntfId::ipAddr, 0x9026001C> ipAndIntfId_{
      *this};
};

/// Where the addresses of all VRFs live, by VRF id. Filled from outside, by attribute name through
/// the generic interface; the agent only reads it. Lives as long as the mount.
class BFN_MAC_REWRITE_EXPORT Status final : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<Pex::VrfId, Status> kVrfStatus{130};

  Status();

  /// The status of one VRF, or null. Valid while it is in.
  VrfStatus* vrfStatus(Pex::VrfId vrfId) { return vrfStatus_.find(vrfId); }
  VrfStatus const* vrfStatus(Pex::VrfId vrfId) const { return vrfStatus_.find(vrfId); }
  auto const& vrfStatus() const { return vrfStatus_; }
  /// The status of one VRF; made, switched on and announced when absent.
  Kiv::Ptr<VrfStatus> vrfStatusIs(Pex::VrfId vrfId);
  /// Removes the whole status and notifies; absent: nothing.
  void vrfStatusDel(Pex::VrfId vrfId);
  /// Removes every status, each with its notification.
  void vrfStatusDelAll();

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::MemberCollection<kVrfStatus, VrfStatus, &VrfStatus::vrfId, 0xF12F0E28> vrfStatus_{*this};
};

}  // namespace Agent
}  // namespace BfnMacRewrite
