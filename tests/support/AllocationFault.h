// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <new>

#include "tests/support/AllocationCount.h"

namespace BfnTest {

/// Runs `event(world)` in fresh worlds of `make()`, each time failing one allocation more distant,
/// until a run needs so few that none fails; calls `check(world)` after each run that failed.
/// Returns how many did.
template <class Make, class Event, class Check>
size_t eachAllocationFailing(Make const& make, Event const& event, Check const& check) {
  for (size_t n = 1;; ++n) {
    auto const world = make();
    failAllocation(n);
    try {
      event(*world);
      failAllocation(0);
      return n - 1;
    } catch (std::bad_alloc const&) {
      failAllocation(0);
      check(*world);
    }
  }
}

}  // namespace BfnTest
