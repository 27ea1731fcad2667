// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Name.h"
#include "framework/core/Ptr.h"
#include "framework/core/Types.h"
#include "framework/driver/BfnDevProfile.h"
#include "framework/driver/BfnPipeId.h"
#include "framework/platform/BfnTableMgr.h"

namespace BfnAgentLib {

/// What the platform passes to table managers when it initialises their tables.
struct TableInitialization {
  /// BfnDriver::TableDriver::opaque() of the chip's driver.
  Kiv::VoidPtr dlHandle = nullptr;
  BfnDriver::BfnDevProfile profile;
  Kiv::U32 sessionId = 0;
  Kiv::U8 device = 0;
  BfnId::BfnPipeId pipeId;
  Kiv::Ptr<MbbSlabKey::SlabKeyManager> slabKeyManager;
  /// May be null; the tables then get no status record from here.
  Kiv::Ptr<BfnTableStatusManager::StatusManager> statusManager;
};

/// Calls the manager's initializeTable for the table of that name, declared or not.
void initializeTable(BfnTableMgr& manager, Kiv::Name const& tableName,
                     TableInitialization const& with);

/// Initialises the tables that are due: each table that is declared in the profile entry when the
/// call begins, in the order of declaration, and that wants initialisation, while its manager lives
/// and has tables pending. Returns the number of tables initialised; none for a null entry.
/// Exceptions from a manager end the walk.
unsigned initializeTables(Kiv::Ptr<BfnProfileDataEntry> const& entry,
                          TableInitialization const& with);

}  // namespace BfnAgentLib
