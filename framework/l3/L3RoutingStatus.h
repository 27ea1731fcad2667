// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/collections/MemberCollection.h"
#include "framework/core/Attribute.h"
#include "framework/core/Entity.h"
#include "framework/values/PortVlanPair.h"
#include "framework/values/VrfId.h"

namespace BfnL3 {

/// The routing status of one interface. VLANs are plain numbers here, as the host writes them: 0
/// is legal, and nothing is range-checked.
class L3IntfRoutingStatus final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, L3IntfRoutingStatus> kIntfAndVlan{258};
  static constexpr Kiv::Attr<void, L3IntfRoutingStatus> kVlanId{259};
  static constexpr Kiv::Attr<void, L3IntfRoutingStatus> kVrfId{260};

  explicit L3IntfRoutingStatus(Pex::PortVlanPair const& intfAndVlan);

  /// The key.
  Pex::PortVlanPair const& intfAndVlan() const { return intfAndVlan_; }
  Kiv::U16 vlanId() const { return vlanId_(); }
  void vlanIdIs(Kiv::U16 vlanId);
  Pex::VrfId vrfId() const { return vrfId_(); }
  void vrfIdIs(Pex::VrfId vrfId);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Pex::PortVlanPair const intfAndVlan_;
  Kiv::Attribute<kVlanId, Kiv::U16> vlanId_{*this};
  Kiv::Attribute<kVrfId, Pex::VrfId> vrfId_{*this};
};

/// The routing status of all interfaces of one kind, by interface and VLAN. Written by the host
/// agent.
class L3RoutingStatus final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<Pex::PortVlanPair, L3RoutingStatus> kL3IntfRoutingStatus{258};
  static constexpr Kiv::Attr<void, L3RoutingStatus> kRoutingEnabled{259};

  L3RoutingStatus();

  /// The status under a key, or null. Valid while it is in.
  L3IntfRoutingStatus* l3IntfRoutingStatus(Pex::PortVlanPair const& key) {
    return l3IntfRoutingStatus_.find(key);
  }
  L3IntfRoutingStatus const* l3IntfRoutingStatus(Pex::PortVlanPair const& key) const {
    return l3IntfRoutingStatus_.find(key);
  }
  auto const& l3IntfRoutingStatus() const { return l3IntfRoutingStatus_; }
  /// Made, switched on and announced when absent.
  Kiv::Ptr<L3IntfRoutingStatus> l3IntfRoutingStatusIs(Pex::PortVlanPair const& key);
  /// A status made by the caller, in place of another object under its key; null throws
  /// Kiv::NullPointerException.
  void l3IntfRoutingStatusIs(Kiv::Ptr<L3IntfRoutingStatus> const& status);
  /// Removes and notifies; absent: nothing.
  void l3IntfRoutingStatusDel(Pex::PortVlanPair const& key);
  void l3IntfRoutingStatusDelAll();
  /// Notifies for a key again without a change.
  void l3IntfRoutingStatusRenotify(Pex::PortVlanPair const& key);

  bool routingEnabled() const { return routingEnabled_(); }
  void routingEnabledIs(bool enabled);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::MemberCollection<kL3IntfRoutingStatus, L3IntfRoutingStatus,
                        &L3IntfRoutingStatus::intfAndVlan, 0x4D83E6F1>
      l3IntfRoutingStatus_{*this};
  Kiv::Attribute<kRoutingEnabled, bool> routingEnabled_{*this};
};

}  // namespace BfnL3
