#pragma once

#include <cstddef>

/// What the program takes from operator new, in all its forms, and allocations that fail on demand.
/// Link with the target AllocationCount, which replaces operator new for the whole program.
namespace BfnTest {

/// How often operator new has been called.
std::size_t allocationCount();
/// How many of its blocks are live.
std::size_t liveAllocations();

/// Makes the n-th allocation from now on throw std::bad_alloc, once; 0 takes that back.
void failAllocation(std::size_t n);
/// Whether the allocation of the last failAllocation has been asked for.
bool allocationFailed();

}  // namespace BfnTest
