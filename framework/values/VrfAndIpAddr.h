// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <iosfwd>

#include "framework/core/Hash.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VrfId.h"

namespace Pex {

/// An IPv4 address in a VRF. Orders by VRF, then by address.
class VrfAndIpAddr {
 public:
  constexpr VrfAndIpAddr() = default;
  constexpr VrfAndIpAddr(VrfId vrfId, Ovra::IpAddr ipAddr) : vrfId_(vrfId), ipAddr_(ipAddr) {}
  VrfAndIpAddr(Kiv::String::Iterator& it, Kiv::String::Iterator const& end);

  constexpr VrfId vrfId() const { return vrfId_; }
  constexpr Ovra::IpAddr ipAddr() const { return ipAddr_; }

  constexpr Kiv::U32 hash(unsigned seed) const {
    return Kiv::Hash(seed).hashMix(vrfId_.hash()).hashMix(ipAddr_.hash()).result();
  }
  constexpr Kiv::U32 hash() const { return hash(0u); }
  /// `Value('Pex::VrfAndIpAddr', ** {'vrfId': 7, 'ipAddr': 10.0.0.1})`, streamed likewise.
  Kiv::String valueToStrep() const;

  friend constexpr auto operator<=>(VrfAndIpAddr const&, VrfAndIpAddr const&) = default;
  friend std::ostream& operator<<(std::ostream& stream, VrfAndIpAddr const& value);

 private:
  VrfId vrfId_;
  Ovra::IpAddr ipAddr_;
};

}  // namespace Pex
