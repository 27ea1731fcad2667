// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>

#include "framework/core/AddressSanitizer.h"
#include "framework/core/Types.h"

#ifdef KIV_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace Kiv {

namespace detail {

/// Whether the bytes may be used, for AddressSanitizer; without it nothing.
inline void usableIs([[maybe_unused]] void const* memory, [[maybe_unused]] size_t size,
                     [[maybe_unused]] bool usable) {
#ifdef KIV_ADDRESS_SANITIZER
  if (usable) {
    __asan_unpoison_memory_region(memory, size);
  } else {
    __asan_poison_memory_region(memory, size);
  }
#endif
}

}  // namespace detail

/// Memory for the nodes of one container, all of one size: taken from the heap in chunks that
/// double up to 64 KiB, so that nodes made one after another lie side by side. A freed node is used
/// again; the chunks are given back when the last node is freed, and by the destructor.
/// AddressSanitizer reports the use of a freed node until then.
class NodePool {
 public:
  NodePool() = default;
  NodePool(NodePool const&) = delete;
  NodePool& operator=(NodePool const&) = delete;
  ~NodePool() { release(); }

  /// Every call on one pool passes the same size. Throws std::bad_alloc.
  void* allocate(size_t size) {
    void* node = free_;
    if (node != nullptr) {
      detail::usableIs(node, size, true);
      free_ = free_->next;
    } else {
      if (left_ < size) addChunk(size);
      node = next_;
      next_ += size;
      left_ -= size;
    }
    ++nodes_;
    return node;
  }
  void deallocate(void* node, size_t size) {
    free_ = ::new (node) Link{free_};
    detail::usableIs(node, size, false);
    if (--nodes_ == 0) release();
  }
  size_t heapBytes() const { return bytes_; }

 private:
  struct Link {
    Link* next;
  };
  static constexpr size_t kHeader = (sizeof(Link) + alignof(std::max_align_t) - 1) /
                                    alignof(std::max_align_t) * alignof(std::max_align_t);
  static constexpr size_t kMaxChunk = 65536;

  void addChunk(size_t size) {
    // As much again as there is, so that few nodes take little.
    size_t const chunk = kHeader + std::max(size, std::min(bytes_, kMaxChunk));
    auto* const memory = static_cast<std::byte*>(::operator new(chunk));
    chunks_ = ::new (memory) Link{chunks_};
    next_ = memory + kHeader;
    left_ = chunk - kHeader;
    bytes_ += chunk;
  }
  void release() {
    while (chunks_ != nullptr) ::operator delete(std::exchange(chunks_, chunks_->next));
    free_ = nullptr;
    next_ = nullptr;
    left_ = bytes_ = 0;
  }

  Link* chunks_ = nullptr;
  Link* free_ = nullptr;
  std::byte* next_ = nullptr;
  size_t left_ = 0;
  size_t nodes_ = 0;
  size_t bytes_ = 0;
};

/// Makes a node-based standard container allocate its nodes from a pool, which must outlive it.
template <class T>
class NodePoolAllocator {
 public:
  using value_type = T;
  using propagate_on_container_move_assignment = std::true_type;
  using propagate_on_container_swap = std::true_type;

  /// A null pool serves a container that stays empty.
  explicit NodePoolAllocator(NodePool* pool) : pool_(pool) {}
  template <class U>
  NodePoolAllocator(NodePoolAllocator<U> const& other) : pool_(other.pool()) {}

  T* allocate(size_t count) {
    static_assert(alignof(T) <= alignof(std::max_align_t));
    (void)count;  // node-based containers ask for one at a time
    return static_cast<T*>(pool_->allocate(sizeof(T)));
  }
  void deallocate(T* node, size_t) { pool_->deallocate(node, sizeof(T)); }
  NodePool* pool() const { return pool_; }
  template <class U>
  friend bool operator==(NodePoolAllocator const& a, NodePoolAllocator<U> const& b) {
    return a.pool() == b.pool();
  }

 private:
  NodePool* pool_;
};

}  // namespace Kiv
