// SPDX-License-Identifier: Apache-2.0
#include "host/packets/Forwarder.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "framework/core/Exceptions.h"

namespace Host::Packets {

namespace {

using Kiv::U16;
using Kiv::U64;

constexpr U16 kReservedVlan = 4095;
constexpr size_t kLargestPayload = 1500;

ForwarderConfig const& checked(ForwarderConfig const& config) {
  if (config.accessVlan < 1 || config.accessVlan >= kReservedVlan) {
    Kiv::throwRangeException("ForwarderConfig::accessVlan < 1 or > 4094 not allowed");
  }
  if (config.maxFrame < EthernetHeader::kSize || config.maxFrame > VxlanTunnel::kMaxInner) {
    Kiv::throwRangeException("ForwarderConfig::maxFrame < 14 or > 65499 not allowed");
  }
  return config;
}

Verdict verdictOf(Ipv4Fault fault) {
  switch (fault) {
    case Ipv4Fault::None:
      return Verdict::NoRow;
    case Ipv4Fault::CutShort:
      return Verdict::Ipv4CutShort;
    case Ipv4Fault::Checksum:
      return Verdict::BadIpv4Checksum;
    case Ipv4Fault::NotCaptured:
      return Verdict::Truncated;
    case Ipv4Fault::Header:
      break;
  }
  return Verdict::BadIpv4Header;
}

// NoRow for an IPv4 packet that may be looked up.
Verdict verdictByProtocol(Frame const& frame, Bytes bytes, size_t wireLength) {
  if (frame.doubleTagged) return Verdict::DoubleTagged;
  switch (frame.etherType) {
    case EtherType::kIpv4:
      if (!frame.ipv4) {
        return frame.payloadAt + Ipv4Header::kSize <= wireLength ? Verdict::Truncated
                                                                 : Verdict::BadIpv4Header;
      }
      return verdictOf(
          ipv4Fault(*frame.ipv4, bytes.subspan(frame.payloadAt), wireLength - frame.payloadAt));
    case EtherType::kArp:
      return Verdict::Arp;
    case EtherType::kIpv6:
      return Verdict::Ipv6;
    default:
      return Verdict::OtherProtocol;
  }
}

bool isLinkLocal(Frame const& frame) {
  constexpr MacBytes kReserved{0x01, 0x80, 0xc2, 0x00, 0x00, 0x00};
  MacBytes block = frame.ethernet.destination;
  block[5] &= 0xf0;
  if (block == kReserved) return true;
  if (!frame.ipv4) return false;
  AddressBytes const& to = frame.ipv4->destination;
  return to[0] == 224 && to[1] == 0 && to[2] == 0;
}

// DSCP and ECN of the packet in a frame; 0 where there are none.
Kiv::U8 typeOfServiceOf(Frame const& frame, Bytes bytes) {
  if (frame.doubleTagged) return 0;
  if (frame.ipv4) return frame.ipv4->typeOfService;
  bool const ipv6 = frame.etherType == EtherType::kIpv6 && bytes.size() >= frame.payloadAt + 2;
  return ipv6 ? static_cast<Kiv::U8>(load16(bytes, frame.payloadAt) >> 4 & 0xff) : Kiv::U8{0};
}

}  // namespace

U64 ForwardTotals::forwarded() const {
  return std::accumulate(byVerdict.begin(), byVerdict.begin() + static_cast<int>(Verdict::TooShort),
                         U64{0});
}

Forwarder::Forwarder(BfnChip::ChipModel& chip, ForwarderConfig const& config)
    : chip_(chip),
      config_(checked(config)),
      tunnel_(config.tunnel),
      packet_(VxlanTunnel::kOverhead + config.maxFrame) {}

ForwardedFrame Forwarder::forward(Bytes bytes, size_t wireLength) {
  // A broken capture may say that it kept more than was sent.
  wireLength = std::max(wireLength, bytes.size());
  std::optional<Frame> const frame = readFrame(bytes);
  ForwardedFrame result = judge(frame, bytes, wireLength);
  result.number = ++totals_.frames;
  totals_.bytesIn += bytes.size();
  if (isForwarded(result.verdict)) send(*frame, bytes, wireLength, result);
  ++totals_.byVerdict[static_cast<size_t>(result.verdict)];
  return result;
}

ForwardedFrame Forwarder::judge(std::optional<Frame> const& frame, Bytes bytes, size_t wireLength) {
  ForwardedFrame result;
  if (bytes.size() >= EthernetHeader::kSize) {
    result.macBefore = loadBytes<6>(bytes, EthernetHeader::kSourceAt);
  }
  if (frame) {
    U16 const tagged = frame->tag ? frame->tag->vlan : U16{0};
    if (tagged != kReservedVlan) result.vlan = tagged == 0 ? config_.accessVlan : tagged;
    if (frame->ipv4) result.source = frame->ipv4->source;
  }

  bool const truncated = bytes.size() < wireLength;
  if (truncated && (!config_.judgeTruncated || !frame)) {
    result.verdict = Verdict::Truncated;
  } else if (!frame) {
    result.verdict = Verdict::TooShort;
  } else if (wireLength > config_.maxFrame) {
    result.verdict = Verdict::TooLong;
  } else if (!result.vlan) {
    result.verdict = Verdict::ReservedVlan;
  } else if (config_.dropLinkLocal && isLinkLocal(*frame)) {
    result.verdict = Verdict::LinkLocal;
  } else {
    result.verdict = verdictByProtocol(*frame, bytes, wireLength);
  }
  return result;
}

void Forwarder::send(Frame const& frame, Bytes bytes, size_t wireLength, ForwardedFrame& result) {
  // A tag is between the MACs and the type of what it tags.
  constexpr size_t kMacs = 2 * sizeof(MacBytes);
  size_t const stripped = config_.stripTag && frame.tag ? VlanTag::kSize : 0;
  size_t const length = bytes.size() - stripped;
  MutableBytes const packet = MutableBytes(packet_).first(VxlanTunnel::kOverhead + length);
  MutableBytes const inner = packet.subspan(VxlanTunnel::kOverhead);
  std::memcpy(inner.data(), bytes.data(), kMacs);
  std::memcpy(inner.data() + kMacs, bytes.data() + kMacs + stripped, length - kMacs);

  result.macAfter = result.macBefore;
  if (result.verdict == Verdict::NoRow) {
    std::optional<MacBytes> const mac = chip_.lookup(*result.vlan, *result.source);
    if (mac == MacBytes{}) {
      result.verdict = Verdict::NoMac;
    } else if (mac) {
      storeBytes(inner, EthernetHeader::kSourceAt, *mac);
      result.macAfter = mac;
      result.verdict = Verdict::Rewritten;
    }
  }
  // Of the frame as it came: a flow keeps its path when a row for it comes or goes.
  tunnel_.encapsulate(*result.vlan, flowHash(frame, bytes), packet, wireLength - stripped,
                      config_.carryTypeOfService ? typeOfServiceOf(frame, bytes) : Kiv::U8{0});
  result.packet = packet;
  result.packetWireLength = VxlanTunnel::kOverhead + wireLength - stripped;
  totals_.bytesOut += packet.size();
  countKinds(frame, wireLength);
}

void Forwarder::countKinds(Frame const& frame, size_t wireLength) {
  if (frame.tag) {
    ++totals_.tagged;
    if (frame.tag->vlan == 0) ++totals_.priorityTagged;
  }
  if (frame.ipv4) {
    if (frame.ipv4->isFragment()) ++totals_.fragments;
    if (frame.ipv4->hasOptions()) ++totals_.withOptions;
  }
  if (wireLength - frame.payloadAt > kLargestPayload) ++totals_.jumbo;
}

}  // namespace Host::Packets
