// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Host {

/// The known name that was probably meant: the one with the fewest letters left out, added,
/// replaced or exchanged with their neighbours, and not too many of them; the first of several.
std::optional<std::string> nearestName(std::string_view typed, std::span<std::string const> known);

}  // namespace Host
