// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <cstddef>
#include <iosfwd>

#include "framework/core/String.h"
#include "framework/core/Types.h"

namespace Ovra {

/// An IPv4 address, held as a number: 10.0.0.1 is 0x0A000001. The default is 0.0.0.0. Addresses
/// order numerically.
class IpAddr {
 public:
  constexpr IpAddr() = default;
  constexpr explicit IpAddr(Kiv::U32 value) : value_(value) {}
  /// Parses four decimal octets without leading zeros.
  IpAddr(Kiv::String::Iterator& it, Kiv::String::Iterator const& end);

  constexpr Kiv::U32 value() const { return value_; }
  /// The address itself: four bytes to be mixed in, not yet a hash of good quality.
  constexpr Kiv::U32 hash() const { return value_; }
  /// The dotted quad, unquoted.
  Kiv::String valueToStrep() const;
  /// Writes the dotted quad, without a NUL, to the front of `to`, which has kTextRoom bytes; all of
  /// them may be overwritten. Returns its length. For listings: nothing is allocated.
  size_t text(char* to) const;
  static constexpr size_t kTextRoom = 16;

  friend constexpr auto operator<=>(IpAddr, IpAddr) = default;
  friend std::ostream& operator<<(std::ostream& stream, IpAddr ip);

 private:
  Kiv::U32 value_ = 0;
};

}  // namespace Ovra
