// SPDX-License-Identifier: Apache-2.0
#include "framework/core/PtrInterface.h"

#include <cstdint>
#include <new>
#include <pthread.h>

#include "framework/core/AllocTrack.h"
#include "framework/core/Fatal.h"

namespace Kiv {

bool VFPtrInterface::threadSafePointers_ = false;

namespace {

// Whether the address is on the calling thread's stack. Debug builds ask.
[[maybe_unused]] bool onStack(void const* address) {
  struct Bounds {
    std::uintptr_t from = 0;
    size_t size = 0;
    Bounds() {
      pthread_attr_t attributes;
      if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
      void* lowest = nullptr;
      if (pthread_attr_getstack(&attributes, &lowest, &size) != 0) size = 0;
      from = reinterpret_cast<std::uintptr_t>(lowest);
      pthread_attr_destroy(&attributes);
    }
  };
  thread_local Bounds const bounds;
  return reinterpret_cast<std::uintptr_t>(address) - bounds.from < bounds.size;
}

}  // namespace

PtrInterface::~PtrInterface() {
  if constexpr (kDebugBuild) {
    KIV_CHECK(!onStack(this), "an object that Kiv::make did not make");
  }
}

void PtrInterface::tooManyReferences() {
  assertFail("kivRefCount() < 2^29 - 1", __FILE__, __LINE__, __PRETTY_FUNCTION__,
             "too many references to one object");
}

void* PtrInterface::kivMemAlloc(size_t size) {
  return ::operator new(size);
}

void PtrInterface::kivMemFree(void* memory) noexcept {
  ::operator delete(memory);
}

void PtrInterface::kivLastRefGone() {
  // The destructor's own reference: a temporary Ptr made during destruction must not destroy the
  // object a second time.
  ++refWord_;
  handleZeroRef();
}

void PtrInterface::handleZeroRef() {
  AllocTrackTypeInfo::trackDeallocation(typeid(*this));
  delete this;
}

}  // namespace Kiv
