#include "tests/framework/core/AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> live = 0;

}  // namespace

size_t liveAllocations() {
  return live;
}

void* operator new(size_t size) {
  void* const block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  ++live;
  return block;
}

void operator delete(void* block) noexcept {
  if (block != nullptr) --live;
  std::free(block);
}

void operator delete(void* block, size_t) noexcept {
  if (block != nullptr) --live;
  std::free(block);
}
