// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/RewriteLayout.h"
#include "framework/core/Types.h"

namespace BfnTest {

/// A row of the rewrite table in the chip's own bytes, written down once more: what reads them is
/// what is tested.
inline BfnChip::KeyBytes rewriteKey(Kiv::U16 vlan, BfnChip::AddressBytes const& source) {
  return {5,
          static_cast<Kiv::U8>(vlan),
          static_cast<Kiv::U8>(vlan >> 8),
          source[0],
          source[1],
          source[2],
          source[3],
          1};
}

inline BfnChip::ActionBytes rewriteAction(BfnChip::MacBytes const& mac) {
  return {mac[2], mac[1], mac[0], 0, mac[5], mac[4], mac[3], 0};
}

}  // namespace BfnTest
