// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <iosfwd>

#include "framework/core/Exceptions.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"

namespace Bridging {

/// A VLAN id, 1 to 4094. There is no default: a VLAN that is not known has no VlanId.
class VlanId {
 public:
  /// Throws RangeException for a value outside 1 to 4094.
  constexpr explicit VlanId(Kiv::U32 value) : value_(checked(value)) {}
  /// Parses a decimal number.
  VlanId(Kiv::String::Iterator& it, Kiv::String::Iterator const& end);

  constexpr Kiv::U16 value() const { return value_; }
  /// The id itself: four bytes to be mixed in, not yet a hash of good quality.
  constexpr Kiv::U32 hash() const { return value_; }
  Kiv::String valueToStrep() const;

  friend constexpr auto operator<=>(VlanId, VlanId) = default;
  friend std::ostream& operator<<(std::ostream& stream, VlanId id);

 private:
  static constexpr Kiv::U16 checked(Kiv::U32 value) {
    if (value < 1 || value > 4094) {
      Kiv::throwRangeException("VlanId::value < 1 or > 4094 not allowed");
    }
    return static_cast<Kiv::U16>(value);
  }

  Kiv::U16 value_;
};

}  // namespace Bridging
