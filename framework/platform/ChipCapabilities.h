// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>

#include "framework/core/String.h"
#include "framework/core/Types.h"

namespace BfnSystem {

/// What a chip can do under one hardware profile. A plain value; the default can do nothing.
struct ChipCapabilities {
  /// The chip has the table that rewrites source MACs of overlay packets.
  bool overlaySrcMacRewriteSupported = false;
  /// Rows that table takes.
  Kiv::U16 overlaySrcMacRewriteTableSize = 0;

  ChipCapabilities() = default;
  ChipCapabilities(bool supported, Kiv::U16 tableSize)
      : overlaySrcMacRewriteSupported(supported), overlaySrcMacRewriteTableSize(tableSize) {}
  /// Parses the form that valueToStrep() writes. Throws Kiv::RangeException.
  ChipCapabilities(Kiv::String::Iterator& it, Kiv::String::Iterator const& end);
  Kiv::String valueToStrep() const;

  friend bool operator==(ChipCapabilities const&, ChipCapabilities const&) = default;
};

std::ostream& operator<<(std::ostream& out, ChipCapabilities const& capabilities);

}  // namespace BfnSystem
