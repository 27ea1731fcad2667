// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "framework/core/Types.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IpAddr.h"

namespace Host {

/// The numbers that a place takes.
struct Limits {
  Kiv::U64 min = 0;
  Kiv::U64 max = std::numeric_limits<Kiv::U32>::max();
};

/// The values of the command language. Nothing when the text is none.
std::optional<Ovra::IpAddr> ipAddrOf(std::string_view text);
std::optional<Ovra::EthAddr> ethAddrOf(std::string_view text);
/// A decimal number of 0 to `max`, without sign and without leading zeros.
std::optional<Kiv::U64> numberOf(std::string_view text, Kiv::U64 max);

/// What a place for a value takes, by the name in its angle brackets: VRF, IP, MAC, INTF, N; every
/// other name takes any text.
bool accepts(std::string_view slot, Limits const& limits, std::string_view text);
/// The same in words, for "expected ...".
std::string describeSlot(std::string_view slot, Limits const& limits);

}  // namespace Host
