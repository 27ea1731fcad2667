// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <new>

/// What the program takes from operator new, in all its forms, and allocations that fail on demand.
/// Link with the target AllocationCount, which replaces operator new for the whole program.
namespace BfnTest {

/// How often operator new has been called, calls that failed included.
size_t allocationCount();
/// How many of its blocks are live.
size_t liveAllocations();

/// Makes the n-th allocation from now on throw std::bad_alloc, once; 0 takes that back.
void failAllocation(size_t n);
/// Whether an allocation has failed since the last failAllocation() or NoMemory.
bool allocationFailed();

/// While one lives, every allocation throws std::bad_alloc, except for the first `spared`.
class NoMemory {
 public:
  explicit NoMemory(size_t spared = 0);
  NoMemory(NoMemory const&) = delete;
  NoMemory& operator=(NoMemory const&) = delete;
  ~NoMemory() { end(); }

  /// There is memory again.
  void end() { failAllocation(0); }
};

/// Runs `act` again and again: the first time its first allocation fails, then its second and so
/// on, until it needs no more. `check(n)` is called after each run whose n-th allocation failed and
/// that let std::bad_alloc out; it puts back what the next run needs. Returns the number of runs
/// that failed.
template <class Act, class Check>
size_t failEachAllocation(Act const& act, Check const& check) {
  for (size_t n = 1;; ++n) {
    failAllocation(n);
    bool thrown = false;
    try {
      act();
    } catch (std::bad_alloc const&) {
      thrown = true;
    }
    bool const failed = allocationFailed();
    failAllocation(0);
    if (thrown) check(n);
    if (!failed) return n - 1;
  }
}

}  // namespace BfnTest
