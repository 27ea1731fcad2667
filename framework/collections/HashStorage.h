// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "framework/collections/HashProbe.h"
#include "framework/core/Prefetch.h"
#include "framework/core/Types.h"

namespace Kiv {

/// The memory of a HashTable: an array of 32-bit hashes and, in the same allocation, one of slots.
///
/// There are `homes()` home slots, a power of two, followed by an overflow area for members
/// displaced from the last ones; `end()` counts both. Four unused hashes follow the last slot, so
/// that a probe of four may start anywhere. Without an allocation there are no slots, and every
/// probe finds unused hashes.
template <class Slot>
class HashStorage {
 public:
  static_assert(alignof(U32) <= alignof(std::max_align_t));

  HashStorage() = default;
  /// Every slot is unused. Throws std::bad_alloc.
  HashStorage(unsigned homeBits, size_t overflow)
      : end_((size_t{1} << homeBits) + overflow), shift_(static_cast<U8>(32 - homeBits)) {
    void* const memory = ::operator new(bytes(), kAlignment);
    hashes_ = static_cast<U32*>(memory);
    slots_ =
        static_cast<Slot*>(static_cast<void*>(static_cast<std::byte*>(memory) + slotsOffset(end_)));
    std::memset(hashes_, 0xFF, (end_ + HashProbe::kLanes) * sizeof(U32));
  }
  HashStorage(HashStorage&& other) noexcept { swap(other); }
  HashStorage& operator=(HashStorage&& other) noexcept {
    HashStorage taken(std::move(other));
    swap(taken);
    return *this;
  }
  ~HashStorage() {
    if (end_ == 0) return;
    if constexpr (!std::is_trivially_destructible_v<Slot>) {
      for (size_t i = 0; i < end_; ++i) {
        if (used(i)) std::destroy_at(slots_ + i);
      }
    }
    ::operator delete(hashes_, kAlignment);
  }
  void swap(HashStorage& other) noexcept {
    std::swap(hashes_, other.hashes_);
    std::swap(slots_, other.slots_);
    std::swap(end_, other.end_);
    std::swap(shift_, other.shift_);
  }

  size_t end() const { return end_; }
  unsigned homeBits() const { return 32U - shift_; }
  size_t homes() const { return end_ == 0 ? 0 : size_t{1} << homeBits(); }
  size_t overflow() const { return end_ - homes(); }
  size_t bytes() const { return end_ == 0 ? 0 : slotsOffset(end_) + end_ * sizeof(Slot); }

  /// Grows with the hash, so that slots in order of their homes are in order of their hashes.
  size_t home(U32 hash) const { return hash >> shift_; }
  U32 hash(size_t at) const { return hashes_[at]; }
  /// Valid for `at` up to and including end().
  U32 const* hashes(size_t at) const { return hashes_ + at; }
  bool used(size_t at) const { return hashes_[at] != HashProbe::kUnused; }
  Slot* slot(size_t at) const { return slots_ + at; }
  size_t index(Slot const* slot) const { return static_cast<size_t>(slot - slots_); }
  /// Prefetches the memory of the slot; it need not exist, so the address is not a pointer yet.
  void prefetchSlot(size_t at) const {
    auto const address = reinterpret_cast<std::uintptr_t>(slots_) + at * sizeof(Slot);
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    prefetch(reinterpret_cast<void const*>(address));
  }

  void put(size_t at, U32 hash, Slot&& slot) {
    std::construct_at(slots_ + at, std::move(slot));
    hashes_[at] = hash;
  }
  /// The first unused slot at or after `at`; end() when there is none.
  size_t firstUnused(size_t at) const {
    unsigned unused = HashProbe::equal(hashes_ + at, HashProbe::kUnused);
    while (unused == 0) {
      at += HashProbe::kLanes;
      unused = HashProbe::equal(hashes_ + at, HashProbe::kUnused);
    }
    return at + HashProbe::first(unused);
  }
  /// The first used slot at or after `at`, or something not below end().
  size_t firstUsed(size_t at) const {
    for (; at < end_; at += HashProbe::kLanes) {
      unsigned const lanes = HashProbe::used(hashes_ + at);
      if (lanes != 0) return at + HashProbe::first(lanes);
    }
    return at;
  }
  /// Moves the slots [from, unused) up by one; `from` becomes unused.
  void shiftUp(size_t from, size_t unused) {
    for (size_t to = unused; to > from; --to) {
      relocate(to, slots_ + to - 1);
      hashes_[to] = hashes_[to - 1];
    }
    hashes_[from] = HashProbe::kUnused;
  }
  /// Destroys the slot `at` and moves those after it down by one, as far as they are displaced.
  void remove(size_t at) {
    std::destroy_at(slots_ + at);
    for (size_t from = at + 1; used(from) && home(hashes_[from]) < from; ++from, ++at) {
      relocate(at, slots_ + from);
      hashes_[at] = hashes_[from];
    }
    hashes_[at] = HashProbe::kUnused;
  }
  /// Moves slot `from` of `other` to the unused slot `to` of this storage.
  void adopt(size_t to, HashStorage& other, size_t from) {
    relocate(to, other.slots_ + from);
    hashes_[to] = other.hashes_[from];
    other.hashes_[from] = HashProbe::kUnused;
  }

 private:
  static constexpr std::align_val_t kAlignment{std::max(alignof(Slot), alignof(U32))};
  // The hashes that every storage without an allocation shares; they are never written.
  static constexpr U32 kNone[2 + HashProbe::kLanes] = {HashProbe::kUnused, HashProbe::kUnused,
                                                       HashProbe::kUnused, HashProbe::kUnused,
                                                       HashProbe::kUnused, HashProbe::kUnused};

  static size_t slotsOffset(size_t end) {
    size_t const hashes = (end + HashProbe::kLanes) * sizeof(U32);
    return (hashes + alignof(Slot) - 1) / alignof(Slot) * alignof(Slot);
  }
  void relocate(size_t to, Slot* from) {
    static_assert(std::is_nothrow_move_constructible_v<Slot>);
    std::construct_at(slots_ + to, std::move(*from));
    std::destroy_at(from);
  }

  U32* hashes_ = const_cast<U32*>(kNone);
  Slot* slots_ = nullptr;
  size_t end_ = 0;
  U8 shift_ = 31;
};

}  // namespace Kiv
