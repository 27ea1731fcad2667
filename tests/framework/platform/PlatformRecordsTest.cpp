// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>

#include "framework/core/AllocTrack.h"
#include "framework/core/Exceptions.h"
#include "framework/core/Strep.h"
#include "framework/platform/BfTableException.h"
#include "framework/platform/BfnProfileData.h"
#include "framework/platform/CliTableStats.h"
#include "framework/platform/SlabKeyManager.h"
#include "framework/platform/StatusManager.h"
#include "framework/platform/SystemStatus.h"
#include "framework/platform/TableAddStatus.h"
#include "framework/platform/TableKey.h"

namespace {

using BfnSystem::ChipCapabilities;
using Kiv::Ptr;

TEST(ChipCapabilities, DefaultCanDoNothing) {
  ChipCapabilities const capabilities;
  EXPECT_FALSE(capabilities.overlaySrcMacRewriteSupported);
  EXPECT_EQ(capabilities.overlaySrcMacRewriteTableSize, 0u);
}

TEST(ChipCapabilities, StringFormComesBackUnchanged) {
  ChipCapabilities const capabilities(true, 65535);
  Kiv::String const strep = capabilities.valueToStrep();
  EXPECT_EQ(strep,
            "Value('BfnSystem::ChipCapabilities', ** {'overlaySrcMacRewriteSupported': True, "
            "'overlaySrcMacRewriteTableSize': 65535})");
  EXPECT_EQ(Kiv::strepToValue<ChipCapabilities>(strep), capabilities);
  EXPECT_THROW(Kiv::strepToValue<ChipCapabilities>("Value('X', ** {})"), Kiv::RangeException);
}

TEST(SystemStatus, ProfileInfoIsFoundByNameUntilDeleted) {
  auto const system = Kiv::makeActive<BfnSystem::SystemStatus>();
  Ptr<BfnSystem::ProfileInfo> const info = system->profileInfoIs("l3");
  EXPECT_EQ(system->profileInfoIs("l3"), info);
  EXPECT_EQ(system->profileInfo("l3"), info.get());
  EXPECT_EQ(info->parent().get(), system.get());
  EXPECT_EQ(info->name(), "l3");
  EXPECT_EQ(info->chipCapabilities(), ChipCapabilities());
  EXPECT_EQ(system->profileInfoDel("l3"), info);
  EXPECT_EQ(system->profileInfo("l3"), nullptr);
  EXPECT_EQ(system->profileInfoDel("l3"), nullptr);
}

TEST(BfnProfileData, EntriesCarryTheirNameAndATableListForLife) {
  Kiv::U64 const before = Kiv::AllocTrackTypeInfo::liveObjects();
  {
    auto const data = Kiv::makeActive<BfnAgentLib::BfnProfileData>();
    auto entry = data->profileDataEntryIs("l3");
    EXPECT_EQ(entry->name(), "l3");
    auto const tables = entry->tableList();
    EXPECT_EQ(tables->parent().get(), entry.get());
    EXPECT_EQ(data->profileDataEntry("l3"), entry.get());
    data->profileDataEntryDel("l3");
    EXPECT_EQ(data->profileDataEntry("l3"), nullptr);
    entry.reset();
    EXPECT_EQ(tables->parent(), nullptr);
  }
  EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), before);
}

TEST(StatusManager, TableKeepsItsStatus) {
  auto const manager = Kiv::makeActive<BfnTableStatusManager::StatusManager>();
  EXPECT_EQ(manager->status("a"), nullptr);
  auto const status = manager->statusIs("a");
  status->entryCountIs(std::numeric_limits<Kiv::U32>::max());
  EXPECT_EQ(manager->statusIs("a")->entryCount(), std::numeric_limits<Kiv::U32>::max());
  EXPECT_NE(manager->statusIs("b"), status);
}

TEST(SlabKeyManager, TablesKeepTheirSlabsAndShareNone) {
  auto const manager = Kiv::makeActive<MbbSlabKey::SlabKeyManager>();
  EXPECT_EQ(manager->slabKey("a"), 0u);
  EXPECT_EQ(manager->slabKeyIs("a"), 1u);
  EXPECT_EQ(manager->slabKeyIs("b"), 2u);
  EXPECT_EQ(manager->slabKeyIs("a"), 1u);
}

TEST(TableKey, CarriesNameDeviceAndPipeAndPrintsThePipeAsANumber) {
  BfnAgentLib::TableKey const key("t", 65, BfnId::BfnPipeId(65535));
  EXPECT_EQ(key.tableName(), "t");
  EXPECT_EQ(key.device(), 65u);
  std::ostringstream out;
  out << key.pipeId();
  EXPECT_EQ(out.str(), "65535");
}

TEST(CliTableStats, HighWatermarkIsMinusOneWithAllBitsSet) {
  EXPECT_EQ(BfnLib::CliTableStats().highWatermark, -1);
  EXPECT_EQ(static_cast<Kiv::U32>(BfnLib::CliTableStats().highWatermark), 0xFFFFFFFFu);
  static_assert(sizeof(BfnLib::CliTableStats) == 12);
}

TEST(TableAddStatus, HasTheForwardingLayersNumbers) {
  EXPECT_EQ(static_cast<int>(PexTypes::TableAddStatus::Success), 0);
  EXPECT_EQ(static_cast<int>(PexTypes::TableAddStatus::ResourcesExhausted), 2);
}

TEST(BfTableException, BothExhaustionsAreTableExceptions) {
  EXPECT_THROW(throw BfTable::BfTableFull("full"), BfTable::BfTableException);
  EXPECT_THROW(throw BfTable::BfNoSysResources("none"), BfTable::BfTableException);
}

}  // namespace
