// SPDX-License-Identifier: Apache-2.0
#include "host/kernel/OpenTable.h"

namespace Host {

namespace {

constexpr std::string_view kModel = "model";
constexpr std::string_view kKernel = "kernel";
constexpr std::string_view kKernelIn = "kernel:";
constexpr std::string_view kDirectory = "/run/macrewrite";

}  // namespace

bool isTable(std::string_view name) {
  return name == kModel || name == kKernel || (name.starts_with(kKernelIn) && name != kKernelIn);
}

std::unique_ptr<HardwareTable> openTable(std::string_view name, std::optional<size_t> rows) {
  if (name == kModel) return nullptr;
  return openKernelTable(name == kKernel ? kDirectory : name.substr(kKernelIn.size()), rows);
}

}  // namespace Host
