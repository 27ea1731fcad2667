#include "framework/platform/TableList.h"

#include <algorithm>
#include <utility>

#include "framework/core/Exceptions.h"
#include "framework/generic/Describe.h"
#include "framework/platform/BfnTableMgr.h"

namespace BfnAgentLib {

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
  HwTable declared{std::move(name), scope,      needsInitialization,
                   hasStats,        persistent, manager.get()};
  auto const table = std::ranges::find(hwTables_, declared.name, &HwTable::name);
  if (table != hwTables_.end() && *table == declared) return;
  manager->declaredIn(Kiv::Ptr<TableList>(this));
  if (table == hwTables_.end()) {
    hwTables_.push_back(std::move(declared));
  } else {
    *table = std::move(declared);
  }
  notify(kHwTables.id, &key);
}

void TableList::hwTablesDel(Kiv::Name const& name) {
  auto const table = std::ranges::find(hwTables_, name, &HwTable::name);
  if (table == hwTables_.end()) return;
  Kiv::String const key = table->name.string();
  hwTables_.erase(table);
  notify(kHwTables.id, &key);
}

void TableList::managerDied(BfnTableMgr const& manager) {
  // All its tables go before anybody is told: a handler never meets the dying manager.
  std::vector<Kiv::String> gone;
  std::erase_if(hwTables_, [&](HwTable const& table) {
    if (table.manager != &manager) return false;
    gone.push_back(table.name.string());
    return true;
  });
  for (Kiv::String const& key : gone) notify(kHwTables.id, &key);
}

Kiv::Type const& TableList::_kivType() {
  static Kiv::Type const type("BfnAgentLib::TableList", &Kiv::Entity::_kivType(), {});
  return type;
}

}  // namespace BfnAgentLib
