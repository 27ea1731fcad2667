// SPDX-License-Identifier: Apache-2.0
#include "host/kernel/OpenTable.h"

namespace Host {

std::unique_ptr<HardwareTable> openKernelTable(std::filesystem::path const&,
                                               std::optional<size_t>) {
  throw TableUnavailable(
      "this build has no kernel's table: clang, bpftool or libbpf was not there");
}

}  // namespace Host
