// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <compare>

#include "chip/RowTable.h"
#include "framework/core/Types.h"

namespace BfnChip {

using AddressBytes = std::array<Kiv::U8, 4>;
using MacBytes = std::array<Kiv::U8, 6>;

/// How the chip reads the rows of its source-MAC rewrite table. Fields are little-endian.
///
///   key     0     match type, must be 5
///           1..2  VLAN
///           3..6  source IPv4 address: these four bytes are compared with the packet's as they are
///           7     valid, must be 1
///   action  0..3  upper three bytes of the new source MAC, as a number
///           4..7  lower three bytes, as a number
///
/// The top byte of each half of the action is ignored.
namespace RewriteLayout {

inline constexpr Kiv::U8 kMatchType = 5;
inline constexpr Kiv::U8 kValid = 1;

/// The packed key that a packet is looked up by.
constexpr Kiv::U64 packetKey(Kiv::U16 vlan, AddressBytes const& source) {
  return Kiv::U64{kMatchType} | Kiv::U64{vlan} << 8 | packed(source) << 24 | Kiv::U64{kValid} << 56;
}

/// The MAC a packed action makes packets leave with.
constexpr MacBytes newSourceMac(Kiv::U64 action) {
  auto const byte = [action](unsigned number) {
    return static_cast<Kiv::U8>(action >> (8 * number));
  };
  return {byte(2), byte(1), byte(0), byte(6), byte(5), byte(4)};
}

/// The fields of a row's key, for showing it.
struct KeyFields {
  Kiv::U8 matchType = 0;
  Kiv::U16 vlan = 0;
  AddressBytes source{};
  Kiv::U8 valid = 0;

  /// By VLAN, then by address as a number read in packet order, then by the constants.
  friend constexpr auto operator<=>(KeyFields const& a, KeyFields const& b) {
    if (auto const order = a.vlan <=> b.vlan; order != 0) return order;
    if (auto const order = a.source <=> b.source; order != 0) return order;
    if (auto const order = a.matchType <=> b.matchType; order != 0) return order;
    return a.valid <=> b.valid;
  }
  friend constexpr bool operator==(KeyFields const&, KeyFields const&) = default;
};

constexpr KeyFields fields(KeyBytes const& key) {
  return {key[0],
          static_cast<Kiv::U16>(key[1] | (key[2] << 8)),
          {key[3], key[4], key[5], key[6]},
          key[7]};
}

}  // namespace RewriteLayout

}  // namespace BfnChip
