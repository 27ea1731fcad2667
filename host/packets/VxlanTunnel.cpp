// SPDX-License-Identifier: Apache-2.0
#include "host/packets/VxlanTunnel.h"

#include <algorithm>

#include "framework/core/Exceptions.h"
#include "framework/core/Fatal.h"

namespace Host::Packets {

namespace {

using Kiv::U16;
using Kiv::U32;

constexpr U16 kMaxVlan = 4094;
constexpr size_t kIpv4At = EthernetHeader::kSize;
constexpr size_t kUdpAt = kIpv4At + Ipv4Header::kSize;
constexpr size_t kVxlanAt = kUdpAt + UdpHeader::kSize;

}  // namespace

VxlanTunnel::VxlanTunnel(TunnelConfig const& config) : config_(config) {
  if (config.vniBase > VxlanHeader::kMaxVni - kMaxVlan) {
    Kiv::throwRangeException("TunnelConfig::vniBase > 16773121 not allowed");
  }
  MutableBytes const headers(headers_);
  EthernetHeader{config.destinationMac, config.sourceMac, EtherType::kIpv4}.write(headers);
  Ipv4Header ipv4;
  ipv4.flagsAndOffset = Ipv4Header::kDontFragment;
  ipv4.timeToLive = config.timeToLive;
  ipv4.protocol = IpProtocol::kUdp;
  ipv4.source = config.source;
  ipv4.destination = config.destination;
  ipv4.write(headers.subspan(kIpv4At));
  UdpHeader{0, VxlanHeader::kPort, 0, 0}.write(headers.subspan(kUdpAt));
}

void VxlanTunnel::encapsulate(U16 vlan, U32 flowHash, MutableBytes packet, size_t innerLength,
                              Kiv::U8 typeOfService) const {
  KIV_CHECK(packet.size() > kOverhead && packet.size() - kOverhead <= innerLength &&
                innerLength <= kMaxInner,
            packet.size(), " ", innerLength);
  std::ranges::copy(headers_, packet.begin());

  MutableBytes const ipv4 = packet.subspan(kIpv4At);
  ipv4[1] = typeOfService;
  store16(ipv4, 2, static_cast<U16>(kOverhead - kIpv4At + innerLength));
  ipv4ChecksumIs(ipv4);

  VxlanHeader{VxlanHeader::kHasVni, vni(vlan)}.write(packet.subspan(kVxlanAt));
  MutableBytes const udp = packet.subspan(kUdpAt);
  static_assert(kFirstSourcePort == 0xc000);
  store16(udp, 0, static_cast<U16>(kFirstSourcePort | (flowHash & 0x3fff)));
  store16(udp, 4, static_cast<U16>(kOverhead - kUdpAt + innerLength));
  if (config_.udpChecksum && packet.size() == kOverhead + innerLength) {
    store16(udp, UdpHeader::kChecksumAt, udpChecksum(config_.source, config_.destination, udp));
  }
}

std::optional<VxlanPacket> readVxlan(Bytes bytes) {
  auto const ethernet = EthernetHeader::read(bytes);
  if (!ethernet || ethernet->etherType != EtherType::kIpv4) return std::nullopt;
  bytes = bytes.subspan(EthernetHeader::kSize);
  auto const ipv4 = Ipv4Header::read(bytes);
  if (!ipv4 || ipv4Fault(*ipv4, bytes) != Ipv4Fault::None) return std::nullopt;
  if (ipv4->protocol != IpProtocol::kUdp || ipv4->isFragment()) return std::nullopt;
  bytes = bytes.first(ipv4->totalLength).subspan(ipv4->headerLength());
  auto const udp = UdpHeader::read(bytes);
  if (!udp || udp->length != bytes.size() || udp->destinationPort != VxlanHeader::kPort) {
    return std::nullopt;
  }
  if (udp->checksum != 0 && udpChecksum(ipv4->source, ipv4->destination, bytes) != 0xffff) {
    return std::nullopt;
  }
  bytes = bytes.subspan(UdpHeader::kSize);
  auto const vxlan = VxlanHeader::read(bytes);
  if (!vxlan || (vxlan->flags & VxlanHeader::kHasVni) == 0) return std::nullopt;
  return VxlanPacket{*ethernet, *ipv4, *udp, *vxlan, bytes.subspan(VxlanHeader::kSize)};
}

}  // namespace Host::Packets
