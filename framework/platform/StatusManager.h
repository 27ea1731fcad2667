// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/collections/MemberCollection.h"
#include "framework/core/Entity.h"
#include "framework/core/String.h"
#include "framework/platform/BfnTableStatus.h"

namespace BfnTableStatusManager {

/// The status records of all hardware tables, by table name. A record outlives the binding that
/// fills it: the next binding of the table continues with it.
class StatusManager final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<Kiv::String, StatusManager> kStatus{258};

  /// The status of that table, or null. Valid while it is in.
  BfnTableStatus::Status* status(Kiv::String const& tableName) { return status_.find(tableName); }
  BfnTableStatus::Status const* status(Kiv::String const& tableName) const {
    return status_.find(tableName);
  }
  auto const& status() const { return status_; }
  /// The status of that table; made, switched on and announced when absent.
  Kiv::Ptr<BfnTableStatus::Status> statusIs(Kiv::String const& tableName);
  /// Removes the status and notifies; absent: nothing, and null.
  Kiv::Ptr<BfnTableStatus::Status> statusDel(Kiv::String const& tableName);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::MemberCollection<kStatus, BfnTableStatus::Status, &BfnTableStatus::Status::tableName,
                        0x0E9C54B1>
      status_{*this};
};

}  // namespace BfnTableStatusManager
