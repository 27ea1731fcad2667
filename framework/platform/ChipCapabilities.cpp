// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/ChipCapabilities.h"

#include <ostream>

#include "framework/core/Strep.h"

namespace BfnSystem {

ChipCapabilities::ChipCapabilities(Kiv::String::Iterator& it, Kiv::String::Iterator const& end) {
  Kiv::StrepReader in(it, end, "BfnSystem::ChipCapabilities");
  overlaySrcMacRewriteSupported = in.field<bool>("overlaySrcMacRewriteSupported");
  overlaySrcMacRewriteTableSize = in.field<Kiv::U16>("overlaySrcMacRewriteTableSize");
  in.close();
}

Kiv::String ChipCapabilities::valueToStrep() const {
  return Kiv::StrepWriter("BfnSystem::ChipCapabilities")
      .field("overlaySrcMacRewriteSupported", overlaySrcMacRewriteSupported)
      .field("overlaySrcMacRewriteTableSize", overlaySrcMacRewriteTableSize)
      .close();
}

std::ostream& operator<<(std::ostream& out, ChipCapabilities const& capabilities) {
  return out << capabilities.valueToStrep();
}

}  // namespace BfnSystem
