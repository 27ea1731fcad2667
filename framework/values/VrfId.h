// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <iosfwd>

#include "framework/core/String.h"
#include "framework/core/Types.h"

namespace Pex {

/// The number of a VRF. The default is 0.
class VrfId {
 public:
  constexpr VrfId() = default;
  constexpr explicit VrfId(Kiv::U32 value) : value_(value) {}
  /// Parses a decimal number.
  VrfId(Kiv::String::Iterator& it, Kiv::String::Iterator const& end);

  constexpr Kiv::U32 value() const { return value_; }
  /// The id itself: four bytes to be mixed in, not yet a hash of good quality.
  constexpr Kiv::U32 hash() const { return value_; }
  Kiv::String valueToStrep() const;

  friend constexpr auto operator<=>(VrfId, VrfId) = default;
  friend std::ostream& operator<<(std::ostream& stream, VrfId id);

 private:
  Kiv::U32 value_ = 0;
};

}  // namespace Pex
