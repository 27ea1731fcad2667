// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Entity.h"
#include "framework/core/Types.h"

namespace BfOverlaySrcMacRewrite {

/// What a packet must look like for a row of the table to apply.
///
/// One object of it stays in memory for every row, so the fields are packed; each setter notifies
/// on a real change.
class OverlaySrcMacRewriteMatchSpec final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, OverlaySrcMacRewriteMatchSpec> kMatchType{258};
  static constexpr Kiv::Attr<void, OverlaySrcMacRewriteMatchSpec> kVlan{259};
  static constexpr Kiv::Attr<void, OverlaySrcMacRewriteMatchSpec> kSourceIp{260};
  static constexpr Kiv::Attr<void, OverlaySrcMacRewriteMatchSpec> kValid{261};

  OverlaySrcMacRewriteMatchSpec() = default;

  /// Kind of match; packets of the overlay are looked up with 5.
  Kiv::U8 matchType() const { return matchType_; }
  void matchTypeIs(Kiv::U8 value);
  /// Forwarding VLAN.
  Kiv::U16 vlan() const { return vlan_; }
  void vlanIs(Kiv::U16 value);
  /// Source IPv4 address, byte-reversed: 10.0.0.1 is 0x0100000A.
  Kiv::U32 sourceIp() const { return sourceIp_; }
  void sourceIpIs(Kiv::U32 value);
  /// 1 for a row that applies.
  Kiv::U8 valid() const { return valid_; }
  void validIs(Kiv::U8 value);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  // Not in the order of the attributes: so they fill eight bytes.
  Kiv::U32 sourceIp_ = 0;
  Kiv::U16 vlan_ = 0;
  Kiv::U8 matchType_ = 0;
  Kiv::U8 valid_ = 0;
};

static_assert(sizeof(OverlaySrcMacRewriteMatchSpec) <= sizeof(Kiv::Entity) + 8);

}  // namespace BfOverlaySrcMacRewrite
