// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "framework/core/Types.h"

namespace BfnLib {

/// A table manager's statistics of one table.
struct CliTableStats {
  /// The high watermark of a table that keeps none.
  static constexpr std::int32_t kNoHighWatermark = -1;

  Kiv::U32 entriesInUse = 0;
  Kiv::U32 capacity = 0;
  /// Most entries that were ever in use.
  std::int32_t highWatermark = kNoHighWatermark;

  friend bool operator==(CliTableStats const&, CliTableStats const&) = default;
};

}  // namespace BfnLib
