// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "chip/ChipModel.h"
#include "framework/core/Types.h"
#include "host/packets/Frame.h"
#include "host/packets/Verdict.h"
#include "host/packets/VxlanTunnel.h"
#include "host/packets/Wire.h"

namespace Host::Packets {

struct ForwarderConfig {
  static constexpr size_t kJumboFrame = 9'216;

  /// The VLAN of frames without a tag, and of those whose tag carries a priority only.
  Kiv::U16 accessVlan = 1;
  /// The longest frame that is forwarded, in bytes, Ethernet header and tags included.
  size_t maxFrame = kJumboFrame;
  /// Forwards a frame of which the capture kept a part by the headers that it kept, instead of
  /// dropping it. Lengths are those on the wire; a frame whose headers are cut is still dropped.
  bool judgeTruncated = false;
  /// Takes the tag off a frame before it is encapsulated, as RFC 7348 has it; of two, the outer
  /// one.
  bool stripTag = false;
  /// Gives the outer header the DSCP and the ECN of the packet within, as RFC 6040 has it.
  bool carryTypeOfService = false;
  /// Drops multicast that does not leave its link: to the MACs 01:80:c2:00:00:00 to :0f, and IPv4
  /// to 224.0.0.0/24. Neighbour discovery of IPv6, which a VXLAN has to carry, is none of it.
  bool dropLinkLocal = false;
  TunnelConfig tunnel;
};

/// What happened to one frame.
struct ForwardedFrame {
  Kiv::U64 number = 0;  ///< 1 for the first one given to the forwarder
  Verdict verdict = Verdict::TooShort;
  /// The forwarding VLAN; none when the frame ends before it is known, or names no VLAN.
  std::optional<Kiv::U16> vlan;
  /// The source address of an IPv4 packet, as in the packet; none for every other frame.
  std::optional<AddressBytes> source;
  /// The source MAC of the frame as it came, unless it ends before it; and, when it is forwarded,
  /// as it left.
  std::optional<MacBytes> macBefore;
  std::optional<MacBytes> macAfter;
  /// What leaves; empty when the frame is dropped. Valid until the next frame.
  Bytes packet;
  /// The length of what leaves on the wire; more than `packet` has when the capture cut the frame.
  size_t packetWireLength = 0;
};

struct ForwardTotals {
  Kiv::U64 frames = 0;
  Kiv::U64 bytesIn = 0;   ///< captured
  Kiv::U64 bytesOut = 0;  ///< of what was captured, with the outer headers
  std::array<Kiv::U64, kVerdicts> byVerdict{};
  // Counted beside the verdict, of forwarded frames.
  Kiv::U64 tagged = 0;          ///< one tag or more, priority tags included
  Kiv::U64 priorityTagged = 0;  ///< VLAN 0
  Kiv::U64 fragments = 0;
  Kiv::U64 withOptions = 0;
  Kiv::U64 jumbo = 0;  ///< more than 1500 bytes after Ethernet header and outer tag

  Kiv::U64 of(Verdict verdict) const { return byVerdict[static_cast<size_t>(verdict)]; }
  Kiv::U64 forwarded() const;
  Kiv::U64 dropped() const { return frames - forwarded(); }

  friend bool operator==(ForwardTotals const&, ForwardTotals const&) = default;
};

/// Sends frames over the overlay the way the chip does: looks up IPv4 frames by forwarding VLAN and
/// source address, both as in the packet, gives those that hit a row the row's source MAC, and
/// encapsulates. The inner frame, its tag included, stays as it came except for that MAC.
///
/// The rules, of which the first that applies decides:
///
///   the frame                                                   is
///   was longer than what the capture kept of it                 dropped: Truncated (see
///                                                               ForwarderConfig::judgeTruncated)
///   ends inside its Ethernet header or its tag                  dropped: TooShort
///   is longer than maxFrame                                     dropped: TooLong
///   has VLAN 4095                                               dropped: ReservedVlan
///   is link-local multicast                                     dropped: LinkLocal (see
///                                                               ForwarderConfig::dropLinkLocal)
///   has a second tag (0x8100 or 0x88a8 after such a tag)        forwarded: DoubleTagged; in the
///                                                               VLAN of the outer tag, no look-up
///   is ARP, IPv6, anything other than IPv4                      forwarded, no look-up
///   IPv4: ends inside the header, has another version, a        dropped: BadIpv4Header
///     header of fewer than 20 bytes, a total length below it
///   IPv4: ends before its total length                          dropped: Ipv4CutShort
///   IPv4: has a wrong header checksum                           dropped: BadIpv4Checksum
///   IPv4: any other; also fragments, each by itself, options,   forwarded: Rewritten, NoMac,
///     any time to live, and padding after the packet              or NoRow
///
/// The forwarding VLAN is that of the tag (a service tag counts as well), or the access VLAN
/// without a tag or with VLAN 0. Jumbo frames are forwarded up to maxFrame.
///
/// The chip must outlive the forwarder. No allocation per frame.
class Forwarder {
 public:
  /// Throws Kiv::RangeException when the access VLAN is not 1 to 4094, the longest frame is not
  /// 14 to VxlanTunnel::kMaxInner bytes, or the tunnel's VNI base is too high.
  explicit Forwarder(BfnChip::ChipModel& chip, ForwarderConfig const& config = {});

  ForwarderConfig const& config() const { return config_; }
  ForwardTotals const& totals() const { return totals_; }

  /// Forwards one frame, of which `bytes` were captured; it had `wireLength` bytes when it was
  /// sent.
  ForwardedFrame forward(Bytes bytes, size_t wireLength);
  ForwardedFrame forward(Bytes bytes) { return forward(bytes, bytes.size()); }

 private:
  ForwardedFrame judge(std::optional<Frame> const& frame, Bytes bytes, size_t wireLength);
  void send(Frame const& frame, Bytes bytes, size_t wireLength, ForwardedFrame& result);
  void countKinds(Frame const& frame, size_t wireLength);

  BfnChip::ChipModel& chip_;
  ForwarderConfig const config_;
  VxlanTunnel const tunnel_;
  /// The packet that leaves; as long as the longest one.
  std::vector<Kiv::U8> packet_;
  ForwardTotals totals_;
};

}  // namespace Host::Packets
