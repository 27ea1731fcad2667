// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/OverlaySrcMacRewriteMatchSpec.h"

#include "framework/core/Attribute.h"
#include "framework/generic/Describe.h"

namespace BfOverlaySrcMacRewrite {

void OverlaySrcMacRewriteMatchSpec::matchTypeIs(Kiv::U8 value) {
  Kiv::attributeIs<kMatchType>(*this, matchType_, value);
}

void OverlaySrcMacRewriteMatchSpec::vlanIs(Kiv::U16 value) {
  Kiv::attributeIs<kVlan>(*this, vlan_, value);
}

void OverlaySrcMacRewriteMatchSpec::sourceIpIs(Kiv::U32 value) {
  Kiv::attributeIs<kSourceIp>(*this, sourceIp_, value);
}

void OverlaySrcMacRewriteMatchSpec::validIs(Kiv::U8 value) {
  Kiv::attributeIs<kValid>(*this, valid_, value);
}

Kiv::Type const& OverlaySrcMacRewriteMatchSpec::_kivType() {
  using T = OverlaySrcMacRewriteMatchSpec;
  static Kiv::Type const type(
      "BfOverlaySrcMacRewrite::OverlaySrcMacRewriteMatchSpec", &Kiv::Entity::_kivType(),
      {Kiv::describeScalar<&T::matchType, &T::matchTypeIs>("matchType", kMatchType.id),
       Kiv::describeScalar<&T::vlan, &T::vlanIs>("vlan", kVlan.id),
       Kiv::describeScalar<&T::sourceIp, &T::sourceIpIs>("sourceIp", kSourceIp.id),
       Kiv::describeScalar<&T::valid, &T::validIs>("valid", kValid.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace BfOverlaySrcMacRewrite
