// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "framework/core/Types.h"
#include "host/packets/Headers.h"
#include "host/packets/Wire.h"

namespace Host::Packets {

/// The two ends of a tunnel as its outer headers name them. The defaults lie in ranges kept for
/// documentation and for local use.
struct TunnelConfig {
  MacBytes sourceMac{0x02, 0x00, 0x5e, 0x00, 0x00, 0x01};
  MacBytes destinationMac{0x02, 0x00, 0x5e, 0x00, 0x00, 0x02};
  AddressBytes source{192, 0, 2, 1};
  AddressBytes destination{192, 0, 2, 2};
  /// The VNI of a VLAN is this plus the VLAN: VLAN 100 travels in VNI 10100.
  Kiv::U32 vniBase = 10'000;
  /// Whether the outer UDP checksum is computed. Off, it is 0: none, as RFC 7348 has it.
  bool udpChecksum = true;
  /// Of the outer IPv4 header.
  Kiv::U8 timeToLive = 64;
};

/// Puts frames into VXLAN packets: outer Ethernet, IPv4 (no fragmenting, identification 0), UDP to
/// port 4789, VXLAN.
///
/// The outer source port comes from the flow's hash, in 49152..65535, so that the underlay spreads
/// flows and keeps the order inside each. Costs no allocation.
class VxlanTunnel {
 public:
  static constexpr size_t kOverhead =
      EthernetHeader::kSize + Ipv4Header::kSize + UdpHeader::kSize + VxlanHeader::kSize;
  /// The longest frame that an outer IPv4 packet has room for, in bytes.
  static constexpr size_t kMaxInner =
      0xffff - (Ipv4Header::kSize + UdpHeader::kSize + VxlanHeader::kSize);
  static constexpr Kiv::U16 kFirstSourcePort = 49'152;

  /// Throws Kiv::RangeException when VLAN 4094 would have a VNI of more than 24 bits.
  explicit VxlanTunnel(TunnelConfig const& config = {});

  TunnelConfig const& config() const { return config_; }
  Kiv::U32 vni(Kiv::U16 vlan) const { return config_.vniBase + vlan; }

  /// Writes the outer headers into the first kOverhead bytes of `packet`; what follows them is the
  /// inner frame, of 1 to kMaxInner bytes, which stays as it is. `innerLength` is the length of the
  /// inner frame on the wire: more than is there when a capture cut it, and then the packet has no
  /// UDP checksum. `typeOfService`: DSCP and ECN of the outer IPv4 header.
  void encapsulate(Kiv::U16 vlan, Kiv::U32 flowHash, MutableBytes packet, size_t innerLength,
                   Kiv::U8 typeOfService = 0) const;
  void encapsulate(Kiv::U16 vlan, Kiv::U32 flowHash, MutableBytes packet) const {
    encapsulate(vlan, flowHash, packet, packet.size() - kOverhead);
  }

 private:
  TunnelConfig config_;
  /// The outer headers without what differs from packet to packet.
  std::array<Kiv::U8, kOverhead> headers_{};
};

/// The parts of a VXLAN packet.
struct VxlanPacket {
  EthernetHeader ethernet;
  Ipv4Header ipv4;
  UdpHeader udp;
  VxlanHeader vxlan;
  /// Part of the bytes that were read.
  Bytes inner;
};

/// Reads a whole VXLAN packet; nothing when it is none, its lengths do not fit each other, or a
/// checksum is wrong.
std::optional<VxlanPacket> readVxlan(Bytes bytes);

}  // namespace Host::Packets
