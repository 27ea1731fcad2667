// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/BfnTableStatus.h"

#include <utility>

#include "framework/generic/Describe.h"

namespace BfnTableStatus {

Status::Status(Kiv::String tableName) : tableName_(std::move(tableName)) {}

Kiv::Type const& Status::_kivType() {
  using T = Status;
  static Kiv::Type const type(
      "BfnTableStatus::Status", &Kiv::Entity::_kivType(),
      {Kiv::describeConstant<&T::tableName>("tableName", kTableName.id),
       Kiv::describeScalar<&T::entryCount, &T::entryCountIs>("entryCount", kEntryCount.id)});
  return type;
}

}  // namespace BfnTableStatus
