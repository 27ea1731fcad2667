// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace BfnKernel {

/// What this process or kernel lacks for the kernel's table, in one line; nothing when all is
/// there. Asks the kernel and changes nothing. A feature that only an attempt can show is reported
/// by the attempt, as Unavailable.
std::optional<std::string> whatIsMissing();

}  // namespace BfnKernel
