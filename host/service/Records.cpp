// SPDX-License-Identifier: Apache-2.0
#include "host/service/Records.h"

#include "framework/generic/Describe.h"

namespace Host {

namespace {

Kiv::TypeRegistration const registration{&BringUp::_kivType, &ChipPorts::_kivType};

}  // namespace

Kiv::Type const& BringUp::_kivType() {
  using T = BringUp;
  static Kiv::Type const type("Host::BringUp", &Kiv::Entity::_kivType(),
                              {Kiv::describeScalar<&T::activeProfile, &T::activeProfileIs>(
                                   "activeProfile", kActiveProfile.id),
                               Kiv::describeScalar<&T::inputsComplete, &T::inputsCompleteIs>(
                                   "inputsComplete", kInputsComplete.id)},
                              Kiv::describeDefault<T>());
  return type;
}

Kiv::Type const& ChipPorts::_kivType() {
  using T = ChipPorts;
  static Kiv::Type const type(
      "Host::ChipPorts", &Kiv::Entity::_kivType(),
      {Kiv::describeCollection<&T::vlan_, &T::vlanIs, &T::vlanDel>("vlan", kVlan.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace Host
