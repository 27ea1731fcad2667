// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/records/BfnMacRewriteTypes.h"
#include "agent/records/Export.h"
#include "framework/core/Entity.h"
#include "framework/platform/OverlaySrcMacRewriteMatchSpec.h"

namespace BfnMacRewrite {

/// The table manager's record of one row: the match spec in the chip, and how many additions of the
/// key are not yet balanced by deletions.
///
/// Deliberate: the count is 16 bits wide and wraps at both ends unchecked.
class BFN_MAC_REWRITE_EXPORT MatchSpecAndRefCount final : public Kiv::Entity {
 public:
  using MatchSpec = BfOverlaySrcMacRewrite::OverlaySrcMacRewriteMatchSpec;

  explicit MatchSpecAndRefCount(Agent::IpAndIntfId const& ipAndIntfId)
      : ipAndIntfId_(ipAndIntfId) {}

  Agent::IpAndIntfId const& ipAndIntfId() const { return ipAndIntfId_; }

  Kiv::Ptr<MatchSpec const> const& overlaySrcMacRewriteMatchSpec() const { return matchSpec_; }
  void overlaySrcMacRewriteMatchSpecIs(Kiv::Ptr<MatchSpec const> const& v) { matchSpec_ = v; }

  U16 refCount() const { return refCount_; }
  void refCountIs(U16 v) { refCount_ = v; }
  /// Modulo 65536; both return the new count.
  U16 refCountInc(U16 n) { return refCount_ = static_cast<U16>(refCount_ + n); }
  U16 refCountDec(U16 n) { return refCount_ = static_cast<U16>(refCount_ - n); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Agent::IpAndIntfId const ipAndIntfId_;
  U16 refCount_ = 0;
  Kiv::Ptr<MatchSpec const> matchSpec_;
};

}  // namespace BfnMacRewrite
