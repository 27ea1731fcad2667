// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/collections/ValueCollection.h"
#include "framework/core/Entity.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"

namespace MbbSlabKey {

/// Numbers the slabs of driver memory that hold tables. A table keeps its number for the life of
/// the manager, so that a binding made before an older one is broken works on the same slab.
class SlabKeyManager final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<Kiv::String, SlabKeyManager> kSlabKey{258};

  /// The table's slab, 0 when it has none.
  Kiv::U32 slabKey(Kiv::String const& tableName) const { return slabKey_.get(tableName).value; }
  /// The table's slab; the next free number, from 1, when it has none yet.
  Kiv::U32 slabKeyIs(Kiv::String const& tableName);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::MapCollection<kSlabKey, Kiv::String, Kiv::U32, 0xB8F4612D> slabKey_{*this};
};

}  // namespace MbbSlabKey
