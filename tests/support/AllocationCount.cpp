// SPDX-License-Identifier: Apache-2.0
#include "tests/support/AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <limits>

namespace {

std::atomic<size_t> calls = 0;
std::atomic<size_t> live = 0;
// The numbers of the first and the last call that fail; 0: none.
std::atomic<size_t> firstFailing = 0;
std::atomic<size_t> lastFailing = 0;
std::atomic<bool> failed = false;

void* counted(void* (*allocate)(size_t, size_t), size_t size, size_t alignment) {
  size_t const number = ++calls;
  if (firstFailing != 0 && number >= firstFailing && number <= lastFailing) {
    failed = true;
    throw std::bad_alloc();
  }
  void* const block = allocate(size, alignment);
  if (block == nullptr) throw std::bad_alloc();
  ++live;
  return block;
}

void release(void* block) {
  if (block != nullptr) --live;
  std::free(block);
}

}  // namespace

namespace BfnTest {

size_t allocationCount() {
  return calls;
}
size_t liveAllocations() {
  return live;
}
void failAllocation(size_t n) {
  if (n != 0) failed = false;
  firstFailing = lastFailing = n == 0 ? 0 : calls + n;
}
bool allocationFailed() {
  return failed;
}

NoMemory::NoMemory(size_t spared) {
  failed = false;
  firstFailing = calls + spared + 1;
  lastFailing = std::numeric_limits<size_t>::max();
}

}  // namespace BfnTest

// In a file of their own, so that no caller sees through them.
void* operator new(size_t size) {
  return counted([](size_t bytes, size_t) { return std::malloc(bytes); }, size, 0);
}
// The form that does not throw is a sanitizer's own unless it is replaced, too.
void* operator new(size_t size, std::nothrow_t const&) noexcept {
  try {
    return operator new(size);
  } catch (std::bad_alloc const&) {
    return nullptr;
  }
}
void* operator new(size_t size, std::align_val_t alignment) {
  return counted(
      [](size_t bytes, size_t to) { return std::aligned_alloc(to, (bytes + to - 1) / to * to); },
      size, static_cast<size_t>(alignment));
}
void operator delete(void* block) noexcept {
  release(block);
}
void operator delete(void* block, std::nothrow_t const&) noexcept {
  release(block);
}
void operator delete(void* block, size_t) noexcept {
  release(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
  release(block);
}
void operator delete(void* block, size_t, std::align_val_t) noexcept {
  release(block);
}
