#include "framework/platform/RewriteOverlaySrcMacActionSpec.h"

#include "framework/generic/Describe.h"

namespace BfOverlaySrcMacRewrite {

void RewriteOverlaySrcMacActionSpec::ouiIs(Kiv::U32 value) {
  if (value == oui_) return;
  oui_ = value;
  notify(kOui.id);
}

void RewriteOverlaySrcMacActionSpec::stationIs(Kiv::U32 value) {
  if (value == station_) return;
  station_ = value;
  notify(kStation.id);
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
