// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "framework/core/Types.h"
#include "kernel/program/Layout.h"

namespace BfnKernel {

inline constexpr size_t kFrameVerdicts = MAC_REWRITE_VERDICTS;

/// The verdicts on the frames that the program has seen.
struct FrameCounters {
  std::array<Kiv::U64, kFrameVerdicts> byVerdict{};

  Kiv::U64 of(mac_rewrite_verdict verdict) const { return byVerdict[verdict]; }
  /// Of the frames that were looked up.
  Kiv::U64 matched() const;
  Kiv::U64 notMatched() const { return of(MAC_REWRITE_NO_ROW); }
  Kiv::U64 frames() const;

  friend bool operator==(FrameCounters const&, FrameCounters const&) = default;
};

/// Short words for a table or a JSON key, those of the chip model where it has the same case.
std::string_view text(mac_rewrite_verdict verdict);

}  // namespace BfnKernel
