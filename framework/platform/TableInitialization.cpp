// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/TableInitialization.h"

#include <vector>

namespace BfnAgentLib {

void initializeTable(BfnTableMgr& manager, Kiv::Name const& tableName,
                     TableInitialization const& with) {
  Kiv::Ptr<BfnTableStatus::Status> status;
  if (with.statusManager) status = with.statusManager->statusIs(tableName.string());
  manager.initializeTable(TableKey(tableName, with.device, with.pipeId), with.dlHandle,
                          with.profile, with.sessionId, with.slabKeyManager, status,
                          with.statusManager);
}

unsigned initializeTables(Kiv::Ptr<BfnProfileDataEntry> const& entry,
                          TableInitialization const& with) {
  if (!entry) return 0;
  Kiv::Ptr<TableList> const list = entry->tableList();
  std::vector<Kiv::Name> names;
  for (HwTable const& table : list->hwTables()) {
    if (table.needsInitialization) names.push_back(table.name);
  }
  unsigned initialized = 0;
  for (Kiv::Name const& name : names) {
    // An earlier table's initialisation may have taken this one out.
    Kiv::Ptr<BfnTableMgr> const manager = list->manager(name);
    if (!manager || manager->pendingTableCount() == 0) continue;
    initializeTable(*manager, name, with);
    ++initialized;
  }
  return initialized;
}

}  // namespace BfnAgentLib
