// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>

#include "host/switch/HardwareTable.h"

namespace Host {

/// A table as a program's options name it: "model", "kernel" or "kernel:DIR". The default directory
/// is /run/macrewrite.
inline constexpr char kTableForms[] = "model, kernel or kernel:DIR";
bool isTable(std::string_view name);

/// That table; null for the model. Throws as openKernelTable() does.
std::unique_ptr<HardwareTable> openTable(std::string_view name,
                                         std::optional<size_t> rows = std::nullopt);

/// The kernel's table in that directory, see docs/kernel.md; made when it is missing. What is not
/// as asked for is a line on standard error. Throws TableUnavailable where this machine, process or
/// build lacks what it needs, std::runtime_error when the directory is in use or the kernel
/// refuses.
/// `rows`: of a table that is made; the kernel's usual number unless given.
std::unique_ptr<HardwareTable> openKernelTable(std::filesystem::path const& directory,
                                               std::optional<size_t> rows = std::nullopt);

}  // namespace Host
