// SPDX-License-Identifier: Apache-2.0
// Gives any bytes to every parser of a string form. A parser reads a value, whose own form must
// then read back as the same value, or refuses by RangeException; nothing else may come out.
#include <cstddef>
#include <cstdint>

#include "framework/core/Exceptions.h"
#include "framework/core/Fatal.h"
#include "framework/core/Strep.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IntfId.h"
#include "framework/values/IpAddr.h"
#include "framework/values/PortVlanPair.h"
#include "framework/values/VlanId.h"
#include "framework/values/VrfAndIpAddr.h"
#include "framework/values/VrfId.h"
#include "framework/values/VrfName.h"

namespace {

template <class... T>
void parseAs(Kiv::String const& text) {
  auto const parse = [&]<class One>(One const*) {
    try {
      One const value = Kiv::strepToValue<One>(text);
      bool const comesBack = Kiv::strepToValue<One>(Kiv::valueToStrep(value)) == value;
      KIV_CHECK(comesBack, text);
    } catch (Kiv::RangeException const&) {
    }
  };
  (parse(static_cast<T const*>(nullptr)), ...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, size_t size) {
  parseAs<bool, Kiv::U8, Kiv::U64, std::int64_t, Kiv::String, Ovra::IpAddr, Ovra::EthAddr,
          Ovra::IntfId, L3::VrfName, Pex::VrfId, Bridging::VlanId, Pex::VrfAndIpAddr,
          Pex::PortVlanPair>(Kiv::String(reinterpret_cast<char const*>(data), size));
  return 0;
}
