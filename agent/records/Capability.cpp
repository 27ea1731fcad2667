// SPDX-License-Identifier: Apache-2.0
#include "agent/records/Capability.h"

#include "framework/generic/Describe.h"

namespace BfnMacRewrite {

Capability::Capability() = default;

void Capability::overlaySrcMacRewriteSupportedIs(bool supported) {
  overlaySrcMacRewriteSupported_.is(supported);
}

Kiv::Type const& Capability::_kivType() {
  using T = Capability;
  static Kiv::Type const type(
      "BfnMacRewrite::Capability", &Kiv::Entity::_kivType(),
      {Kiv::describeScalar<&T::overlaySrcMacRewriteSupported, &T::overlaySrcMacRewriteSupportedIs>(
          "overlaySrcMacRewriteSupported", kOverlaySrcMacRewriteSupported.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace BfnMacRewrite
