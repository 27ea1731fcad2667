// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>

#include "framework/core/Types.h"
#include "host/packets/Headers.h"
#include "host/packets/Wire.h"

namespace Host::Packets {

/// What a frame's headers say, as far as forwarding needs them. Holds no reference to the bytes.
struct Frame {
  EthernetHeader ethernet;
  /// The outer tag, if any. Its EtherType is the one that counts from there on.
  std::optional<VlanTag> tag;
  /// Another tag follows the first; nothing after it is read.
  bool doubleTagged = false;
  /// Of what follows the Ethernet header and its tags.
  Kiv::U16 etherType = 0;
  size_t payloadAt = 0;
  /// There is an IPv4 header when the EtherType says so, the frame has one tag at most and 20
  /// bytes are there.
  std::optional<Ipv4Header> ipv4;
};

/// Reads the frame from its first byte on; nothing when it ends inside its Ethernet header or tag.
/// Any bytes may be given.
std::optional<Frame> readFrame(Bytes bytes);

/// A hash of the flow that the frame belongs to: the same for every frame with the same MACs,
/// EtherType, IP addresses, protocol, and TCP or UDP ports. Fragments go without ports, so that all
/// of a datagram have one hash. The VLAN is no part of it.
Kiv::U32 flowHash(Frame const& frame, Bytes bytes);

}  // namespace Host::Packets
