// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/collections/MemberCollection.h"
#include "framework/core/Entity.h"
#include "framework/core/String.h"
#include "framework/platform/TableList.h"

namespace BfnAgentLib {

/// One hardware profile as the agents that share it see it: its name, and the list in which they
/// declare their tables. The list lives as long as the entry, or as a manager that declared there.
class BfnProfileDataEntry final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, BfnProfileDataEntry> kProfileName{258};
  static constexpr Kiv::Attr<void, BfnProfileDataEntry> kTableList{259};

  explicit BfnProfileDataEntry(Kiv::String profileName);
  ~BfnProfileDataEntry() override;

  Kiv::String profileName() const { return profileName_; }
  Kiv::Name name() const override { return Kiv::Name(profileName_); }
  /// Never null.
  Kiv::Ptr<TableList> tableList() const { return tableList_; }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::String const profileName_;
  Kiv::Ptr<TableList> const tableList_;
};

/// All hardware profiles, by name.
class BfnProfileData final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<Kiv::String, BfnProfileData> kProfileDataEntry{258};

  /// The entry of that name, or null. Valid while it is in.
  BfnProfileDataEntry* profileDataEntry(Kiv::String const& profileName) {
    return profileDataEntry_.find(profileName);
  }
  BfnProfileDataEntry const* profileDataEntry(Kiv::String const& profileName) const {
    return profileDataEntry_.find(profileName);
  }
  auto const& profileDataEntry() const { return profileDataEntry_; }
  /// The entry of that name; made, switched on and announced when absent.
  Kiv::Ptr<BfnProfileDataEntry> profileDataEntryIs(Kiv::String const& profileName);
  /// Removes the entry and notifies; absent: nothing, and null.
  Kiv::Ptr<BfnProfileDataEntry> profileDataEntryDel(Kiv::String const& profileName);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::MemberCollection<kProfileDataEntry, BfnProfileDataEntry, &BfnProfileDataEntry::profileName,
                        0x7D20B96E>
      profileDataEntry_{*this};
};

}  // namespace BfnAgentLib
