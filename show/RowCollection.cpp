// SPDX-License-Identifier: Apache-2.0
#include "show/RowCollection.h"

#include <algorithm>

namespace BfnMacRewrite {

void RowBatch::insert() {
  std::ranges::sort(order_);
  for (Kiv::U64 const key : order_) {
    Row const& row = rows_[static_cast<U32>(key)];
    row.sorted->ipToMacIs(Ovra::IpAddr(static_cast<U32>(key >> 32)), row.mac);
  }
  order_.clear();
  rows_.clear();
}

}  // namespace BfnMacRewrite
