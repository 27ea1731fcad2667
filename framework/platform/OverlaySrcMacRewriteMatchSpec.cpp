#include "framework/platform/OverlaySrcMacRewriteMatchSpec.h"

#include "framework/generic/Describe.h"

namespace BfOverlaySrcMacRewrite {

void OverlaySrcMacRewriteMatchSpec::matchTypeIs(Kiv::U8 value) {
  if (value == matchType_) return;
  matchType_ = value;
  notify(kMatchType.id);
}

void OverlaySrcMacRewriteMatchSpec::vlanIs(Kiv::U16 value) {
  if (value == vlan_) return;
  vlan_ = value;
  notify(kVlan.id);
}

void OverlaySrcMacRewriteMatchSpec::sourceIpIs(Kiv::U32 value) {
  if (value == sourceIp_) return;
  sourceIp_ = value;
  notify(kSourceIp.id);
}

void OverlaySrcMacRewriteMatchSpec::validIs(Kiv::U8 value) {
  if (value == valid_) return;
  valid_ = value;
  notify(kValid.id);
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
