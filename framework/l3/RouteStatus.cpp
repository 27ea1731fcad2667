// SPDX-License-Identifier: Apache-2.0
#include "framework/l3/RouteStatus.h"

#include "framework/generic/Describe.h"

namespace Routing::Hardware {

VrfStatus::VrfStatus(L3::VrfName vrfName) : vrfName_(vrfName) {}

void VrfStatus::vrfIdIs(Kiv::U32 vrfId) {
  vrfId_.is(vrfId);
}
void VrfStatus::fwdVlanIdIs(Kiv::U32 fwdVlanId) {
  fwdVlanId_.is(fwdVlanId);
}

Kiv::Type const& VrfStatus::_kivType() {
  using T = VrfStatus;
  static Kiv::Type const type(
      "Routing::Hardware::VrfStatus", &Kiv::Entity::_kivType(),
      {Kiv::describeConstant<&T::vrfName>("vrfName", kVrfName.id),
       Kiv::describeScalar<&T::vrfId, &T::vrfIdIs>("vrfId", kVrfId.id),
       Kiv::describeScalar<&T::fwdVlanId, &T::fwdVlanIdIs>("fwdVlanId", kFwdVlanId.id)});
  return type;
}

RouteStatus::RouteStatus() = default;

Kiv::Ptr<VrfStatus> RouteStatus::vrfStatusIs(L3::VrfName vrfName) {
  return vrfStatus_.is(vrfName);
}
void RouteStatus::vrfStatusIs(Kiv::Ptr<VrfStatus> const& status) {
  vrfStatus_.memberIs(status);
}
void RouteStatus::vrfStatusDel(L3::VrfName vrfName) {
  vrfStatus_.del(vrfName);
}
void RouteStatus::vrfStatusDelAll() {
  vrfStatus_.delAll();
}

Kiv::Type const& RouteStatus::_kivType() {
  using T = RouteStatus;
  constexpr auto kMake = static_cast<Kiv::Ptr<VrfStatus> (T::*)(L3::VrfName)>(&T::vrfStatusIs);
  static Kiv::Type const type("Routing::Hardware::RouteStatus", &Kiv::Entity::_kivType(),
                              {Kiv::describeCollection<&T::vrfStatus_, kMake, &T::vrfStatusDel>(
                                  "vrfStatus", kVrfStatus.id)},
                              Kiv::describeDefault<T>());
  return type;
}

}  // namespace Routing::Hardware
