// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

#include "framework/core/Types.h"

namespace Host::Packets {

/// What was done with a frame, and why. Forwarder's comment has the rules.
enum class Verdict : Kiv::U8 {
  // Forwarded.
  Rewritten,  ///< a row matched
  NoMac,      ///< a row matched that has the all-zero MAC: the frame keeps its own
  NoRow,      ///< IPv4, and no row matched
  Arp,        ///< not looked up, as the next ones
  Ipv6,
  OtherProtocol,  ///< neither of these; also 802.3 frames with a length
  DoubleTagged,
  // Dropped.
  TooShort,
  Truncated,
  TooLong,
  ReservedVlan,
  BadIpv4Header,
  Ipv4CutShort,
  BadIpv4Checksum,
  LinkLocal,  ///< multicast that does not leave its link
};

inline constexpr size_t kVerdicts = 15;

constexpr bool isForwarded(Verdict verdict) {
  return verdict < Verdict::TooShort;
}

/// Short words for a table or a JSON key: "rewritten", "too short".
std::string_view text(Verdict verdict);

}  // namespace Host::Packets
