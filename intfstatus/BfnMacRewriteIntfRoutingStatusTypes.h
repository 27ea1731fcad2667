// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/records/Export.h"
#include "framework/collections/ValueCollection.h"
#include "framework/core/Entity.h"
#include "framework/l3/L3RoutingStatus.h"
#include "framework/values/IntfId.h"

namespace BfnMacRewrite {

/// The routing status of every interface, by interface id alone. Shares the entities of the host's
/// collections; no stored status is ever null.
class BFN_MAC_REWRITE_EXPORT IntfIdToRoutingStatus final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<Ovra::IntfId, IntfIdToRoutingStatus> kL3IntfRoutingStatus{258};

  /// The status of an interface, or null. Valid while it is in.
  BfnL3::L3IntfRoutingStatus const* l3IntfRoutingStatus(Ovra::IntfId intfId) const {
    auto const* const entry = l3IntfRoutingStatus_.find(intfId);
    return entry == nullptr ? nullptr : entry->value.get();
  }
  auto const& l3IntfRoutingStatus() const { return l3IntfRoutingStatus_; }
  /// Sets or replaces the status of an interface, or removes it when `status` is null, and notifies
  /// with the interface id. The very status that is stored, or null where there is none: nothing.
  void l3IntfRoutingStatusIs(Ovra::IntfId intfId,
                             Kiv::Ptr<BfnL3::L3IntfRoutingStatus const> const& status) {
    if (!status) return l3IntfRoutingStatusDel(intfId);
    l3IntfRoutingStatus_.set({intfId, status});
  }
  /// Removes and notifies; absent: nothing.
  void l3IntfRoutingStatusDel(Ovra::IntfId intfId) { l3IntfRoutingStatus_.del(intfId); }
  void l3IntfRoutingStatusDelAll() { l3IntfRoutingStatus_.delAll(); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::MapCollection<kL3IntfRoutingStatus, Ovra::IntfId, Kiv::Ptr<BfnL3::L3IntfRoutingStatus const>,
                     0x60A4F92B>
      l3IntfRoutingStatus_{*this};
};

}  // namespace BfnMacRewrite
