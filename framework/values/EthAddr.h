// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <iosfwd>

#include "framework/core/Hash.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"

namespace Ovra {

/// A 48-bit MAC address. The default is 00:00:00:00:00:00. Addresses order by their bytes, first
/// byte first.
class EthAddr {
 public:
  constexpr EthAddr() = default;
  /// Six bytes in the order they are written and sent.
  constexpr explicit EthAddr(std::array<Kiv::U8, 6> const& bytes)
      : words_{word(bytes[0], bytes[1]), word(bytes[2], bytes[3]), word(bytes[4], bytes[5])} {}
  /// Parses six pairs of hexadecimal digits of either case, separated by colons.
  EthAddr(Kiv::String::Iterator& it, Kiv::String::Iterator const& end);

  /// The upper three bytes, as a number of 24 bits.
  constexpr Kiv::U32 oui() const { return Kiv::U32{words_[0]} << 8 | words_[1] >> 8; }
  /// The lower three bytes, as a number of 24 bits.
  constexpr Kiv::U32 station() const { return (words_[1] & 0xffu) << 16 | words_[2]; }
  /// The whole address, as a number of 48 bits.
  constexpr Kiv::U64 value() const { return Kiv::U64{oui()} << 24 | station(); }

  constexpr Kiv::U32 hash(unsigned seed) const { return Kiv::Hash(seed).hashMix(value()).result(); }
  constexpr Kiv::U32 hash() const { return hash(0u); }
  /// Lower-case hexadecimal with colons, unquoted.
  Kiv::String valueToStrep() const;
  /// Writes the same text, without a NUL, to the first kTextSize bytes of `to`. For listings:
  /// nothing is allocated.
  void text(char* to) const;
  static constexpr size_t kTextSize = 17;

  friend constexpr auto operator<=>(EthAddr const&, EthAddr const&) = default;
  friend std::ostream& operator<<(std::ostream& stream, EthAddr const& mac);

 private:
  static constexpr Kiv::U16 word(Kiv::U8 high, Kiv::U8 low) {
    return static_cast<Kiv::U16>(high << 8 | low);
  }

  Kiv::U16 words_[3] = {};
};

/// The address of its upper and lower 24 bits; higher bits of either number are dropped.
constexpr EthAddr ethAddrFromOuiStation(Kiv::U32 oui, Kiv::U32 station) {
  auto const byte = [](Kiv::U32 value, unsigned shift) {
    return static_cast<Kiv::U8>(value >> shift & 0xff);
  };
  return EthAddr({byte(oui, 16), byte(oui, 8), byte(oui, 0), byte(station, 16), byte(station, 8),
                  byte(station, 0)});
}

}  // namespace Ovra
