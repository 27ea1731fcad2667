// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Entity.h"
#include "framework/core/Types.h"

namespace BfOverlaySrcMacRewrite {

/// What a row of the table does to a packet: the packet leaves with this source MAC. Each setter
/// notifies on a real change.
class RewriteOverlaySrcMacActionSpec final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, RewriteOverlaySrcMacActionSpec> kOui{258};
  static constexpr Kiv::Attr<void, RewriteOverlaySrcMacActionSpec> kStation{259};

  RewriteOverlaySrcMacActionSpec() = default;

  /// Upper three bytes of the MAC, as a number.
  Kiv::U32 oui() const { return oui_; }
  void ouiIs(Kiv::U32 value);
  /// Lower three bytes of the MAC, as a number.
  Kiv::U32 station() const { return station_; }
  void stationIs(Kiv::U32 value);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::U32 oui_ = 0;
  Kiv::U32 station_ = 0;
};

/// A new action spec, its notification on.
Kiv::Ptr<RewriteOverlaySrcMacActionSpec> RewriteOverlaySrcMacActionSpecIs();

}  // namespace BfOverlaySrcMacRewrite
