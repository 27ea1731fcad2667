// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <type_traits>

#include "framework/core/Types.h"
#include "kernel/FileDescriptor.h"

struct bpf_map_batch_opts;

namespace BfnKernel {

/// One map of the kernel, by its file descriptor. Keys and values are plain bytes of the widths
/// that the map was made with; the typed calls check nothing but their size.
///
/// Calls return the kernel's errno, 0 on success, since callers distinguish them.
class BpfMap {
 public:
  struct Shape {
    Kiv::U32 type = 0;
    Kiv::U32 keyBytes = 0;
    Kiv::U32 valueBytes = 0;
    Kiv::U32 entries = 0;
  };

  BpfMap() = default;
  /// Takes the descriptor over and asks the kernel for the map's shape. Throws KernelError.
  explicit BpfMap(FileDescriptor fd);

  /// The map pinned at `path`; none when nothing is there. Throws KernelError.
  static std::optional<BpfMap> pinned(std::string const& path);

  int fd() const { return fd_.get(); }
  explicit operator bool() const { return static_cast<bool>(fd_); }
  Shape const& shape() const { return shape_; }

  int lookup(void const* key, void* value) const;
  /// `flags`: BPF_ANY, BPF_NOEXIST (EEXIST when it is there) or BPF_EXIST (ENOENT when not).
  int update(void const* key, void const* value, Kiv::U64 flags) const;
  int erase(void const* key) const;
  /// The key after `key` in the map's order, the first one for null; ENOENT at the end.
  int nextKey(void const* key, void* next) const;

  /// Stores `count` pairs one after another until one fails. `done` is the number stored.
  int updateMany(void const* keys, void const* values, size_t count, size_t& done) const;
  int eraseMany(void const* keys, size_t count, size_t& done) const;

  /// Where a walk by batches is. A hash map keeps each entry in its bucket, so that a walk gives
  /// each entry that stays exactly once, whatever is added or removed meanwhile.
  struct Cursor {
    Kiv::U32 bucket = 0;
    bool started = false;
    bool ended = false;
  };
  /// Copies up to `room` entries from the cursor on, whole buckets, and moves the cursor after
  /// them; `count` is their number. ENOSPC, and the cursor stays, when the next bucket alone has
  /// more entries than that.
  int walk(Cursor& cursor, void* keys, void* values, size_t room, size_t& count) const;
  /// The same, and removes the entries that it copies.
  int take(Cursor& cursor, void* keys, void* values, size_t room, size_t& count) const;

 private:
  using BatchCall = int(int, void*, void*, void*, void*, Kiv::U32*, bpf_map_batch_opts const*);
  int batch(BatchCall* call, Cursor& cursor, void* keys, void* values, size_t room,
            size_t& count) const;

  FileDescriptor fd_;
  Shape shape_;
};

/// The number of values that a per-CPU map has for each key. Throws KernelError.
size_t possibleCpus();

}  // namespace BfnKernel
