// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>

#include "framework/core/Types.h"

namespace Host {

/// Times from an event to the chip, counted by size.
class Latency {
 public:
  /// Upper bounds in seconds; one more count is of all above.
  static constexpr std::array<double, 12> kBounds{1e-5, 2.5e-5, 5e-5, 1e-4, 2.5e-4, 5e-4,
                                                  1e-3, 2.5e-3, 5e-3, 1e-2, 1e-1,   1};

  void add(double seconds) {
    size_t at = 0;
    while (at < kBounds.size() && seconds > kBounds[at]) ++at;
    ++counts_[at];
    sum_ += seconds;
    ++count_;
  }
  Kiv::U64 at(size_t i) const { return counts_[i]; }
  Kiv::U64 count() const { return count_; }
  double sum() const { return sum_; }

 private:
  std::array<Kiv::U64, kBounds.size() + 1> counts_{};
  double sum_ = 0;
  Kiv::U64 count_ = 0;
};

}  // namespace Host
