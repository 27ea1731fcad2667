// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/StatusManager.h"

#include "framework/generic/Describe.h"

namespace BfnTableStatusManager {

Kiv::Ptr<BfnTableStatus::Status> StatusManager::statusIs(Kiv::String const& tableName) {
  return status_.is(tableName);
}

Kiv::Ptr<BfnTableStatus::Status> StatusManager::statusDel(Kiv::String const& tableName) {
  return status_.del(tableName);
}

Kiv::Type const& StatusManager::_kivType() {
  using T = StatusManager;
  static Kiv::Type const type(
      "BfnTableStatusManager::StatusManager", &Kiv::Entity::_kivType(),
      {Kiv::describeCollection<&T::status_, &T::statusIs, &T::statusDel>("status", kStatus.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace BfnTableStatusManager
