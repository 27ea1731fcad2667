// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <iosfwd>

#include "framework/core/Hash.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"
#include "framework/values/IntfId.h"

namespace Pex {

/// An interface and a VLAN on it. The VLAN is a plain number: 0, untagged, is legal here, and no
/// value is refused. Orders by interface, then by VLAN.
class PortVlanPair {
 public:
  constexpr PortVlanPair() = default;
  constexpr PortVlanPair(Ovra::IntfId intfId, Kiv::U16 vlanId) : intfId_(intfId), vlanId_(vlanId) {}
  PortVlanPair(Kiv::String::Iterator& it, Kiv::String::Iterator const& end);

  constexpr Ovra::IntfId intfId() const { return intfId_; }
  constexpr Kiv::U16 vlanId() const { return vlanId_; }

  Kiv::U32 hash(unsigned seed) const {
    return Kiv::Hash(seed).hashMix(intfId_.hash()).hashMix(vlanId_).result();
  }
  Kiv::U32 hash() const { return hash(0u); }
  /// `Value('Pex::PortVlanPair', ** {'intfId': 'Ethernet1', 'vlanId': 5})`, streamed likewise.
  Kiv::String valueToStrep() const;

  friend bool operator==(PortVlanPair const&, PortVlanPair const&) = default;
  friend std::strong_ordering operator<=>(PortVlanPair const&, PortVlanPair const&) = default;
  friend std::ostream& operator<<(std::ostream& stream, PortVlanPair const& value);

 private:
  Ovra::IntfId intfId_;
  Kiv::U16 vlanId_ = 0;
};

}  // namespace Pex
