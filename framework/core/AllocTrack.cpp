// SPDX-License-Identifier: Apache-2.0
#include "framework/core/AllocTrack.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cxxabi.h>
#include <map>
#include <memory>

#include "framework/core/Fatal.h"
#include "framework/core/Hash.h"
#include "framework/core/PtrInterface.h"

namespace Kiv {

namespace {

struct Counter {
  std::type_info const* type = nullptr;
  U64 allocated = 0;
  U64 deallocated = 0;
};

// Open addressing over the addresses of the type records: two or three nanoseconds an object. One
// type may have a record in each shared library; the snapshot adds those up by name. Constant
// initialised, so that objects made by static initialisers are counted as well.
constinit std::array<Counter, 1024> counters{};

Counter& counterOf(std::type_info const& type) {
  size_t at = Hash(0).hashMix(reinterpret_cast<std::uintptr_t>(&type)).result() % counters.size();
  for (size_t probes = 0; probes < counters.size(); ++probes) {
    Counter& counter = counters[at];
    std::type_info const* found = __atomic_load_n(&counter.type, __ATOMIC_RELAXED);
    if (found == &type) return counter;
    if (found == nullptr) {
      // Another thread may claim the counter at the same time, perhaps for the same type.
      if (__atomic_compare_exchange_n(&counter.type, &found, &type, false, __ATOMIC_RELAXED,
                                      __ATOMIC_RELAXED) ||
          found == &type) {
        return counter;
      }
    }
    at = (at + 1) % counters.size();
  }
  assertFail("types <= counters.size()", __FILE__, __LINE__, __PRETTY_FUNCTION__,
             "more framework types than the allocation tracker can count");
}

// Atomic where the process shares objects between threads; see threadSafePointers_.
void countOne(U64& counter) {
  if (VFPtrInterface::threadSafePointers_) [[unlikely]] {
    __atomic_fetch_add(&counter, U64{1}, __ATOMIC_RELAXED);
  } else {
    ++counter;
  }
}

std::string demangled(std::type_info const& type) {
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> const name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  return status == 0 ? name.get() : type.name();
}

}  // namespace

void AllocTrackTypeInfo::trackAllocation(std::type_info const& type) {
  countOne(counterOf(type).allocated);
}

void AllocTrackTypeInfo::trackDeallocation(std::type_info const& type) {
  countOne(counterOf(type).deallocated);
}

std::vector<AllocTrackTypeInfo> AllocTrackTypeInfo::snapshot() {
  std::map<std::string, AllocTrackTypeInfo> byName;
  for (Counter const& counter : counters) {
    if (counter.type == nullptr) continue;
    AllocTrackTypeInfo& info = byName[demangled(*counter.type)];
    info.allocated += counter.allocated;
    info.deallocated += counter.deallocated;
  }
  std::vector<AllocTrackTypeInfo> all;
  for (auto& [name, info] : byName) {
    info.typeName = name;
    all.push_back(std::move(info));
  }
  return all;
}

U64 AllocTrackTypeInfo::liveObjects() {
  U64 live = 0;
  for (Counter const& counter : counters) live += counter.allocated - counter.deallocated;
  return live;
}

}  // namespace Kiv
