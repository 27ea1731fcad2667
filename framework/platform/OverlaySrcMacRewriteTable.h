// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <utility>

#include "framework/core/Entity.h"
#include "framework/core/Name.h"
#include "framework/core/Ptr.h"
#include "framework/core/Types.h"
#include "framework/driver/BfnPipeId.h"
#include "framework/driver/TableDriver.h"
#include "framework/platform/BfTableException.h"
#include "framework/platform/BfnTableStatus.h"
#include "framework/platform/OverlaySrcMacRewriteMatchSpec.h"
#include "framework/platform/RewriteOverlaySrcMacActionSpec.h"
#include "framework/platform/SlabKeyManager.h"
#include "framework/platform/StatusManager.h"

namespace BfOverlaySrcMacRewrite {

/// One row: which packets, and what the chip does with them. A plain value that shares its two
/// specs.
class OverlaySrcMacRewriteTableEntry {
 public:
  /// No row.
  OverlaySrcMacRewriteTableEntry() = default;
  OverlaySrcMacRewriteTableEntry(Kiv::Ptr<OverlaySrcMacRewriteMatchSpec const> matchSpec,
                                 Kiv::Ptr<RewriteOverlaySrcMacActionSpec const> actionSpec)
      : matchSpec_(std::move(matchSpec)), actionSpec_(std::move(actionSpec)) {}

  Kiv::Ptr<OverlaySrcMacRewriteMatchSpec const> const& matchSpec() const { return matchSpec_; }
  Kiv::Ptr<RewriteOverlaySrcMacActionSpec const> const& actionSpec() const { return actionSpec_; }
  /// Whether there is a row.
  explicit operator bool() const { return matchSpec_ != nullptr && actionSpec_ != nullptr; }

 private:
  Kiv::Ptr<OverlaySrcMacRewriteMatchSpec const> matchSpec_;
  Kiv::Ptr<RewriteOverlaySrcMacActionSpec const> actionSpec_;
};

/// The chip's table of overlay source-MAC rewrites as the agent writes it: turns specs into the
/// bytes of the chip's keys and actions, and back.
///
/// It keeps no rows of its own: what it reads is what the chip holds, and rows stay in the chip
/// when it is destroyed. The driver must outlive it.
///
/// Errors: a row that is absent is no error; a driver that fails is a BfTable::BfTableException,
/// with the driver's reason where it gives one.
class OverlaySrcMacRewriteTable final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, OverlaySrcMacRewriteTable> kStatus{258};
  static constexpr Kiv::Attr<void, OverlaySrcMacRewriteTable> kSlabKey{259};
  static constexpr char const* kTableName = "overlaySrcMacRewrite";

  /// See overlaySrcMacRewriteTableFactory.
  OverlaySrcMacRewriteTable(Kiv::Ptr<MbbSlabKey::SlabKeyManager> const& slabKeyManager,
                            Kiv::Ptr<BfnTableStatusManager::StatusManager> const& statusManager,
                            BfnDriver::TableDriver* driver, BfnDriver::TableAddress const& address);

  Kiv::Name name() const override { return kTableName; }

  /// Writes the row, over the one with an equal match spec. Throws BfTable::BfTableFull when a new
  /// row finds no free slot, BfTable::BfNoSysResources when the system lacks what it needs, another
  /// BfTable::BfTableException for any other failure of the driver; what the driver throws passes
  /// through. The row is then as it was. A missing spec throws Kiv::NullPointerException.
  void entryIs(OverlaySrcMacRewriteTableEntry const& entry);
  /// Removes the row; one that is gone already is fine: rows of equal match specs are one row.
  /// Throws BfTable::BfTableException when the driver fails; what the driver throws passes through.
  void entryDel(Kiv::Ptr<OverlaySrcMacRewriteMatchSpec const> const& matchSpec);
  /// The row as the chip holds it, with a new action spec; no row (false) when there is none.
  /// Throws BfTable::BfTableException when the driver cannot read, whatever it throws itself.
  OverlaySrcMacRewriteTableEntry entry(
      Kiv::Ptr<OverlaySrcMacRewriteMatchSpec const> const& matchSpec) const;

  /// The two halves of a row's MAC as the chip holds them; nothing when there is no row. Like
  /// entry(), but allocates nothing.
  struct Action {
    Kiv::U32 oui;
    Kiv::U32 station;
  };
  std::optional<Action> action(OverlaySrcMacRewriteMatchSpec const& matchSpec) const;
  /// A hint that the row is read or written soon.
  void prefetch(OverlaySrcMacRewriteMatchSpec const& matchSpec) const;

  /// Rows in the table, as of the last write or removal: the count of the status record.
  Kiv::U32 entryCount() const { return status_->entryCount(); }
  /// Never null.
  Kiv::Ptr<BfnTableStatus::Status const> status() const { return status_; }
  /// The table's slab, 0 without a slab key manager.
  Kiv::U32 slabKey() const { return slabKey_; }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  void countIs();

  BfnDriver::TableDriver* const driver_;
  BfnDriver::TableHandle handle_{};
  Kiv::Ptr<BfnTableStatus::Status> const status_;
  Kiv::U32 const slabKey_;
};

/// Binds the table of the driver handle (BfnDriver::TableDriver::opaque()) for one session, chip of
/// the session and pipe, under the profile's name; its notification is on. The row count goes to
/// the table's record in the status manager, or to one of its own when that is null. Throws
/// BfTable::BfTableException when the handle is null or the chip has no such table.
Kiv::Ptr<OverlaySrcMacRewriteTable> overlaySrcMacRewriteTableFactory(
    Kiv::Ptr<MbbSlabKey::SlabKeyManager> slabKeyManager,
    Kiv::Ptr<BfnTableStatusManager::StatusManager> statusManager, void* dlHandle,
    unsigned int sessionId, unsigned char device, unsigned short pipeId, Kiv::Name profileName);

}  // namespace BfOverlaySrcMacRewrite
