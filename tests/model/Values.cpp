// SPDX-License-Identifier: Apache-2.0
#include "tests/model/Values.h"

#include "tests/support/PluginHost.h"

namespace BfnTest {

L3::VrfName name(int index) {
  static auto const names = [] {
    Table<L3::VrfName, kNames> all;
    for (int i = 0; i < kNames; ++i) all[i] = L3::VrfName(kNameText[i]);
    return all;
  }();
  return names[index];
}
Pex::VrfId id(int index) {
  return Pex::VrfId(kIdValue[index]);
}
Ovra::IpAddr ip(int index) {
  static auto const ips = [] {
    Table<Ovra::IpAddr, kIps> all;
    for (int i = 0; i < kIps; ++i) all[i] = ip(ipText(i).c_str());
    return all;
  }();
  return ips[index];
}
Ovra::IntfId intf(int index) {
  static auto const intfs = [] {
    Table<Ovra::IntfId, kIntfs> all;
    for (int i = 0; i < kIntfs; ++i) all[i] = Ovra::IntfId(kIntfText[i]);
    return all;
  }();
  return intfs[index];
}
Ovra::EthAddr mac(int index) {
  static auto const macs = [] {
    Table<Ovra::EthAddr, kMacs> all;
    for (int i = 0; i < kMacs; ++i) all[i] = mac(macText(i).c_str());
    return all;
  }();
  return macs[index];
}
Pex::PortVlanPair key(int intfIndex, int vlan) {
  return {intf(intfIndex), kKeyVlanValue[vlan]};
}

}  // namespace BfnTest
