// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/SystemStatus.h"

#include <utility>

#include "framework/generic/Describe.h"

namespace BfnSystem {

ProfileInfo::ProfileInfo(Kiv::String profileName) : profileName_(std::move(profileName)) {}

void ProfileInfo::chipCapabilitiesIs(ChipCapabilities capabilities) {
  chipCapabilities_.is(capabilities);
}

Kiv::Type const& ProfileInfo::_kivType() {
  using T = ProfileInfo;
  static Kiv::Type const type(
      "BfnSystem::ProfileInfo", &Kiv::Entity::_kivType(),
      {Kiv::describeConstant<&T::profileName>("profileName", kProfileName.id),
       Kiv::describeScalar<&T::chipCapabilities, &T::chipCapabilitiesIs>("chipCapabilities",
                                                                         kChipCapabilities.id)});
  return type;
}

Kiv::Ptr<ProfileInfo> SystemStatus::profileInfoIs(Kiv::String const& profileName) {
  return profileInfo_.is(profileName);
}

Kiv::Ptr<ProfileInfo> SystemStatus::profileInfoDel(Kiv::String const& profileName) {
  return profileInfo_.del(profileName);
}

void SystemStatus::profileInfoDelAll() {
  profileInfo_.delAll();
}

Kiv::Type const& SystemStatus::_kivType() {
  using T = SystemStatus;
  static Kiv::Type const type(
      "BfnSystem::SystemStatus", &Kiv::Entity::_kivType(),
      {Kiv::describeCollection<&T::profileInfo_, &T::profileInfoIs, &T::profileInfoDel>(
          "profileInfo", kProfileInfo.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace BfnSystem
