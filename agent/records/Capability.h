// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/records/Export.h"
#include "framework/core/Attribute.h"
#include "framework/core/Entity.h"

namespace BfnMacRewrite {

/// What the agent reports about the chip in the state database.
class BFN_MAC_REWRITE_EXPORT Capability final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, Capability> kOverlaySrcMacRewriteSupported{258};

  Capability();

  bool overlaySrcMacRewriteSupported() const { return overlaySrcMacRewriteSupported_(); }
  /// Notifies on a real change.
  void overlaySrcMacRewriteSupportedIs(bool supported);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::Attribute<kOverlaySrcMacRewriteSupported, bool> overlaySrcMacRewriteSupported_{*this};
};

}  // namespace BfnMacRewrite
