// SPDX-License-Identifier: Apache-2.0
#include "framework/l3/L3RoutingStatus.h"

#include "framework/generic/Describe.h"

namespace BfnL3 {

L3IntfRoutingStatus::L3IntfRoutingStatus(Pex::PortVlanPair const& intfAndVlan)
    : intfAndVlan_(intfAndVlan) {}

void L3IntfRoutingStatus::vlanIdIs(Kiv::U16 vlanId) {
  vlanId_.is(vlanId);
}
void L3IntfRoutingStatus::vrfIdIs(Pex::VrfId vrfId) {
  vrfId_.is(vrfId);
}

Kiv::Type const& L3IntfRoutingStatus::_kivType() {
  using T = L3IntfRoutingStatus;
  static Kiv::Type const type(
      "BfnL3::L3IntfRoutingStatus", &Kiv::Entity::_kivType(),
      {Kiv::describeConstant<&T::intfAndVlan>("intfAndVlan", kIntfAndVlan.id),
       Kiv::describeScalar<&T::vlanId, &T::vlanIdIs>("vlanId", kVlanId.id),
       Kiv::describeScalar<&T::vrfId, &T::vrfIdIs>("vrfId", kVrfId.id)});
  return type;
}

L3RoutingStatus::L3RoutingStatus() = default;

Kiv::Ptr<L3IntfRoutingStatus> L3RoutingStatus::l3IntfRoutingStatusIs(Pex::PortVlanPair const& key) {
  return l3IntfRoutingStatus_.is(key);
}
void L3RoutingStatus::l3IntfRoutingStatusIs(Kiv::Ptr<L3IntfRoutingStatus> const& status) {
  l3IntfRoutingStatus_.memberIs(status);
}
void L3RoutingStatus::l3IntfRoutingStatusDel(Pex::PortVlanPair const& key) {
  l3IntfRoutingStatus_.del(key);
}
void L3RoutingStatus::l3IntfRoutingStatusDelAll() {
  l3IntfRoutingStatus_.delAll();
}
void L3RoutingStatus::l3IntfRoutingStatusRenotify(Pex::PortVlanPair const& key) {
  notify(kL3IntfRoutingStatus.id, &key);
}
void L3RoutingStatus::routingEnabledIs(bool enabled) {
  routingEnabled_.is(enabled);
}

Kiv::Type const& L3RoutingStatus::_kivType() {
  using T = L3RoutingStatus;
  constexpr auto kMake =
      static_cast<Kiv::Ptr<L3IntfRoutingStatus> (T::*)(Pex::PortVlanPair const&)>(
          &T::l3IntfRoutingStatusIs);
  static Kiv::Type const type(
      "BfnL3::L3RoutingStatus", &Kiv::Entity::_kivType(),
      {Kiv::describeCollection<&T::l3IntfRoutingStatus_, kMake, &T::l3IntfRoutingStatusDel>(
           "l3IntfRoutingStatus", kL3IntfRoutingStatus.id),
       Kiv::describeScalar<&T::routingEnabled, &T::routingEnabledIs>("routingEnabled",
                                                                     kRoutingEnabled.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace BfnL3
