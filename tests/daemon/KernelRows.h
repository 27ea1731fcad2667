// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <map>

namespace BfnTest {

using RowBytes = std::array<unsigned char, 8>;
/// Rows of a table in the kernel: key and value, as the map holds them.
using KernelRows = std::map<RowBytes, RowBytes>;

/// What the kernel has in the table that is pinned in the directory, whether or not there is a
/// process. Empty: there is no table.
KernelRows rowsInTheKernel(std::filesystem::path const& directory);

/// How many rows of one are not, or not the same, in the other.
size_t differences(KernelRows const& from, KernelRows const& to);

}  // namespace BfnTest
