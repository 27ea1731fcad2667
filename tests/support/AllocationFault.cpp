#include "tests/support/AllocationFault.h"

#include <cstdlib>

namespace {

size_t remaining = 0;

}  // namespace

void BfnTest::failAllocation(size_t n) {
  remaining = n;
}

void* operator new(size_t size) {
  if (remaining != 0 && --remaining == 0) throw std::bad_alloc();
  void* const block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, size_t) noexcept {
  std::free(block);
}
