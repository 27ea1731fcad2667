// SPDX-License-Identifier: Apache-2.0
#include "tests/daemon/KernelRows.h"

#include "kernel/BpfMap.h"

namespace BfnTest {

KernelRows rowsInTheKernel(std::filesystem::path const& directory) {
  auto const map = BfnKernel::BpfMap::pinned((directory / "rows").string());
  KernelRows rows;
  if (!map) return rows;
  RowBytes key{};
  void const* last = nullptr;
  while (map->nextKey(last, key.data()) == 0) {
    RowBytes value{};
    if (map->lookup(key.data(), value.data()) == 0) rows[key] = value;
    last = key.data();
  }
  return rows;
}

size_t differences(KernelRows const& from, KernelRows const& to) {
  size_t count = 0;
  for (auto const& [key, value] : from) {
    auto const there = to.find(key);
    if (there == to.end() || there->second != value) ++count;
  }
  for (auto const& [key, value] : to) count += from.contains(key) ? 0U : 1U;
  return count;
}

}  // namespace BfnTest
