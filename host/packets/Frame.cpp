// SPDX-License-Identifier: Apache-2.0
#include "host/packets/Frame.h"

#include <cstring>

namespace Host::Packets {

namespace {

using Kiv::U32;
using Kiv::U64;
using Kiv::U8;

constexpr size_t kIpv6HeaderSize = 40;
constexpr size_t kIpv6NextHeaderAt = 6;
constexpr size_t kIpv6AddressesAt = 8;

class Mixer {
 public:
  void add(U64 value) {
    state_ = (state_ ^ value) * 0x9E3779B97F4A7C15u;
    state_ ^= state_ >> 32;
  }
  void add(Bytes bytes) {
    for (; bytes.size() >= sizeof(U64); bytes = bytes.subspan(sizeof(U64))) add(wordOf(bytes));
    if (!bytes.empty()) add(wordOf(bytes));
  }
  U32 result() const {
    U64 const mixed = state_ * 0xBF58476D1CE4E5B9u;
    return static_cast<U32>(mixed >> 32);
  }

 private:
  // Byte by byte, so that the hash is the same on every machine.
  static U64 wordOf(Bytes bytes) {
    U64 word = 0;
    for (U8 const byte : bytes.first(std::min(bytes.size(), sizeof(U64)))) word = word << 8 | byte;
    return word;
  }

  U64 state_ = 0x8A91A6D40BF42040u;
};

void addPorts(Mixer& mixer, U8 protocol, Bytes payload) {
  if (protocol != IpProtocol::kTcp && protocol != IpProtocol::kUdp) return;
  if (payload.size() >= 4) mixer.add(load32(payload, 0));
}

}  // namespace

std::optional<Frame> readFrame(Bytes bytes) {
  std::optional<EthernetHeader> const ethernet = EthernetHeader::read(bytes);
  if (!ethernet) return std::nullopt;
  Frame frame;
  frame.ethernet = *ethernet;
  frame.etherType = ethernet->etherType;
  frame.payloadAt = EthernetHeader::kSize;
  if (EtherType::isTag(frame.etherType)) {
    frame.tag = VlanTag::read(bytes.subspan(frame.payloadAt));
    if (!frame.tag) return std::nullopt;
    frame.etherType = frame.tag->etherType;
    frame.payloadAt += VlanTag::kSize;
    frame.doubleTagged = EtherType::isTag(frame.etherType);
  }
  if (frame.etherType == EtherType::kIpv4) {
    frame.ipv4 = Ipv4Header::read(bytes.subspan(frame.payloadAt));
  }
  return frame;
}

U32 flowHash(Frame const& frame, Bytes bytes) {
  Mixer mixer;
  mixer.add(bytes.first(2 * sizeof(MacBytes)));
  mixer.add(frame.etherType);
  Bytes const payload = bytes.subspan(frame.payloadAt);
  if (frame.ipv4) {
    mixer.add(payload.subspan(12, 8));
    mixer.add(frame.ipv4->protocol);
    if (!frame.ipv4->isFragment() && frame.ipv4->headerLength() <= payload.size()) {
      addPorts(mixer, frame.ipv4->protocol, payload.subspan(frame.ipv4->headerLength()));
    }
  } else if (frame.etherType == EtherType::kIpv6 && payload.size() >= kIpv6HeaderSize) {
    U8 const protocol = payload[kIpv6NextHeaderAt];
    mixer.add(payload.subspan(kIpv6AddressesAt, 32));
    mixer.add(protocol);
    addPorts(mixer, protocol, payload.subspan(kIpv6HeaderSize));
  }
  return mixer.result();
}

}  // namespace Host::Packets
