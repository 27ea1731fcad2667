// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/records/Export.h"
#include "framework/collections/RbTreeMap.h"
#include "framework/core/Entity.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VrfName.h"

namespace BfnMacRewrite {

/// One VRF's rewrites in the order in which they are shown.
class BFN_MAC_REWRITE_EXPORT SortedIpToMac final : public Kiv::Entity {
 public:
  using IpToMac = Kiv::RbTreeMap<Ovra::IpAddr, Ovra::EthAddr>;

  explicit SortedIpToMac(L3::VrfName vrfName) : vrfName_(vrfName) {}

  L3::VrfName vrfName() const { return vrfName_; }

  IpToMac const& ipToMac() const { return ipToMac_; }
  /// Inserts or overwrites.
  void ipToMacIs(Ovra::IpAddr ip, Ovra::EthAddr const& mac) { ipToMac_.insertOrAssign(ip, mac); }
  /// Absent: nothing.
  void ipToMacDel(Ovra::IpAddr ip) { ipToMac_.erase(ip); }
  void ipToMacDel(IpToMac::ConstIterator at) { ipToMac_.erase(at); }
  void ipToMacDelAll() { ipToMac_.clear(); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  L3::VrfName const vrfName_;
  IpToMac ipToMac_;
};

}  // namespace BfnMacRewrite
