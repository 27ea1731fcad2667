// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/OverlaySrcMacRewriteTable.h"

#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "framework/core/AllocTrack.h"
#include "framework/core/Exceptions.h"

namespace {

using BfnDriver::ByteView;
using BfnDriver::EraseResult;
using BfnDriver::TableAddress;
using BfnDriver::TableHandle;
using BfnDriver::WriteResult;
using BfOverlaySrcMacRewrite::OverlaySrcMacRewriteMatchSpec;
using BfOverlaySrcMacRewrite::OverlaySrcMacRewriteTable;
using BfOverlaySrcMacRewrite::OverlaySrcMacRewriteTableEntry;
using BfOverlaySrcMacRewrite::RewriteOverlaySrcMacActionSpec;
using BfOverlaySrcMacRewrite::RewriteOverlaySrcMacActionSpecIs;
using Kiv::Ptr;
using Kiv::U8;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

using Bytes = std::array<U8, 8>;

// A driver that records what it is given and gives preset answers.
class RecordingDriver final : public BfnDriver::TableDriver {
 public:
  std::optional<TableHandle> open(TableAddress const& address) override {
    session = address.session;
    device = address.device;
    pipe = address.pipe.value();
    profile = address.profile;
    if (address.table != "overlaySrcMacRewrite") return std::nullopt;
    if (refuseOpen) return std::nullopt;
    return TableHandle{42};
  }
  WriteResult write(TableHandle table, ByteView key, ByteView action) override {
    EXPECT_EQ(table, TableHandle{42});
    if (throwOnWrite) throw std::out_of_range("bus");
    if (writeResult == WriteResult::Ok) rows[copy(key)] = copy(action);
    return writeResult;
  }
  EraseResult erase(TableHandle, ByteView key) override {
    erased.push_back(copy(key));
    if (failErase) return EraseResult::Error;
    return rows.erase(copy(key)) == 1 ? EraseResult::Ok : EraseResult::NotFound;
  }
  bool read(TableHandle, ByteView key, std::span<U8> action) const override {
    auto const row = rows.find(copy(key));
    if (row == rows.end()) return false;
    std::ranges::copy(row->second, action.begin());
    return true;
  }
  size_t entryCount(TableHandle) const override { return rows.size(); }
  size_t capacity(TableHandle) const override { return 100; }

  std::map<Bytes, Bytes> rows;
  std::vector<Bytes> erased;
  WriteResult writeResult = WriteResult::Ok;
  bool throwOnWrite = false;
  bool failErase = false;
  bool refuseOpen = false;
  Kiv::U32 session = 0;
  U8 device = 0;
  Kiv::U16 pipe = 0;
  std::string profile;

 private:
  static Bytes copy(ByteView bytes) {
    EXPECT_EQ(bytes.size(), 8u);
    Bytes result{};
    std::ranges::copy(bytes.first(std::min<size_t>(bytes.size(), 8)), result.begin());
    return result;
  }
};

Ptr<OverlaySrcMacRewriteMatchSpec> matchSpec(U8 matchType, Kiv::U16 vlan, Kiv::U32 ip, U8 valid) {
  auto spec = Kiv::makeActive<OverlaySrcMacRewriteMatchSpec>();
  spec->matchTypeIs(matchType);
  spec->vlanIs(vlan);
  spec->sourceIpIs(ip);
  spec->validIs(valid);
  return spec;
}

Ptr<RewriteOverlaySrcMacActionSpec> actionSpec(Kiv::U32 oui, Kiv::U32 station) {
  auto spec = RewriteOverlaySrcMacActionSpecIs();
  spec->ouiIs(oui);
  spec->stationIs(station);
  return spec;
}

// VLAN 100, 10.0.0.1 (byte-reversed), 02:11:22:33:44:55.
OverlaySrcMacRewriteTableEntry someRow() {
  return {matchSpec(5, 100, 0x0100000A, 1), actionSpec(0x021122, 0x334455)};
}

class OverlaySrcMacRewriteTableTest : public ::testing::Test {
 protected:
  Kiv::U64 const liveBefore_ = Kiv::AllocTrackTypeInfo::liveObjects();
  RecordingDriver driver;
  Ptr<MbbSlabKey::SlabKeyManager> slabs = Kiv::makeActive<MbbSlabKey::SlabKeyManager>();
  Ptr<BfnTableStatusManager::StatusManager> statuses =
      Kiv::makeActive<BfnTableStatusManager::StatusManager>();
  Ptr<OverlaySrcMacRewriteTable> table = bind();

  Ptr<OverlaySrcMacRewriteTable> bind() {
    return BfOverlaySrcMacRewrite::overlaySrcMacRewriteTableFactory(slabs, statuses,
                                                                    driver.opaque(), 7, 2, 3, "l3");
  }
  void TearDown() override {
    table.reset();
    statuses.reset();
    slabs.reset();
    EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), liveBefore_);
  }
};

TEST_F(OverlaySrcMacRewriteTableTest, FactoryPassesSessionDevicePipeAndProfileToTheDriver) {
  EXPECT_EQ(driver.session, 7u);
  EXPECT_EQ(driver.device, 2u);
  EXPECT_EQ(driver.pipe, 3u);
  EXPECT_EQ(driver.profile, "l3");
  EXPECT_TRUE(table->hasNotificationActive());
  EXPECT_EQ(table->name(), "overlaySrcMacRewrite");
}

TEST_F(OverlaySrcMacRewriteTableTest, RowIsWrittenAsThesePackedLittleEndianBytes) {
  table->entryIs(someRow());
  EXPECT_THAT(driver.rows,
              ElementsAre(Pair(Bytes{0x05, 0x64, 0x00, 0x0A, 0x00, 0x00, 0x01, 0x01},
                               Bytes{0x22, 0x11, 0x02, 0x00, 0x55, 0x44, 0x33, 0x00})));
}

TEST_F(OverlaySrcMacRewriteTableTest, TheActionIsReadBackWithoutMakingAnObject) {
  table->entryIs(someRow());
  auto const spec = someRow().matchSpec();
  auto const absent = matchSpec(5, 101, 0x0100000A, 1);
  Kiv::U64 const live = Kiv::AllocTrackTypeInfo::liveObjects();
  auto const action = table->action(*spec);
  EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), live);
  ASSERT_TRUE(action);
  EXPECT_EQ(action->oui, 0x021122u);
  EXPECT_EQ(action->station, 0x334455u);
  EXPECT_FALSE(table->action(*absent));
}

TEST_F(OverlaySrcMacRewriteTableTest, EveryByteOfEveryFieldHasItsPlace) {
  table->entryIs({matchSpec(0xF1, 0xE2D3, 0xC4B5A697, 0x88), actionSpec(0x797A6B5C, 0x4D3E2F10)});
  EXPECT_THAT(driver.rows,
              ElementsAre(Pair(Bytes{0xF1, 0xD3, 0xE2, 0x97, 0xA6, 0xB5, 0xC4, 0x88},
                               Bytes{0x5C, 0x6B, 0x7A, 0x79, 0x10, 0x2F, 0x3E, 0x4D})));
}

TEST_F(OverlaySrcMacRewriteTableTest, EqualMatchSpecOverwritesTheRow) {
  table->entryIs(someRow());
  table->entryIs({matchSpec(5, 100, 0x0100000A, 1), actionSpec(0xAABBCC, 0xDDEEFF)});
  EXPECT_THAT(driver.rows, ElementsAre(Pair(Bytes{5, 0x64, 0, 10, 0, 0, 1, 1},
                                            Bytes{0xCC, 0xBB, 0xAA, 0, 0xFF, 0xEE, 0xDD, 0})));
  EXPECT_EQ(table->entryCount(), 1u);
}

TEST_F(OverlaySrcMacRewriteTableTest, EntryReadsBackWhatTheChipHolds) {
  auto const row = someRow();
  table->entryIs(row);
  driver.rows.begin()->second = {1, 2, 3, 0, 4, 5, 6, 0x80};
  auto const read = table->entry(row.matchSpec());
  ASSERT_TRUE(read);
  EXPECT_EQ(read.matchSpec(), row.matchSpec());
  EXPECT_EQ(read.actionSpec()->oui(), 0x030201u);
  EXPECT_EQ(read.actionSpec()->station(), 0x80060504u);
}

TEST_F(OverlaySrcMacRewriteTableTest, EntryOfAnAbsentRowOrNoSpecIsNoRow) {
  EXPECT_FALSE(table->entry(someRow().matchSpec()));
  EXPECT_FALSE(table->entry(nullptr));
}

TEST_F(OverlaySrcMacRewriteTableTest, EntryDelRemovesByTheKeyBytes) {
  auto const row = someRow();
  table->entryIs(row);
  table->entryDel(row.matchSpec());
  EXPECT_THAT(driver.rows, IsEmpty());
  EXPECT_THAT(driver.erased, ElementsAre(Bytes{5, 0x64, 0, 10, 0, 0, 1, 1}));
}

TEST_F(OverlaySrcMacRewriteTableTest, RemovalOfARowThatIsGoneIsAccepted) {
  EXPECT_NO_THROW(table->entryDel(someRow().matchSpec()));
  EXPECT_EQ(table->entryCount(), 0u);
}

TEST_F(OverlaySrcMacRewriteTableTest, FailuresOfTheDriverBecomeTheTableExceptions) {
  driver.writeResult = WriteResult::TableFull;
  EXPECT_THROW(table->entryIs(someRow()), BfTable::BfTableFull);
  driver.writeResult = WriteResult::NoSysResources;
  EXPECT_THROW(table->entryIs(someRow()), BfTable::BfNoSysResources);
  driver.writeResult = WriteResult::Error;
  try {
    table->entryIs(someRow());
    ADD_FAILURE() << "did not throw";
  } catch (BfTable::BfTableException const& exception) {
    EXPECT_EQ(dynamic_cast<BfTable::BfTableFull const*>(&exception), nullptr);
    EXPECT_EQ(dynamic_cast<BfTable::BfNoSysResources const*>(&exception), nullptr);
  }
  driver.failErase = true;
  EXPECT_THROW(table->entryDel(someRow().matchSpec()), BfTable::BfTableException);
  EXPECT_EQ(table->entryCount(), 0u);
}

TEST_F(OverlaySrcMacRewriteTableTest, ForeignExceptionOfTheDriverPassesThrough) {
  driver.throwOnWrite = true;
  EXPECT_THROW(table->entryIs(someRow()), std::out_of_range);
}

TEST_F(OverlaySrcMacRewriteTableTest, MissingSpecIsRefused) {
  EXPECT_THROW(table->entryIs({matchSpec(5, 1, 1, 1), nullptr}), Kiv::NullPointerException);
  EXPECT_THROW(table->entryIs({}), Kiv::NullPointerException);
  EXPECT_THROW(table->entryDel(nullptr), Kiv::NullPointerException);
}

TEST_F(OverlaySrcMacRewriteTableTest, EntryCountIsInTheStatusManagersRecord) {
  EXPECT_EQ(statuses->status("overlaySrcMacRewrite")->entryCount(), 0u);
  table->entryIs(someRow());
  EXPECT_EQ(statuses->status("overlaySrcMacRewrite")->entryCount(), 1u);
  EXPECT_EQ(table->status().get(), statuses->status("overlaySrcMacRewrite"));
  table->entryDel(someRow().matchSpec());
  EXPECT_EQ(table->entryCount(), 0u);
}

TEST_F(OverlaySrcMacRewriteTableTest, DyingBindingLeavesRowsAndTheNextOneCountsThem) {
  table->entryIs(someRow());
  table = nullptr;
  EXPECT_EQ(driver.rows.size(), 1u);
  driver.rows[Bytes{1}] = Bytes{};
  table = bind();
  EXPECT_EQ(table->entryCount(), 2u);
  EXPECT_EQ(table->slabKey(), slabs->slabKey("overlaySrcMacRewrite"));
}

TEST_F(OverlaySrcMacRewriteTableTest, WorksWithoutManagers) {
  auto const alone = BfOverlaySrcMacRewrite::overlaySrcMacRewriteTableFactory(
      nullptr, nullptr, driver.opaque(), 0, 0, 0, "");
  alone->entryIs(someRow());
  EXPECT_EQ(alone->entryCount(), 1u);
  EXPECT_EQ(alone->slabKey(), 0u);
}

TEST_F(OverlaySrcMacRewriteTableTest, NullHandleOrUnknownTableCannotBeBound) {
  EXPECT_THROW(auto t = BfOverlaySrcMacRewrite::overlaySrcMacRewriteTableFactory(
                   slabs, statuses, nullptr, 0, 0, 0, "l3"),
               BfTable::BfTableException);
  driver.refuseOpen = true;
  EXPECT_THROW(auto t = bind(), BfTable::BfTableException);
}

TEST(OverlaySrcMacRewriteSpecs, StartAllZero) {
  auto const match = Kiv::make<OverlaySrcMacRewriteMatchSpec>();
  EXPECT_EQ(match->matchType(), 0u);
  EXPECT_EQ(match->vlan(), 0u);
  EXPECT_EQ(match->sourceIp(), 0u);
  EXPECT_EQ(match->valid(), 0u);
  auto const action = RewriteOverlaySrcMacActionSpecIs();
  EXPECT_EQ(action->oui(), 0u);
  EXPECT_EQ(action->station(), 0u);
  EXPECT_TRUE(action->hasNotificationActive());
}

}  // namespace
