// SPDX-License-Identifier: Apache-2.0
#include "kernel/BpfMap.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>

#include "kernel/KernelError.h"

namespace BfnKernel {

using Kiv::U32;
using Kiv::U64;

namespace {

// libbpf's calls return the negative errno.
int errorOf(int result) {
  return result < 0 ? -result : 0;
}

bpf_map_batch_opts batchOptions() {
  bpf_map_batch_opts options{};
  options.sz = sizeof options;
  return options;
}

}  // namespace

BpfMap::BpfMap(FileDescriptor fd) : fd_(std::move(fd)) {
  bpf_map_info info{};
  U32 length = sizeof info;
  if (int const result = bpf_obj_get_info_by_fd(fd_.get(), &info, &length); result < 0) {
    fail("what is pinned is no map", -result);
  }
  shape_ = {info.type, info.key_size, info.value_size, info.max_entries};
}

std::optional<BpfMap> BpfMap::pinned(std::string const& path) {
  int const fd = bpf_obj_get(path.c_str());
  if (fd == -ENOENT) return std::nullopt;
  if (fd < 0) fail(path, -fd);
  return BpfMap(FileDescriptor(fd));
}

int BpfMap::lookup(void const* key, void* value) const {
  return errorOf(bpf_map_lookup_elem(fd_.get(), key, value));
}

int BpfMap::update(void const* key, void const* value, U64 flags) const {
  return errorOf(bpf_map_update_elem(fd_.get(), key, value, flags));
}

int BpfMap::erase(void const* key) const {
  return errorOf(bpf_map_delete_elem(fd_.get(), key));
}

int BpfMap::nextKey(void const* key, void* next) const {
  return errorOf(bpf_map_get_next_key(fd_.get(), key, next));
}

int BpfMap::updateMany(void const* keys, void const* values, size_t count, size_t& done) const {
  auto number = static_cast<U32>(count);
  bpf_map_batch_opts const options = batchOptions();
  int const result = bpf_map_update_batch(fd_.get(), keys, values, &number, &options);
  // The kernel sets the number before it fails at an entry, and leaves it when it refuses the call.
  done = result < 0 && number == count ? 0 : number;
  return errorOf(result);
}

int BpfMap::eraseMany(void const* keys, size_t count, size_t& done) const {
  auto number = static_cast<U32>(count);
  bpf_map_batch_opts const options = batchOptions();
  int const result = bpf_map_delete_batch(fd_.get(), keys, &number, &options);
  done = result < 0 && number == count ? 0 : number;
  return errorOf(result);
}

int BpfMap::walk(Cursor& cursor, void* keys, void* values, size_t room, size_t& count) const {
  return batch(bpf_map_lookup_batch, cursor, keys, values, room, count);
}

int BpfMap::take(Cursor& cursor, void* keys, void* values, size_t room, size_t& count) const {
  return batch(bpf_map_lookup_and_delete_batch, cursor, keys, values, room, count);
}

int BpfMap::batch(BatchCall* call, Cursor& cursor, void* keys, void* values, size_t room,
                  size_t& count) const {
  count = 0;
  if (cursor.ended) return 0;
  auto number = static_cast<U32>(room);
  U32 next = cursor.bucket;
  bpf_map_batch_opts const options = batchOptions();
  int const error = errorOf(call(fd_.get(), cursor.started ? &cursor.bucket : nullptr, &next, keys,
                                 values, &number, &options));
  if (error != 0 && error != ENOENT) return error;
  cursor.bucket = next;
  cursor.started = true;
  cursor.ended = error == ENOENT;
  count = number;
  return 0;
}

size_t possibleCpus() {
  int const cpus = libbpf_num_possible_cpus();
  if (cpus < 0) fail("the number of CPUs is unknown", -cpus);
  return static_cast<size_t>(cpus);
}

}  // namespace BfnKernel
