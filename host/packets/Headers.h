// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>

#include "framework/core/Types.h"
#include "host/packets/Wire.h"

namespace Host::Packets {

// The headers that the lab's ports read and build. A codec of our own, because the Debian libraries
// for this know no VXLAN header, or make an object for each header of each packet, which is too
// slow for a million frames a second.
//
// Each header has `read`, which gives nothing when the bytes are too few for it and checks nothing
// else, and `write`, into at least `kSize` bytes. Fields are plain numbers.

namespace EtherType {
inline constexpr Kiv::U16 kIpv4 = 0x0800;
inline constexpr Kiv::U16 kArp = 0x0806;
inline constexpr Kiv::U16 kVlan = 0x8100;  ///< customer tag
inline constexpr Kiv::U16 kIpv6 = 0x86dd;
inline constexpr Kiv::U16 kServiceVlan = 0x88a8;  ///< service tag

constexpr bool isTag(Kiv::U16 type) {
  return type == kVlan || type == kServiceVlan;
}
}  // namespace EtherType

namespace IpProtocol {
inline constexpr Kiv::U8 kTcp = 6;
inline constexpr Kiv::U8 kUdp = 17;
}  // namespace IpProtocol

struct EthernetHeader {
  static constexpr size_t kSize = 14;
  static constexpr size_t kSourceAt = 6;

  MacBytes destination{};
  MacBytes source{};
  /// Type, or length when below 0x600.
  Kiv::U16 etherType = 0;

  static std::optional<EthernetHeader> read(Bytes bytes);
  void write(MutableBytes bytes) const;
  friend bool operator==(EthernetHeader const&, EthernetHeader const&) = default;
};

/// What follows a tag's own EtherType: the tag, and the type of what it tags.
struct VlanTag {
  static constexpr size_t kSize = 4;

  Kiv::U8 priority = 0;  ///< 0 to 7
  bool dropEligible = false;
  Kiv::U16 vlan = 0;  ///< 0 (priority only) to 4095 (reserved)
  Kiv::U16 etherType = 0;

  static std::optional<VlanTag> read(Bytes bytes);
  void write(MutableBytes bytes) const;
  friend bool operator==(VlanTag const&, VlanTag const&) = default;
};

/// An IPv4 header without its options.
struct Ipv4Header {
  static constexpr size_t kSize = 20;
  static constexpr size_t kChecksumAt = 10;
  static constexpr Kiv::U16 kDontFragment = 0x4000;
  static constexpr Kiv::U16 kMoreFragments = 0x2000;
  static constexpr Kiv::U16 kOffsetMask = 0x1fff;

  Kiv::U8 version = 4;
  Kiv::U8 headerWords = 5;  ///< of four bytes, options included
  Kiv::U8 typeOfService = 0;
  Kiv::U16 totalLength = 0;  ///< header and payload, in bytes
  Kiv::U16 identification = 0;
  Kiv::U16 flagsAndOffset = 0;
  Kiv::U8 timeToLive = 64;
  Kiv::U8 protocol = 0;
  Kiv::U16 checksum = 0;
  AddressBytes source{};
  AddressBytes destination{};

  size_t headerLength() const { return size_t{4} * headerWords; }
  bool hasOptions() const { return headerWords > 5; }
  bool isFragment() const { return (flagsAndOffset & (kMoreFragments | kOffsetMask)) != 0; }

  static std::optional<Ipv4Header> read(Bytes bytes);
  /// Writes the given checksum; ipv4ChecksumIs computes it.
  void write(MutableBytes bytes) const;
  friend bool operator==(Ipv4Header const&, Ipv4Header const&) = default;
};

/// What is wrong with an IPv4 packet.
enum class Ipv4Fault : Kiv::U8 {
  None,
  Header,       ///< cut, not version 4, or lengths that contradict each other
  CutShort,     ///< it says that it is longer than the frame that carries it
  Checksum,     ///< of the header
  NotCaptured,  ///< its options were sent, and are not in the bytes
};

/// Judges the IPv4 packet at the start of `bytes`, whose header was read from there, and which was
/// followed by the frame's end after `wireLength` bytes: more than there are when a capture cut it.
/// Bytes after its total length are padding of the frame.
Ipv4Fault ipv4Fault(Ipv4Header const& header, Bytes bytes, size_t wireLength);
inline Ipv4Fault ipv4Fault(Ipv4Header const& header, Bytes bytes) {
  return ipv4Fault(header, bytes, bytes.size());
}

/// Stores the right checksum in the IPv4 header (with its options) that starts at `bytes`.
void ipv4ChecksumIs(MutableBytes bytes);

struct UdpHeader {
  static constexpr size_t kSize = 8;
  static constexpr size_t kChecksumAt = 6;

  Kiv::U16 sourcePort = 0;
  Kiv::U16 destinationPort = 0;
  Kiv::U16 length = 0;    ///< header and payload, in bytes
  Kiv::U16 checksum = 0;  ///< 0 when there is none

  static std::optional<UdpHeader> read(Bytes bytes);
  void write(MutableBytes bytes) const;
  friend bool operator==(UdpHeader const&, UdpHeader const&) = default;
};

/// The checksum of the UDP datagram that `bytes` is, sent between these addresses: to be stored
/// when the checksum field is zero (a sum of zero is stored as 0xffff), 0xffff when it is right.
Kiv::U16 udpChecksum(AddressBytes const& source, AddressBytes const& destination, Bytes bytes);

struct VxlanHeader {
  static constexpr size_t kSize = 8;
  static constexpr Kiv::U16 kPort = 4789;
  static constexpr Kiv::U32 kMaxVni = 0xff'ffff;
  static constexpr Kiv::U8 kHasVni = 0x08;

  Kiv::U8 flags = kHasVni;
  Kiv::U32 vni = 0;  ///< 24 bits

  static std::optional<VxlanHeader> read(Bytes bytes);
  void write(MutableBytes bytes) const;
  friend bool operator==(VxlanHeader const&, VxlanHeader const&) = default;
};

}  // namespace Host::Packets
