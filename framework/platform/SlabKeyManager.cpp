// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/SlabKeyManager.h"

#include "framework/generic/Describe.h"

namespace MbbSlabKey {

Kiv::U32 SlabKeyManager::slabKeyIs(Kiv::String const& tableName) {
  if (Kiv::U32 const known = slabKey(tableName)) return known;
  auto const next = static_cast<Kiv::U32>(slabKey_.size() + 1);
  slabKey_.set({tableName, next});
  return next;
}

Kiv::Type const& SlabKeyManager::_kivType() {
  using T = SlabKeyManager;
  static Kiv::Type const type(
      "MbbSlabKey::SlabKeyManager", &Kiv::Entity::_kivType(),
      {Kiv::describeCollection<&T::slabKey_, &T::slabKeyIs>("slabKey", kSlabKey.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace MbbSlabKey
