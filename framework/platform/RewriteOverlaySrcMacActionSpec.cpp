// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/RewriteOverlaySrcMacActionSpec.h"

#include "framework/core/Attribute.h"
#include "framework/generic/Describe.h"

namespace BfOverlaySrcMacRewrite {

void RewriteOverlaySrcMacActionSpec::ouiIs(Kiv::U32 value) {
  Kiv::attributeIs<kOui>(*this, oui_, value);
}

void RewriteOverlaySrcMacActionSpec::stationIs(Kiv::U32 value) {
  Kiv::attributeIs<kStation>(*this, station_, value);
}

Kiv::Type const& RewriteOverlaySrcMacActionSpec::_kivType() {
  using T = RewriteOverlaySrcMacActionSpec;
  static Kiv::Type const type(
      "BfOverlaySrcMacRewrite::RewriteOverlaySrcMacActionSpec", &Kiv::Entity::_kivType(),
      {Kiv::describeScalar<&T::oui, &T::ouiIs>("oui", kOui.id),
       Kiv::describeScalar<&T::station, &T::stationIs>("station", kStation.id)},
      Kiv::describeDefault<T>());
  return type;
}

Kiv::Ptr<RewriteOverlaySrcMacActionSpec> RewriteOverlaySrcMacActionSpecIs() {
  return Kiv::makeActive<RewriteOverlaySrcMacActionSpec>();
}

}  // namespace BfOverlaySrcMacRewrite
