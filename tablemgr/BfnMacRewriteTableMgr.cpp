// SPDX-License-Identifier: Apache-2.0
#include "tablemgr/BfnMacRewriteTableMgr.h"

#include "framework/core/Fatal.h"
#include "framework/generic/Describe.h"
#include "framework/log/EmitLog.h"
#include "framework/log/LogHandle.h"
#include "framework/trace/Trace.h"

KIV_TRACE_FACILITY("BfnMacRewriteTableMgr")

namespace BfnMacRewrite {

namespace {

constexpr char const* kTableName = "overlaySrcMacRewrite";

// The chip's match constants; their meaning belongs to the table binding.
constexpr U8 kMatchType = 5;
constexpr U8 kMatchValid = 1;

Kiv::LogHandle tableFull(
    "BFN_VXLAN_MAC_REWRITE_TABLE_FULL", Kiv::LogSeverity::warning,
    "Failed to program VXLAN forwarding source MAC address rewrite action for VRF: %s source IP: "
    "%s due to hardware resource exhaustion.",
    "The switch failed to program the hardware entry to perform a source MAC address rewrite "
    "action for VXLAN forwarded packets matching the specified VRF and source IPv4 address. This "
    "occurred "
    "because the hardware resources used to perform this action are exhausted.",
    "Remove some of the entries configured with the vxlan forwarding match vrf <VRF> src-ip <IP> "
    "action rewrite src-mac <M> to make room for the new entry being configured.",
    60.0, 1.0, false);

Agent::IpAndIntfId keyOf(Ovra::IntfId intfId, Ovra::IpAddr overlaySip) {
  return {overlaySip, intfId, false};
}

void setMac(BfOverlaySrcMacRewrite::RewriteOverlaySrcMacActionSpec& actionSpec,
            Ovra::EthAddr const& mac) {
  actionSpec.ouiIs(mac.oui());
  actionSpec.stationIs(mac.station());
}

}  // namespace

Kiv::Ptr<OverlaySrcMacRewriteManager> overlaySrcMacRewriteManagerFactory(
    Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> const& profileEntry,
    Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
    Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
    Kiv::Ptr<Pex::L3Status const> const& l3Status) {
  return Kiv::makeActive<OverlaySrcMacRewriteManager>(profileEntry, systemStatus,
                                                      intfIdToRoutingStatus, l3Status);
}

OverlaySrcMacRewriteManager::OverlaySrcMacRewriteManager(
    Kiv::Ptr<BfnAgentLib::BfnProfileDataEntry> const& profileEntry,
    Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus,
    Kiv::Ptr<IntfIdToRoutingStatus const> const& intfIdToRoutingStatus,
    Kiv::Ptr<Pex::L3Status const> const& l3Status)
    : BfnTableMgr(profileEntry, systemStatus),
      intfIdToRoutingStatus_(intfIdToRoutingStatus),
      l3Status_(l3Status) {
  OverlaySrcMacRewriteManager::handleInitialized();
}

OverlaySrcMacRewriteManager::~OverlaySrcMacRewriteManager() {
  matchSpecAndRefCountDelAll();
}

void OverlaySrcMacRewriteManager::handleInitialized() {
  KIV_TRACE(9, "");
  updateTableList();
  initializedIs(true);
}

void OverlaySrcMacRewriteManager::updateTableList() {
  KIV_TRACE(9, "overlaySrcMacRewriteTableSize: ", chipCapabilities().overlaySrcMacRewriteTableSize);
  if (chipCapabilities().overlaySrcMacRewriteSupported) {
    profileEntry()->tableList()->hwTablesIs(Kiv::Name(kTableName),
                                            static_cast<BfnAgentLib::TableScope>(0), true, true,
                                            false, Kiv::Ptr<BfnTableMgr>(this));
    pendingTableCountIs(1);
  } else {
    pendingTableCountIs(0);
  }
  KIV_TRACE(9, "Tables pending initialization: ", pendingTableCount());
}

void OverlaySrcMacRewriteManager::initializeTable(
    BfnAgentLib::TableKey const& tableKey, Kiv::VoidPtr dlHandle,
    BfnDriver::BfnDevProfile const& profile, U32 sessionId,
    Kiv::Ptr<MbbSlabKey::SlabKeyManager> const& slabKeyManager,
    Kiv::Ptr<BfnTableStatus::Status> const& /*status*/,
    Kiv::Ptr<BfnTableStatusManager::StatusManager> const& statusManager) {
  Kiv::Ptr<OverlaySrcMacRewriteManager> const self(this);  // the pending count is watched
  KIV_TRACE(9, "Initializing table: ", tableKey.tableName(), " pipeId: ", tableKey.pipeId());
  KIV_CHECK(tableKey.tableName() == "overlaySrcMacRewrite",
            "Unknown table name: ", tableKey.tableName());
  overlaySrcMacRewriteTable_ = BfOverlaySrcMacRewrite::overlaySrcMacRewriteTableFactory(
      slabKeyManager, statusManager, dlHandle, sessionId, tableKey.device(),
      tableKey.pipeId().value(), Kiv::Name(profile.name()));
  pendingTableCountDec(1);
  KIV_TRACE(9, "Table remaining: ", pendingTableCount());
}

BfnLib::CliTableStats OverlaySrcMacRewriteManager::createCliTableStats(Kiv::Name hwTable) {
  KIV_CHECK(hwTable == "overlaySrcMacRewrite", "Invalid table name: ", hwTable);
  U32 const capacity = chipCapabilities().overlaySrcMacRewriteTableSize;
  return {overlaySrcMacRewriteTable_->entryCount(), capacity, -1};
}

PexTypes::TableAddStatus OverlaySrcMacRewriteManager::addEntry(
    L3::VrfName vrfName, Bridging::VlanId l3Aintf, Ovra::IntfId intfId, Ovra::IpAddr overlaySip,
    Ovra::EthAddr const& overlayRewriteSrcMac) {
  KIV_TRACE(9, "vrfName: ", vrfName, " l3Aintf: ", l3Aintf, " intfId: ", intfId,
            ", overlaySip: ", overlaySip, ", overlayRewriteSrcMac: ", overlayRewriteSrcMac);
  Agent::IpAndIntfId const key = keyOf(intfId, overlaySip);
  if (auto const shared = matchSpecAndRefCount(key)) {
    KIV_TRACE(9, "Duplicate match spec exists, update the table entry and upthe ref count.");
    updateEntry(intfId, overlaySip, overlayRewriteSrcMac);
    shared->refCountInc(1);
    return PexTypes::TableAddStatus::Success;
  }

  // A write may run foreign code that destroys this manager or replaces its table; hold both. Same
  // in deleteEntry().
  Kiv::Ptr<OverlaySrcMacRewriteManager> const self(this);
  Kiv::Ptr<Table> const table = overlaySrcMacRewriteTable_;
  auto const matchSpec = Kiv::makeActive<MatchSpec>();
  matchSpec->matchTypeIs(kMatchType);
  matchSpec->vlanIs(l3Aintf.value());
  matchSpec->sourceIpIs(__builtin_bswap32(overlaySip.value()));
  matchSpec->validIs(kMatchValid);
  auto const actionSpec = BfOverlaySrcMacRewrite::RewriteOverlaySrcMacActionSpecIs();
  setMac(*actionSpec, overlayRewriteSrcMac);

  // The record is complete before the driver is called, so that no row is ever without one; its
  // notification follows the write.
  auto const record = Kiv::makeActive<MatchSpecAndRefCount>(key);
  record->overlaySrcMacRewriteMatchSpecIs(matchSpec);
  record->refCountInc(1);
  matchSpecAndRefCount_.store(record);
  try {
    table->entryIs({matchSpec, actionSpec});
  } catch (BfTable::BfTableFull const&) {
    notWritten(*record);
    KIV_TRACE(9, "Table is full, hardware programming failed");
    Kiv::emitLog(tableFull, vrfName, overlaySip);
    return PexTypes::TableAddStatus::ResourcesExhausted;
  } catch (BfTable::BfNoSysResources const&) {
    notWritten(*record);
    KIV_TRACE(9, "System resources exhausted, hardware programming failed");
    Kiv::emitLog(tableFull, vrfName, overlaySip);
    return PexTypes::TableAddStatus::ResourcesExhausted;
  } catch (...) {
    notWritten(*record);
    throw;
  }
  KIV_TRACE(9, "Table programming successful");
  // Without notifiees the look-up can be saved.
  if (!notifieeList().empty() && holds(*record)) matchSpecAndRefCount_.announce(key);
  return PexTypes::TableAddStatus::Success;
}

bool OverlaySrcMacRewriteManager::holds(MatchSpecAndRefCount const& record) const {
  return matchSpecAndRefCount_.find(record.ipAndIntfId()) == &record;
}

// Foreign code within the write may have removed the record, or counted a reference of its own.
void OverlaySrcMacRewriteManager::notWritten(MatchSpecAndRefCount& record) {
  if (!holds(record)) return;
  if (record.refCountDec(1) == 0) {
    matchSpecAndRefCount_.withdraw(record.ipAndIntfId());
  } else {
    matchSpecAndRefCount_.announce(record.ipAndIntfId());
  }
}

void OverlaySrcMacRewriteManager::updateEntry(Ovra::IntfId intfId, Ovra::IpAddr overlaySip,
                                              Ovra::EthAddr const& overlayRewriteSrcMac) {
  KIV_TRACE(9, "intfd: ", intfId, ", overlaySip: ", overlaySip,
            ", overlayRewriteSrcMac: ", overlayRewriteSrcMac);
  auto const localMatchSpecAndRefCount = matchSpecAndRefCount(keyOf(intfId, overlaySip));
  KIV_CHECK(localMatchSpecAndRefCount, "Entry doesn't exist. ", "intfId: ", intfId,
            ", overlaySip: ", overlaySip);
  auto const actionSpec = Kiv::makeActive<BfOverlaySrcMacRewrite::RewriteOverlaySrcMacActionSpec>();
  setMac(*actionSpec, overlayRewriteSrcMac);
  Kiv::Ptr<Table> const table = overlaySrcMacRewriteTable_;
  table->entryIs({localMatchSpecAndRefCount->overlaySrcMacRewriteMatchSpec(), actionSpec});
}

void OverlaySrcMacRewriteManager::deleteEntry(Ovra::IntfId intfId, Ovra::IpAddr overlaySip) {
  KIV_TRACE(9, "intfId: ", intfId, ", overlaySip: ", overlaySip);
  Agent::IpAndIntfId const key = keyOf(intfId, overlaySip);
  auto const localMatchSpecAndRefCount = matchSpecAndRefCount(key);
  KIV_CHECK(localMatchSpecAndRefCount, "Entry doesn't exist. ", "intfId: ", intfId,
            ", overlaySip: ", overlaySip);
  if (localMatchSpecAndRefCount->refCountDec(1) != 0) return;
  Kiv::Ptr<OverlaySrcMacRewriteManager> const self(this);
  Kiv::Ptr<Table> const table = overlaySrcMacRewriteTable_;
  table->entryDel(localMatchSpecAndRefCount->overlaySrcMacRewriteMatchSpec());
  // An addition within the removal has written the row anew and counted its reference.
  if (localMatchSpecAndRefCount->refCount() == 0) matchSpecAndRefCountDel(key);
}

Kiv::Ptr<OverlaySrcMacRewriteManager::MatchSpec const>
OverlaySrcMacRewriteManager::keyToMatchSpecGet(Ovra::IntfId intfId, Ovra::IpAddr overlaySip) {
  return matchSpecAndRefCount(keyOf(intfId, overlaySip))->overlaySrcMacRewriteMatchSpec();
}

L3::VrfName OverlaySrcMacRewriteManager::intfIdToVrfName(Ovra::IntfId intfId) const {
  auto const* const l3IntfRoutingStatus =
      intfIdToRoutingStatus_ ? intfIdToRoutingStatus_->l3IntfRoutingStatus(intfId) : nullptr;
  KIV_CHECK(l3IntfRoutingStatus, "interface routing status doesn't exist for intfId: ", intfId);
  return l3Status_ ? l3Status_->vrfName(l3IntfRoutingStatus->vrfId()) : L3::VrfName();
}

Kiv::Type const& OverlaySrcMacRewriteManager::_kivType() {
  using T = OverlaySrcMacRewriteManager;
  static Kiv::Type const type(
      "BfnMacRewrite::OverlaySrcMacRewriteManager", &BfnTableMgr::_kivType(),
      {Kiv::describeConstant<&T::intfIdToRoutingStatus>("intfIdToRoutingStatus", 264),
       Kiv::describeConstant<&T::l3Status>("l3Status", 265),
       Kiv::describeCollection<&T::matchSpecAndRefCount_>("matchSpecAndRefCount",
                                                          kMatchSpecAndRefCount.id),
       Kiv::describeConstant<&T::overlaySrcMacRewriteTable>("overlaySrcMacRewriteTable", 267),
       Kiv::describeOperation<&T::addEntry>("addEntry"),
       Kiv::describeOperation<&T::deleteEntry>("deleteEntry"),
       Kiv::describeOperation<&T::updateEntry>("updateEntry"),
       Kiv::describeOperation<&T::keyToMatchSpecGet>("keyToMatchSpecGet"),
       Kiv::describeOperation<&T::intfIdToVrfName>("intfIdToVrfName")});
  return type;
}

}  // namespace BfnMacRewrite
