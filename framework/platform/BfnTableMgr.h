// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "framework/core/Attribute.h"
#include "framework/core/Entity.h"
#include "framework/core/Name.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"
#include "framework/driver/BfnDevProfile.h"
#include "framework/driver/BfnPipeId.h"
#include "framework/platform/BfnProfileData.h"
#include "framework/platform/BfnTableStatus.h"
#include "framework/platform/CliTableStats.h"
#include "framework/platform/SlabKeyManager.h"
#include "framework/platform/StatusManager.h"
#include "framework/platform/SystemStatus.h"
#include "framework/platform/TableKey.h"

namespace BfnAgentLib {

/// Base of the owners of chip tables.
///
/// A manager declares its tables in its profile's table list (updateTableList) and says how many
/// wait for initialisation (pendingTableCountIs). The platform then calls initializeTable once for
/// each, and the manager counts it down (pendingTableCountDec). Later the platform asks for
/// statistics.
///
/// Lifetime: the table list does not hold the manager; a manager that is destroyed removes its
/// declarations from every list it declared in. All calls come from the host's one event thread.
class BfnTableMgr : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<void, BfnTableMgr> kProfileEntry{258};
  static constexpr Kiv::Attr<void, BfnTableMgr> kSystemStatus{259};
  static constexpr Kiv::Attr<void, BfnTableMgr> kPendingTableCount{260};
  static constexpr Kiv::Attr<void, BfnTableMgr> kChipCapabilities{261};
  static constexpr Kiv::Attr<void, BfnTableMgr> kInitTableDone{262};
  static constexpr Kiv::Attr<void, BfnTableMgr> kInitialized{263};
  /// The first id that a derived type gives to an attribute of its own.
  static constexpr Kiv::AttributeId kFirstOwnAttribute = 264;

  ~BfnTableMgr() override;

  Kiv::Ptr<BfnProfileDataEntry> profileEntry() const { return profileEntry_; }
  Kiv::Ptr<BfnSystem::SystemStatus const> systemStatus() const { return systemStatus_; }

  /// Declared tables that wait for initialisation, modulo 256.
  Kiv::U8 pendingTableCount() const { return pendingTableCount_(); }
  /// Sets the count; initTableDone becomes true for 0, false for any other.
  void pendingTableCountIs(Kiv::U8 count);
  /// Lowers the count modulo 256 and returns it; at 0 initTableDone becomes true.
  Kiv::U8 pendingTableCountDec(Kiv::U8 n);

  /// What the chip can do under the profile entry's name, looked up in the system status by each
  /// call. All default without a profile entry or a system status, and for an unknown profile.
  BfnSystem::ChipCapabilities chipCapabilities() const;

  /// Every declared table has been initialised.
  bool initTableDone() const { return initTableDone_(); }
  bool initialized() const { return initialized_(); }
  void initializedIs(bool initialized) { initialized_.is(initialized); }

  /// Declares the tables, then sets `initialized`. Called by the derived type's constructor.
  virtual void handleInitialized();
  /// Declares the tables and sets the pending count.
  virtual void updateTableList() = 0;
  /// Makes the binding of one declared table. Called by the platform.
  virtual void initializeTable(
      TableKey const& tableKey, Kiv::VoidPtr dlHandle, BfnDriver::BfnDevProfile const& profile,
      Kiv::U32 sessionId, Kiv::Ptr<MbbSlabKey::SlabKeyManager> const& slabKeyManager,
      Kiv::Ptr<BfnTableStatus::Status> const& status,
      Kiv::Ptr<BfnTableStatusManager::StatusManager> const& statusManager) = 0;
  /// The statistics of one declared table. Called by the platform.
  virtual BfnLib::CliTableStats createCliTableStats(Kiv::Name hwTable) = 0;
  /// The statistics of one table as one pipe shows them. All pipes share their tables here, so the
  /// base gives createCliTableStats for each.
  virtual BfnLib::CliTableStats populateAndReturnStats(Kiv::String hwTable,
                                                       BfnId::BfnPipeId pipeId);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 protected:
  /// Either may be null.
  BfnTableMgr(Kiv::Ptr<BfnProfileDataEntry> const& profileEntry,
              Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus);

 private:
  friend class TableList;

  void declaredIn(Kiv::Ptr<TableList> const& list);

  Kiv::Ptr<BfnProfileDataEntry> const profileEntry_;
  Kiv::Ptr<BfnSystem::SystemStatus const> const systemStatus_;
  Kiv::Attribute<kPendingTableCount, Kiv::U8> pendingTableCount_{*this};
  Kiv::Attribute<kInitTableDone, bool> initTableDone_{*this};
  Kiv::Attribute<kInitialized, bool> initialized_{*this};
  std::vector<Kiv::Ptr<TableList>> declaredIn_;
};

}  // namespace BfnAgentLib
