// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <ostream>

#include "framework/core/Types.h"

namespace BfnId {

/// Number of one packet pipe of a chip. Prints as a decimal number.
class BfnPipeId {
 public:
  constexpr BfnPipeId() = default;
  constexpr explicit BfnPipeId(Kiv::U16 value) : value_(value) {}

  constexpr Kiv::U16 value() const { return value_; }

  friend constexpr auto operator<=>(BfnPipeId, BfnPipeId) = default;
  friend std::ostream& operator<<(std::ostream& out, BfnPipeId id) { return out << id.value_; }

 private:
  Kiv::U16 value_ = 0;
};

}  // namespace BfnId
