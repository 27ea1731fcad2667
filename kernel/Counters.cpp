// SPDX-License-Identifier: Apache-2.0
#include "kernel/Counters.h"

#include <numeric>

namespace BfnKernel {

using Kiv::U64;

U64 FrameCounters::matched() const {
  return of(MAC_REWRITE_REWRITTEN) + of(MAC_REWRITE_NO_MAC) + of(MAC_REWRITE_NO_MEMORY);
}

U64 FrameCounters::frames() const {
  return std::accumulate(byVerdict.begin(), byVerdict.end(), U64{0});
}

std::string_view text(mac_rewrite_verdict verdict) {
  switch (verdict) {
    case MAC_REWRITE_REWRITTEN:
      return "rewritten";
    case MAC_REWRITE_NO_MAC:
      return "no MAC configured";
    case MAC_REWRITE_NO_ROW:
      return "no row";
    case MAC_REWRITE_NO_VLAN:
      return "no VLAN";
    case MAC_REWRITE_ARP:
      return "ARP";
    case MAC_REWRITE_IPV6:
      return "IPv6";
    case MAC_REWRITE_OTHER_PROTOCOL:
      return "other protocol";
    case MAC_REWRITE_DOUBLE_TAGGED:
      return "double-tagged";
    case MAC_REWRITE_TOO_SHORT:
      return "too short";
    case MAC_REWRITE_RESERVED_VLAN:
      return "reserved VLAN";
    case MAC_REWRITE_BAD_IPV4_HEADER:
      return "bad IPv4 header";
    case MAC_REWRITE_IPV4_CUT_SHORT:
      return "IPv4 cut short";
    case MAC_REWRITE_BAD_IPV4_CHECKSUM:
      return "bad IPv4 checksum";
    case MAC_REWRITE_NO_MEMORY:
      return "no memory";
    case MAC_REWRITE_VERDICTS:
      break;
  }
  return "unknown";
}

}  // namespace BfnKernel
