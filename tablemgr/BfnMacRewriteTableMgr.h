// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <tuple>

#include "agent/records/BfnMacRewriteTypes.h"
#include "agent/records/Export.h"
#include "framework/collections/MemberCollection.h"
#include "framework/driver/BfnDevProfile.h"
#include "framework/l3/L3Status.h"
#include "framework/platform/BfnTableMgr.h"
#include "framework/platform/OverlaySrcMacRewriteTable.h"
#include "framework/platform/TableAddStatus.h"
#include "framework/values/VlanId.h"
#include "framework/values/VrfName.h"
#include "intfstatus/BfnMacRewriteIntfRoutingStatusTypes.h"
#include "tablemgr/MatchSpecAndRefCount.h"

namespace BfnMacRewrite {

/// The only writer of the chip table `overlaySrcMacRewrite`.
///
/// Keyed by (source IP, interface); the chip matches on (5, forwarding VLAN, source IP, 1). Adding
/// a key that is present rewrites the row's MAC and counts one more reference; the row leaves the
/// chip with its last reference. Two keys that differ only in the interface, on one VLAN, share one
/// row of the chip. Deliberate: the VLAN of the first addition stays.
///
/// Lifetime: addEntry, updateEntry and deleteEntry need the table binding that initializeTable()
/// makes; a call before that is fatal. Destruction removes no row from the chip.
///
/// Re-entrancy: the driver and the watchers of the binding's count may add, update and delete rows
/// within a write. The record of a row exists, complete, before the driver is called.
///
/// Errors: a full chip is a status and the message BFN_VXLAN_MAC_REWRITE_TABLE_FULL, and leaves no
/// record. Deliberate: a later update or deletion of that key is fatal, as for any key never added.
class BFN_MAC_REWRITE_EXPORT OverlaySrcMacRewriteManager final : public BfnAgentLib::BfnTableMgr {
 public:
  using Table = BfOverlaySrcMacRewrite::OverlaySrcMacRewriteTable;
  using MatchSpec = BfOverlaySrcMacRewrite::OverlaySrcMacRewriteMatchSpec;
  static constexpr Kiv::Attr<Agent::IpAndIntfId, OverlaySrcMacRewriteManager> kMatchSpecAndRefCount{
      266};

  /// Declares the table on the profile entry's table list when the chip supports it.
  OverlaySrcMacRewriteManager(Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> const& profileEntry,
                              Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
                              Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
                              Kiv::Ptr<Pex::L3Status const> const& l3Status);
  ~OverlaySrcMacRewriteManager() override;

  void handleInitialized() override;
  void updateTableList() override;
  /// Makes the table binding; a second call replaces it. `status` is not used. A table of another
  /// name is fatal.
  void initializeTable(
      BfnAgentLib::TableKey const& tableKey, Kiv::VoidPtr dlHandle,
      BfnDriver::BfnDevProfile const& profile, U32 sessionId,
      Kiv::Ptr<MbbSlabKey::SlabKeyManager> const& slabKeyManager,
      Kiv::Ptr<BfnTableStatus::Status> const& status,
      Kiv::Ptr<BfnTableStatusManager::StatusManager> const& statusManager) override;
  /// Entries in use, capacity, -1. Needs the table binding. A table of another name is fatal.
  BfnLib::CliTableStats createCliTableStats(Kiv::Name hwTable) override;

  /// Makes the row exist. 0: it is programmed, new or shared. 2: the chip or the system has no
  /// room; nothing has changed. Any other exception of the binding passes through; nothing has
  /// changed then, either. The VRF name is for the log message only.
  PexTypes::TableAddStatus addEntry(L3::VrfName vrfName, Bridging::VlanId l3Aintf,
                                    Ovra::IntfId intfId, Ovra::IpAddr overlaySip,
                                    Ovra::EthAddr const& overlayRewriteSrcMac);
  /// Drops one reference, and the row with the last one. An unknown row is fatal; exceptions of the
  /// binding pass through. Deliberate: a row that could not be removed keeps its record, with no
  /// reference, so that the next addition counts the first one again.
  void deleteEntry(Ovra::IntfId intfId, Ovra::IpAddr overlaySip);
  /// Gives an existing row another MAC. An unknown row is fatal; exceptions of the binding pass
  /// through.
  void updateEntry(Ovra::IntfId intfId, Ovra::IpAddr overlaySip,
                   Ovra::EthAddr const& overlayRewriteSrcMac);
  /// The match spec in the chip for a row. An unknown row is fatal.
  Kiv::Ptr<MatchSpec const> keyToMatchSpecGet(Ovra::IntfId intfId, Ovra::IpAddr overlaySip);
  /// Prefetches the memory in which a row's record is looked up; see HashTable::prefetch.
  void prefetch(Ovra::IntfId intfId, Ovra::IpAddr overlaySip) const {
    matchSpecAndRefCount_.prefetch({overlaySip, intfId, false});
  }
  /// The VRF that an interface belongs to; the empty name when its VRF id has none. An interface
  /// without routing status is fatal.
  L3::VrfName intfIdToVrfName(Ovra::IntfId intfId) const;

  Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus() const {
    return intfIdToRoutingStatus_;
  }
  Kiv::Ptr<Pex::L3Status const> const& l3Status() const { return l3Status_; }
  /// The constructor's arguments.
  auto inputs() const {
    return std::tuple(profileEntry(), systemStatus(), intfIdToRoutingStatus_, l3Status_);
  }
  /// Null until initializeTable().
  Kiv::Ptr<Table> const& overlaySrcMacRewriteTable() const { return overlaySrcMacRewriteTable_; }

  auto const& matchSpecAndRefCount() const { return matchSpecAndRefCount_; }
  /// The record of a key, or null.
  Kiv::Ptr<MatchSpecAndRefCount> matchSpecAndRefCount(Agent::IpAndIntfId const& key) {
    return matchSpecAndRefCount_.get(key);
  }
  Kiv::Ptr<MatchSpecAndRefCount const> matchSpecAndRefCount(Agent::IpAndIntfId const& key) const {
    return matchSpecAndRefCount_.get(key);
  }
  Kiv::Ptr<MatchSpecAndRefCount> matchSpecAndRefCountIs(Agent::IpAndIntfId const& key) {
    return matchSpecAndRefCount_.is(key);
  }
  /// The removed record, or null.
  Kiv::Ptr<MatchSpecAndRefCount> matchSpecAndRefCountDel(Agent::IpAndIntfId const& key) {
    return matchSpecAndRefCount_.del(key);
  }
  void matchSpecAndRefCountDelAll() { matchSpecAndRefCount_.delAll(); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  /// Whether this very record is the one of its key.
  bool holds(MatchSpecAndRefCount const& record) const;
  /// Undoes what addEntry() counted for a row that could not be written.
  void notWritten(MatchSpecAndRefCount& record);

  Kiv::Ptr<IntfIdToRoutingStatus const> const intfIdToRoutingStatus_;
  Kiv::Ptr<Pex::L3Status const> const l3Status_;
  Kiv::MemberCollection<kMatchSpecAndRefCount, MatchSpecAndRefCount,
                        &MatchSpecAndRefCount::ipAndIntfId, 0xC46B98E3>
      matchSpecAndRefCount_{*this};
  Kiv::Ptr<Table> overlaySrcMacRewriteTable_;
};

/// Makes a manager and switches it on; the table is declared when this returns.
BFN_MAC_REWRITE_EXPORT Kiv::Ptr<OverlaySrcMacRewriteManager> overlaySrcMacRewriteManagerFactory(
    Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> const& profileEntry,
    Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
    Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
    Kiv::Ptr<Pex::L3Status const> const& l3Status);

}  // namespace BfnMacRewrite
