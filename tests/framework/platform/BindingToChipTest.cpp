// SPDX-License-Identifier: Apache-2.0
// The binding's bytes as the chip reads them: two independent pieces of code that must agree.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "chip/ChipModel.h"
#include "framework/platform/OverlaySrcMacRewriteTable.h"

namespace {

using BfnChip::ChipModel;
using BfnChip::MacBytes;
using BfOverlaySrcMacRewrite::OverlaySrcMacRewriteMatchSpec;
using BfOverlaySrcMacRewrite::OverlaySrcMacRewriteTableEntry;
using Kiv::Ptr;
using ::testing::Optional;

OverlaySrcMacRewriteTableEntry row(Kiv::U16 vlan, Kiv::U32 reversedIp, Kiv::U32 oui,
                                   Kiv::U32 station) {
  auto const match = Kiv::makeActive<OverlaySrcMacRewriteMatchSpec>();
  match->matchTypeIs(5);
  match->vlanIs(vlan);
  match->sourceIpIs(reversedIp);
  match->validIs(1);
  auto const action = BfOverlaySrcMacRewrite::RewriteOverlaySrcMacActionSpecIs();
  action->ouiIs(oui);
  action->stationIs(station);
  return {match, action};
}

class BindingToChipTest : public ::testing::Test {
 protected:
  ChipModel chip{2};
  Ptr<BfOverlaySrcMacRewrite::OverlaySrcMacRewriteTable> table =
      BfOverlaySrcMacRewrite::overlaySrcMacRewriteTableFactory(nullptr, nullptr, chip.opaque(), 1,
                                                               0, 0, "l3");
};

TEST_F(BindingToChipTest, PacketIsRewrittenWithTheMacThatWasWritten) {
  table->entryIs(row(0x0ABC, 0x0D0C0B0A, 0x021122, 0x334455));
  MacBytes const mac = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
  EXPECT_THAT(chip.lookup(0x0ABC, {0x0A, 0x0B, 0x0C, 0x0D}), Optional(mac));
  EXPECT_EQ(chip.lookup(0x0ABC, {0x0D, 0x0C, 0x0B, 0x0A}), std::nullopt);
}

TEST_F(BindingToChipTest, RemovedRowRewritesNothing) {
  auto const entry = row(100, 0x0100000A, 1, 2);
  table->entryIs(entry);
  table->entryDel(entry.matchSpec());
  EXPECT_EQ(chip.lookup(100, {10, 0, 0, 1}), std::nullopt);
  EXPECT_FALSE(table->entry(entry.matchSpec()));
}

TEST_F(BindingToChipTest, ExhaustionOfTheChipIsThrownAndCountsNothing) {
  table->entryIs(row(1, 1, 1, 1));
  table->entryIs(row(2, 1, 1, 1));
  EXPECT_THROW(table->entryIs(row(3, 1, 1, 1)), BfTable::BfTableFull);
  EXPECT_NO_THROW(table->entryIs(row(2, 1, 7, 7)));
  chip.tableIs(ChipModel::kRewriteTable, 100);
  chip.resourcesIs(2);
  EXPECT_THROW(table->entryIs(row(3, 1, 1, 1)), BfTable::BfNoSysResources);
  EXPECT_EQ(table->entryCount(), 2u);
}

TEST_F(BindingToChipTest, InjectedExceptionComesThroughAsItIs) {
  chip.faults().failNext(1, {BfnChip::Fault::Kind::Exception, {}});
  EXPECT_THROW(table->entryIs(row(1, 1, 1, 1)), std::runtime_error);
  EXPECT_EQ(table->entryCount(), 0u);
}

}  // namespace
