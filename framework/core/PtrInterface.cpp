#include "framework/core/PtrInterface.h"

#include <new>

#include "framework/core/AllocTrack.h"

namespace Kiv {

bool VFPtrInterface::threadSafePointers_ = false;

PtrInterface::~PtrInterface() = default;

void* PtrInterface::kivMemAlloc(size_t size) {
  return ::operator new(size);
}

void PtrInterface::kivMemFree(void* memory) noexcept {
  ::operator delete(memory);
}

void PtrInterface::kivLastRefGone() {
  // The destructor's own reference: a temporary Ptr made while the object dies must not bring it
  // here a second time.
  ++refWord_;
  handleZeroRef();
}

void PtrInterface::handleZeroRef() {
  AllocTrackTypeInfo::trackDeallocation(typeid(*this));
  delete this;
}

void PtrInterface::bitIs(U32 bit, bool on) {
  if (threadSafePointers_) {
    if (on) {
      __atomic_fetch_or(&refWord_, bit, __ATOMIC_RELAXED);
    } else {
      __atomic_fetch_and(&refWord_, ~bit, __ATOMIC_RELAXED);
    }
  } else {
    refWord_ = on ? refWord_ | bit : refWord_ & ~bit;
  }
}

}  // namespace Kiv
