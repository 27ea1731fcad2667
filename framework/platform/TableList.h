// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <list>
#include <optional>

#include "framework/core/Entity.h"
#include "framework/core/Name.h"
#include "framework/core/Ptr.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"

namespace BfnAgentLib {

class BfnTableMgr;

/// How far one instance of a table reaches.
enum class TableScope : Kiv::U8 {
  Device = 0,  ///< one for the whole chip; every pipe shows the same rows
  Pipe = 1,    ///< one for each pipe
};

/// One declared table.
struct HwTable {
  Kiv::Name name;
  TableScope scope = TableScope::Device;
  /// The platform calls its manager's initializeTable.
  bool needsInitialization = false;
  /// The platform asks its manager for statistics.
  bool hasStats = false;
  /// The table's rows survive a restart of the agent; they need not be written again.
  bool persistent = false;
  /// Not owned; see TableList.
  BfnTableMgr* manager = nullptr;

  friend bool operator==(HwTable const&, HwTable const&) = default;
};

/// The hardware tables that a profile's managers have declared, in the order of their first
/// declaration.
///
/// The list does not hold its managers: a manager that is destroyed removes its tables, with a
/// notification for each. The managers hold the list.
class TableList final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<Kiv::String, TableList> kHwTables{258};

  TableList() = default;
  ~TableList() override;

  auto const& hwTables() const { return hwTables_; }
  /// The declaration of that name, or null. Valid until the list changes.
  HwTable const* hwTable(Kiv::Name const& name) const;
  /// The live manager of that table, or null.
  Kiv::Ptr<BfnTableMgr> manager(Kiv::Name const& name) const;

  /// Declares a table, in place of an earlier declaration of that name, and notifies; an equal one:
  /// nothing. May be called from the manager's constructor. A null manager throws
  /// NullPointerException. When a handler throws, the earlier declaration, or none, is restored and
  /// this is notified, too, before the exception is rethrown.
  void hwTablesIs(Kiv::Name name, TableScope scope, bool needsInitialization, bool hasStats,
                  bool persistent, Kiv::Ptr<BfnTableMgr> const& manager);
  /// Removes a table and notifies; absent: nothing.
  void hwTablesDel(Kiv::Name const& name);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  friend class BfnTableMgr;

  /// Removes all of a manager's tables, then notifies for each. Called by destructors: allocates
  /// nothing and catches what a handler throws.
  void managerDied(BfnTableMgr const& manager) noexcept;
  void takeBack(Kiv::Name const& name, BfnTableMgr const& manager,
                std::optional<HwTable> const& earlier) noexcept;

  // A list: declarations of a manager that is destroyed are moved out of it without allocating.
  std::list<HwTable> hwTables_;
};

}  // namespace BfnAgentLib
