// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/BfnTableMgr.h"

#include <algorithm>
#include <utility>

#include "framework/generic/Describe.h"
#include "framework/platform/TableList.h"

namespace BfnAgentLib {

BfnTableMgr::BfnTableMgr(Kiv::Ptr<BfnProfileDataEntry> const& profileEntry,
                         Kiv::Ptr<BfnSystem::SystemStatus const> const& systemStatus)
    : profileEntry_(profileEntry), systemStatus_(systemStatus) {}

BfnTableMgr::~BfnTableMgr() {
  for (Kiv::Ptr<TableList> const& list : std::exchange(declaredIn_, {})) list->managerDied(*this);
}

void BfnTableMgr::pendingTableCountIs(Kiv::U8 count) {
  pendingTableCount_.is(count);
  initTableDone_.is(count == 0);
}

Kiv::U8 BfnTableMgr::pendingTableCountDec(Kiv::U8 n) {
  auto const count = static_cast<Kiv::U8>(pendingTableCount_() - n);
  pendingTableCount_.is(count);
  if (count == 0) initTableDone_.is(true);
  return count;
}

BfnSystem::ChipCapabilities BfnTableMgr::chipCapabilities() const {
  if (!systemStatus_ || !profileEntry_) return {};
  BfnSystem::ProfileInfo const* const profile =
      systemStatus_->profileInfo(profileEntry_->profileName());
  return profile == nullptr ? BfnSystem::ChipCapabilities() : profile->chipCapabilities();
}

void BfnTableMgr::handleInitialized() {
  updateTableList();
  initializedIs(true);
}

BfnLib::CliTableStats BfnTableMgr::populateAndReturnStats(Kiv::String hwTable, BfnId::BfnPipeId) {
  return createCliTableStats(Kiv::Name(std::move(hwTable)));
}

void BfnTableMgr::declaredIn(Kiv::Ptr<TableList> const& list) {
  if (std::ranges::find(declaredIn_, list) == declaredIn_.end()) declaredIn_.push_back(list);
}

Kiv::Type const& BfnTableMgr::_kivType() {
  using T = BfnTableMgr;
  static Kiv::Type const type(
      "BfnAgentLib::BfnTableMgr", &Kiv::Entity::_kivType(),
      {Kiv::describeConstant<&T::profileEntry>("profileEntry", kProfileEntry.id),
       Kiv::describeConstant<&T::systemStatus>("systemStatus", kSystemStatus.id),
       Kiv::describeScalar<&T::pendingTableCount, &T::pendingTableCountIs>("pendingTableCount",
                                                                           kPendingTableCount.id),
       Kiv::describeConstant<&T::chipCapabilities>("chipCapabilities", kChipCapabilities.id),
       Kiv::describeConstant<&T::initTableDone>("initTableDone", kInitTableDone.id),
       Kiv::describeScalar<&T::initialized, &T::initializedIs>("initialized", kInitialized.id)});
  return type;
}

}  // namespace BfnAgentLib
