// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/collections/MemberCollection.h"
#include "framework/core/Attribute.h"
#include "framework/core/Entity.h"
#include "framework/values/VrfName.h"

namespace Routing::Hardware {

/// The hardware's routing status of one VRF. Ids are plain numbers here, as the host writes them: 0
/// means that there is none, except that the VRF "default" may have the id 0.
class VrfStatus final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, VrfStatus> kVrfName{258};
  static constexpr Kiv::Attr<void, VrfStatus> kVrfId{259};
  static constexpr Kiv::Attr<void, VrfStatus> kFwdVlanId{260};

  explicit VrfStatus(L3::VrfName vrfName);

  L3::VrfName vrfName() const { return vrfName_; }
  Kiv::U32 vrfId() const { return vrfId_(); }
  void vrfIdIs(Kiv::U32 vrfId);
  Kiv::U32 fwdVlanId() const { return fwdVlanId_(); }
  void fwdVlanIdIs(Kiv::U32 fwdVlanId);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  L3::VrfName const vrfName_;
  Kiv::Attribute<kVrfId, Kiv::U32> vrfId_{*this};
  Kiv::Attribute<kFwdVlanId, Kiv::U32> fwdVlanId_{*this};
};

/// The same for all VRFs, by name. Written by the host agent.
class RouteStatus final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<L3::VrfName, RouteStatus> kVrfStatus{258};

  RouteStatus();

  /// The status of one VRF, or null. Valid while it is in.
  VrfStatus* vrfStatus(L3::VrfName vrfName) { return vrfStatus_.find(vrfName); }
  VrfStatus const* vrfStatus(L3::VrfName vrfName) const { return vrfStatus_.find(vrfName); }
  auto const& vrfStatus() const { return vrfStatus_; }
  /// Made, switched on and announced when absent.
  Kiv::Ptr<VrfStatus> vrfStatusIs(L3::VrfName vrfName);
  /// A status made by the caller, its numbers set before it is announced, in place of another
  /// object under its name; null throws Kiv::NullPointerException.
  void vrfStatusIs(Kiv::Ptr<VrfStatus> const& status);
  /// Removes and notifies; absent: nothing.
  void vrfStatusDel(L3::VrfName vrfName);
  void vrfStatusDelAll();

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::MemberCollection<kVrfStatus, VrfStatus, &VrfStatus::vrfName, 0xB92C57DE> vrfStatus_{*this};
};

}  // namespace Routing::Hardware
