// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/collections/MemberCollection.h"
#include "framework/core/Attribute.h"
#include "framework/core/Entity.h"
#include "framework/core/String.h"
#include "framework/platform/ChipCapabilities.h"

namespace BfnSystem {

/// The system's record of one hardware profile.
class ProfileInfo final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, ProfileInfo> kProfileName{258};
  static constexpr Kiv::Attr<void, ProfileInfo> kChipCapabilities{259};

  explicit ProfileInfo(Kiv::String profileName);

  Kiv::String profileName() const { return profileName_; }
  Kiv::Name name() const override { return Kiv::Name(profileName_); }

  ChipCapabilities chipCapabilities() const { return chipCapabilities_(); }
  void chipCapabilitiesIs(ChipCapabilities capabilities);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::String const profileName_;
  Kiv::Attribute<kChipCapabilities, ChipCapabilities> chipCapabilities_{*this};
};

/// The state of the forwarding system: its hardware profiles by name. Filled by the platform; the
/// agents only read it.
class SystemStatus final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<Kiv::String, SystemStatus> kProfileInfo{258};

  /// The profile of that name, or null. Valid while it is in.
  ProfileInfo* profileInfo(Kiv::String const& profileName) {
    return profileInfo_.find(profileName);
  }
  ProfileInfo const* profileInfo(Kiv::String const& profileName) const {
    return profileInfo_.find(profileName);
  }
  auto const& profileInfo() const { return profileInfo_; }
  /// The profile of that name; made, switched on and announced when absent.
  Kiv::Ptr<ProfileInfo> profileInfoIs(Kiv::String const& profileName);
  /// Removes the profile and notifies; absent: nothing, and null.
  Kiv::Ptr<ProfileInfo> profileInfoDel(Kiv::String const& profileName);
  void profileInfoDelAll();

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::MemberCollection<kProfileInfo, ProfileInfo, &ProfileInfo::profileName, 0x51A7E3C4>
      profileInfo_{*this};
};

}  // namespace BfnSystem
