// SPDX-License-Identifier: Apache-2.0
#include "tests/host/packets/Samples.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tests/support/RewriteRow.h"

namespace BfnTest {

using namespace Host::Packets;
using Kiv::U16;
using Kiv::U8;

Buffer hex(std::string_view digits) {
  Buffer bytes;
  std::string pair;
  for (char const digit : digits) {
    if (digit == ' ' || digit == '\n') continue;
    pair += digit;
    if (pair.size() < 2) continue;
    bytes.push_back(static_cast<U8>(std::stoul(pair, nullptr, 16)));
    pair.clear();
  }
  return bytes;
}

Buffer joined(std::initializer_list<Buffer> parts) {
  Buffer all;
  for (Buffer const& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Buffer counting(size_t size) {
  Buffer bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<U8>(i);
  return bytes;
}

Buffer ethernet(U16 etherType, Buffer const& payload) {
  Buffer header(EthernetHeader::kSize);
  EthernetHeader{kPeerMac, kHostMac, etherType}.write(header);
  return joined({header, payload});
}

Buffer tagged(U16 vlan, Buffer const& frame, U16 tagType, U8 priority) {
  Buffer tag(2 + VlanTag::kSize);
  store16(tag, 0, tagType);
  VlanTag{priority, false, vlan, load16(frame, 12)}.write(MutableBytes(tag).subspan(2));
  return joined({Buffer(frame.begin(), frame.begin() + 12), tag,
                 Buffer(frame.begin() + EthernetHeader::kSize, frame.end())});
}

Buffer ipv4(Buffer const& payload, Ipv4Header header, Buffer const& options) {
  bool const ownChecksum = header.checksum != 0;
  header.source = kHost;
  header.destination = kPeer;
  header.headerWords = static_cast<U8>(header.headerWords + options.size() / 4);
  if (header.totalLength == 0) {
    header.totalLength = static_cast<U16>(Ipv4Header::kSize + options.size() + payload.size());
  }
  Buffer bytes(Ipv4Header::kSize);
  header.write(bytes);
  bytes.insert(bytes.end(), options.begin(), options.end());
  if (!ownChecksum && header.headerLength() <= bytes.size()) ipv4ChecksumIs(bytes);
  return joined({bytes, payload});
}

Buffer udpFrame(size_t payloadSize, U16 sourcePort) {
  Buffer datagram(UdpHeader::kSize);
  UdpHeader{sourcePort, 5005, static_cast<U16>(UdpHeader::kSize + payloadSize), 0}.write(datagram);
  datagram = joined({datagram, counting(payloadSize)});
  store16(datagram, UdpHeader::kChecksumAt, udpChecksum(kHost, kPeer, datagram));
  Ipv4Header header;
  header.protocol = IpProtocol::kUdp;
  return ethernet(EtherType::kIpv4, ipv4(datagram, header));
}

void rowIs(BfnChip::ChipModel& chip, U16 vlan, AddressBytes const& source, MacBytes const& mac) {
  auto const table = chip.open({0, 0, {}, "profile", BfnChip::ChipModel::kRewriteTable});
  if (chip.write(table.value(), rewriteKey(vlan, source), rewriteAction(mac)) !=
      BfnDriver::WriteResult::Ok) {
    throw std::runtime_error("the chip refused a row");
  }
}

Folder::Folder() {
  std::string name = (std::filesystem::temp_directory_path() / "lab-packets-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot create " + name);
  path_ = name;
}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void fileIs(std::filesystem::path const& path, Buffer const& bytes) {
  std::filesystem::remove(path);  // some file systems sync a file that is emptied and written
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<char const*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

Buffer fileBytes(std::filesystem::path const& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace BfnTest
