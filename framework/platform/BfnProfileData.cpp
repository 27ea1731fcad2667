// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/BfnProfileData.h"

#include <utility>

#include "framework/generic/Describe.h"

namespace BfnAgentLib {

BfnProfileDataEntry::BfnProfileDataEntry(Kiv::String profileName)
    : profileName_(std::move(profileName)), tableList_(Kiv::makeActive<TableList>()) {
  tableList_->parentIs(Kiv::Ptr<Kiv::Entity>(this), kTableList.id);
}

BfnProfileDataEntry::~BfnProfileDataEntry() {
  tableList_->parentIs(nullptr);
}

Kiv::Type const& BfnProfileDataEntry::_kivType() {
  using T = BfnProfileDataEntry;
  static Kiv::Type const type(
      "BfnAgentLib::BfnProfileDataEntry", &Kiv::Entity::_kivType(),
      {Kiv::describeConstant<&T::profileName>("profileName", kProfileName.id),
       Kiv::describeConstant<&T::tableList>("tableList", kTableList.id)});
  return type;
}

Kiv::Ptr<BfnProfileDataEntry> BfnProfileData::profileDataEntryIs(Kiv::String const& profileName) {
  return profileDataEntry_.is(profileName);
}

Kiv::Ptr<BfnProfileDataEntry> BfnProfileData::profileDataEntryDel(Kiv::String const& profileName) {
  return profileDataEntry_.del(profileName);
}

Kiv::Type const& BfnProfileData::_kivType() {
  using T = BfnProfileData;
  static Kiv::Type const type(
      "BfnAgentLib::BfnProfileData", &Kiv::Entity::_kivType(),
      {Kiv::describeCollection<&T::profileDataEntry_, &T::profileDataEntryIs,
                               &T::profileDataEntryDel>("profileDataEntry", kProfileDataEntry.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace BfnAgentLib
