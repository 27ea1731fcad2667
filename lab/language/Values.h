#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "framework/core/Types.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IpAddr.h"

namespace Lab {

/// The values of the command language. Nothing when the text is none.
std::optional<Ovra::IpAddr> ipAddrOf(std::string_view text);
std::optional<Ovra::EthAddr> ethAddrOf(std::string_view text);
/// A decimal number of 0 to `max`, without sign and without leading zeros.
std::optional<Kiv::U64> numberOf(std::string_view text, Kiv::U64 max);

/// What a place for a value takes, by the name in its angle brackets: VRF, IP, MAC, INTF, N; every
/// other name takes any text. `max` is the largest number.
bool accepts(std::string_view slot, Kiv::U64 max, std::string_view text);
/// The same in words, for "expected ...".
std::string describeSlot(std::string_view slot, Kiv::U64 max);

}  // namespace Lab
