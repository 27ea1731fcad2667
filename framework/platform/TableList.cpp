// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/TableList.h"

#include <algorithm>
#include <utility>

#include "framework/core/Exceptions.h"
#include "framework/generic/Describe.h"
#include "framework/platform/BfnTableMgr.h"

namespace BfnAgentLib {

namespace {

/// For callers that cannot throw: what a handler throws is left to its onNotificationException().
void notifyQuietly(TableList const& list, Kiv::Name const& name) noexcept {
  try {
    list.notify(TableList::kHwTables.id, &name.string());
  } catch (...) {  // NOLINT(bugprone-empty-catch): see above
  }
}

}  // namespace

// Managers hold the list, so none is left here.
TableList::~TableList() = default;

HwTable const* TableList::hwTable(Kiv::Name const& name) const {
  auto const table = std::ranges::find(hwTables_, name, &HwTable::name);
  return table == hwTables_.end() ? nullptr : &*table;
}

Kiv::Ptr<BfnTableMgr> TableList::manager(Kiv::Name const& name) const {
  HwTable const* const table = hwTable(name);
  return Kiv::Ptr<BfnTableMgr>(table == nullptr ? nullptr : table->manager);
}

void TableList::hwTablesIs(Kiv::Name name, TableScope scope, bool needsInitialization,
                           bool hasStats, bool persistent, Kiv::Ptr<BfnTableMgr> const& manager) {
  if (!manager) {
    Kiv::throwMutatorArgNullPointerException("BfnAgentLib::TableList", kHwTables.id);
  }
  Kiv::String const key = name.string();
  HwTable declared{name, scope, needsInitialization, hasStats, persistent, manager.get()};
  auto const table = std::ranges::find(hwTables_, name, &HwTable::name);
  if (table != hwTables_.end() && *table == declared) return;
  manager->declaredIn(Kiv::Ptr<TableList>(this));
  std::optional<HwTable> earlier;
  Kiv::Ptr<BfnTableMgr> earlierManager;  // handlers may release it
  if (table == hwTables_.end()) {
    hwTables_.push_back(std::move(declared));
  } else {
    earlierManager = Kiv::Ptr<BfnTableMgr>(table->manager);
    earlier = std::exchange(*table, std::move(declared));
  }
  try {
    notify(kHwTables.id, &key);
  } catch (...) {
    takeBack(name, *manager, earlier);
    throw;
  }
}

void TableList::takeBack(Kiv::Name const& name, BfnTableMgr const& manager,
                         std::optional<HwTable> const& earlier) noexcept {
  auto const table = std::ranges::find(hwTables_, name, &HwTable::name);
  if (table == hwTables_.end() || table->manager != &manager) return;  // a handler has changed it
  if (earlier) {
    *table = *earlier;
  } else {
    hwTables_.erase(table);
  }
  notifyQuietly(*this, name);
}

void TableList::hwTablesDel(Kiv::Name const& name) {
  auto const table = std::ranges::find(hwTables_, name, &HwTable::name);
  if (table == hwTables_.end()) return;
  Kiv::String const key = table->name.string();
  hwTables_.erase(table);
  notify(kHwTables.id, &key);
}

void TableList::managerDied(BfnTableMgr const& manager) noexcept {
  // All of its tables are removed before the first notification: a handler never finds a manager
  // under destruction.
  std::list<HwTable> gone;
  for (auto table = hwTables_.begin(); table != hwTables_.end();) {
    auto const at = table++;
    if (at->manager == &manager) gone.splice(gone.end(), hwTables_, at);
  }
  for (HwTable const& table : gone) notifyQuietly(*this, table.name);
}

Kiv::Type const& TableList::_kivType() {
  static Kiv::Type const type("BfnAgentLib::TableList", &Kiv::Entity::_kivType(), {});
  return type;
}

}  // namespace BfnAgentLib
