// SPDX-License-Identifier: Apache-2.0
// Every header that earlier releases had in another place.
#include "agent/records/BfnMacRewriteInput.h"
#include "framework/chip/ChipModel.h"
#include "framework/chip/FaultPlan.h"
#include "framework/chip/Journal.h"
#include "framework/chip/RewriteLayout.h"
#include "framework/chip/RowTable.h"
#include "framework/core/ReactorSlot.h"
#include "framework/trace/Counter.h"
#include "rewrite/BfnMacRewriteSmReactors.h"

// A program that includes the chip model where earlier releases had it, and links the plug-in
// alone.
int main() {
  BfnChip::ChipModel chip(2);
  return chip.rowCount() == 0 ? 0 : 1;
}
