// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Attribute.h"
#include "framework/core/Entity.h"
#include "framework/core/String.h"

namespace BfnTableStatus {

/// The state of one hardware table, kept by the binding that writes it.
class Status final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, Status> kTableName{258};
  static constexpr Kiv::Attr<void, Status> kEntryCount{259};

  explicit Status(Kiv::String tableName);

  Kiv::String tableName() const { return tableName_; }
  Kiv::Name name() const override { return Kiv::Name(tableName_); }

  /// Rows in the table.
  Kiv::U32 entryCount() const { return entryCount_(); }
  void entryCountIs(Kiv::U32 count) { entryCount_.is(count); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::String const tableName_;
  Kiv::Attribute<kEntryCount, Kiv::U32> entryCount_{*this};
};

}  // namespace BfnTableStatus
