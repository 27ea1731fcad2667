// SPDX-License-Identifier: Apache-2.0
#include "host/packets/Headers.h"

#include "host/packets/Checksum.h"

namespace Host::Packets {

using Kiv::U16;
using Kiv::U32;
using Kiv::U8;

std::optional<EthernetHeader> EthernetHeader::read(Bytes bytes) {
  if (bytes.size() < kSize) return std::nullopt;
  return EthernetHeader{loadBytes<6>(bytes, 0), loadBytes<6>(bytes, kSourceAt), load16(bytes, 12)};
}

void EthernetHeader::write(MutableBytes bytes) const {
  storeBytes(bytes, 0, destination);
  storeBytes(bytes, kSourceAt, source);
  store16(bytes, 12, etherType);
}

std::optional<VlanTag> VlanTag::read(Bytes bytes) {
  if (bytes.size() < kSize) return std::nullopt;
  U16 const control = load16(bytes, 0);
  return VlanTag{static_cast<U8>(control >> 13), (control & 0x1000) != 0,
                 static_cast<U16>(control & 0xfff), load16(bytes, 2)};
}

void VlanTag::write(MutableBytes bytes) const {
  store16(bytes, 0,
          static_cast<U16>((priority & 7) << 13 | (dropEligible ? 0x1000 : 0) | (vlan & 0xfff)));
  store16(bytes, 2, etherType);
}

std::optional<Ipv4Header> Ipv4Header::read(Bytes bytes) {
  if (bytes.size() < kSize) return std::nullopt;
  Ipv4Header header;
  header.version = bytes[0] >> 4;
  header.headerWords = bytes[0] & 0xf;
  header.typeOfService = bytes[1];
  header.totalLength = load16(bytes, 2);
  header.identification = load16(bytes, 4);
  header.flagsAndOffset = load16(bytes, 6);
  header.timeToLive = bytes[8];
  header.protocol = bytes[9];
  header.checksum = load16(bytes, kChecksumAt);
  header.source = loadBytes<4>(bytes, 12);
  header.destination = loadBytes<4>(bytes, 16);
  return header;
}

void Ipv4Header::write(MutableBytes bytes) const {
  bytes[0] = static_cast<U8>(version << 4 | (headerWords & 0xf));
  bytes[1] = typeOfService;
  store16(bytes, 2, totalLength);
  store16(bytes, 4, identification);
  store16(bytes, 6, flagsAndOffset);
  bytes[8] = timeToLive;
  bytes[9] = protocol;
  store16(bytes, kChecksumAt, checksum);
  storeBytes(bytes, 12, source);
  storeBytes(bytes, 16, destination);
}

Ipv4Fault ipv4Fault(Ipv4Header const& header, Bytes bytes, size_t wireLength) {
  size_t const length = header.headerLength();
  if (header.version != 4 || length < Ipv4Header::kSize || length > wireLength ||
      header.totalLength < length) {
    return Ipv4Fault::Header;
  }
  if (header.totalLength > wireLength) return Ipv4Fault::CutShort;
  if (length > bytes.size()) return Ipv4Fault::NotCaptured;
  if (InternetChecksum().add(bytes.first(length)).value() != 0) return Ipv4Fault::Checksum;
  return Ipv4Fault::None;
}

void ipv4ChecksumIs(MutableBytes bytes) {
  size_t const length = size_t{4} * (bytes[0] & 0xf);
  store16(bytes, Ipv4Header::kChecksumAt, 0);
  store16(bytes, Ipv4Header::kChecksumAt, InternetChecksum().add(bytes.first(length)).value());
}

std::optional<UdpHeader> UdpHeader::read(Bytes bytes) {
  if (bytes.size() < kSize) return std::nullopt;
  return UdpHeader{load16(bytes, 0), load16(bytes, 2), load16(bytes, 4),
                   load16(bytes, kChecksumAt)};
}

void UdpHeader::write(MutableBytes bytes) const {
  store16(bytes, 0, sourcePort);
  store16(bytes, 2, destinationPort);
  store16(bytes, 4, length);
  store16(bytes, kChecksumAt, checksum);
}

U16 udpChecksum(AddressBytes const& source, AddressBytes const& destination, Bytes bytes) {
  U16 const sum = InternetChecksum()
                      .add(source)
                      .add(destination)
                      .addWord(IpProtocol::kUdp)
                      .addWord(static_cast<U16>(bytes.size()))
                      .add(bytes)
                      .value();
  return sum == 0 ? U16{0xffff} : sum;
}

std::optional<VxlanHeader> VxlanHeader::read(Bytes bytes) {
  if (bytes.size() < kSize) return std::nullopt;
  return VxlanHeader{bytes[0], load32(bytes, 4) >> 8};
}

void VxlanHeader::write(MutableBytes bytes) const {
  store32(bytes, 0, U32{flags} << 24);
  store32(bytes, 4, vni << 8);
}

}  // namespace Host::Packets
