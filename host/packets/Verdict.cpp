// SPDX-License-Identifier: Apache-2.0
#include "host/packets/Verdict.h"

namespace Host::Packets {

std::string_view text(Verdict verdict) {
  switch (verdict) {
    case Verdict::Rewritten:
      return "rewritten";
    case Verdict::NoMac:
      return "no MAC configured";
    case Verdict::NoRow:
      return "no row";
    case Verdict::Arp:
      return "ARP";
    case Verdict::Ipv6:
      return "IPv6";
    case Verdict::OtherProtocol:
      return "other protocol";
    case Verdict::DoubleTagged:
      return "double-tagged";
    case Verdict::TooShort:
      return "too short";
    case Verdict::Truncated:
      return "truncated";
    case Verdict::TooLong:
      return "too long";
    case Verdict::ReservedVlan:
      return "reserved VLAN";
    case Verdict::BadIpv4Header:
      return "bad IPv4 header";
    case Verdict::Ipv4CutShort:
      return "IPv4 cut short";
    case Verdict::BadIpv4Checksum:
      return "bad IPv4 checksum";
    case Verdict::LinkLocal:
      return "link-local multicast";
  }
  return "unknown";
}

}  // namespace Host::Packets
