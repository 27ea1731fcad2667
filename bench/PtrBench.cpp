// SPDX-License-Identifier: Apache-2.0
// Copying and dropping one reference, against an intrusive pointer whose counter is a plain
// integer.
#include <benchmark/benchmark.h>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include "framework/core/Ptr.h"

namespace {

class KivObject : public Kiv::PtrInterface {};

class PlainObject : public boost::intrusive_ref_counter<PlainObject, boost::thread_unsafe_counter> {
 public:
  PlainObject() = default;
  PlainObject(PlainObject const&) = delete;
  PlainObject& operator=(PlainObject const&) = delete;
  virtual ~PlainObject() = default;
};

// Each round copies a pointer that the compiler cannot see through, lets the copy escape, and drops
// it.
template <class P>
void copyAndDrop(benchmark::State& state, P object) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(object);
    P copy(object);
    benchmark::DoNotOptimize(copy);
  }
}

void ptrCopyDrop(benchmark::State& state) {
  copyAndDrop(state, Kiv::make<KivObject>());
}
void ptrCopyDropAtomic(benchmark::State& state) {
  Kiv::VFPtrInterface::threadSafePointers_ = true;
  copyAndDrop(state, Kiv::make<KivObject>());
  Kiv::VFPtrInterface::threadSafePointers_ = false;
}
void intrusivePtrCopyDrop(benchmark::State& state) {
  copyAndDrop(state, boost::intrusive_ptr<PlainObject>(new PlainObject));
}

BENCHMARK(ptrCopyDrop)->Name("Ptr/copy_and_drop");
BENCHMARK(intrusivePtrCopyDrop)->Name("intrusive_ptr/copy_and_drop");
BENCHMARK(ptrCopyDropAtomic)->Name("Ptr/copy_and_drop_atomic");

}  // namespace
