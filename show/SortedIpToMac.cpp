// SPDX-License-Identifier: Apache-2.0
#include "show/SortedIpToMac.h"

#include "framework/generic/Describe.h"

namespace BfnMacRewrite {

SortedIpToMac::SortedIpToMac(L3::VrfName vrfName) : vrfName_(vrfName) {}

void SortedIpToMac::ipToMacIs(Ovra::IpAddr ip, Ovra::EthAddr const& mac) {
  ipToMac_.insertOrAssign(ip, mac);
}
void SortedIpToMac::ipToMacDel(Ovra::IpAddr ip) {
  ipToMac_.erase(ip);
}
void SortedIpToMac::ipToMacDel(IpToMac::ConstIterator at) {
  ipToMac_.erase(at);
}
void SortedIpToMac::ipToMacDelAll() {
  ipToMac_.clear();
}

Kiv::Type const& SortedIpToMac::_kivType() {
  using T = SortedIpToMac;
  static Kiv::Type const type("BfnMacRewrite::SortedIpToMac", &Kiv::Entity::_kivType(),
                              {Kiv::describeConstant<&T::vrfName>("vrfName", 258)});
  return type;
}

}  // namespace BfnMacRewrite
