// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "chip/ChipModel.h"
#include "host/packets/Headers.h"
#include "host/packets/Wire.h"

/// Frames and files that the suites of host/packets share.
namespace BfnTest {

using Buffer = std::vector<Kiv::U8>;

inline constexpr Host::Packets::MacBytes kHostMac{0x02, 0xaa, 0, 0, 0, 0x0a};
inline constexpr Host::Packets::MacBytes kPeerMac{0x02, 0xaa, 0, 0, 0, 0x0b};
inline constexpr Host::Packets::MacBytes kRowMac{0x02, 0x5e, 0x10, 0x01, 0x02, 0x03};
inline constexpr Host::Packets::AddressBytes kHost{10, 1, 2, 3};
inline constexpr Host::Packets::AddressBytes kPeer{10, 1, 1, 20};

/// Bytes from pairs of hexadecimal digits; blanks are skipped.
Buffer hex(std::string_view digits);
Buffer joined(std::initializer_list<Buffer> parts);
/// Of `size` bytes: 0, 1, 2, ...
Buffer counting(size_t size);

/// Destination kPeerMac, source kHostMac, the type, the payload.
Buffer ethernet(Kiv::U16 etherType, Buffer const& payload);
/// The frame with a tag put in front of its Host::Packets::EtherType.
Buffer tagged(Kiv::U16 vlan, Buffer const& frame,
              Kiv::U16 tagType = Host::Packets::EtherType::kVlan, Kiv::U8 priority = 0);
/// An IPv4 packet from kHost to kPeer; length and checksum are filled in unless they are given.
Buffer ipv4(Buffer const& payload, Host::Packets::Ipv4Header header = {},
            Buffer const& options = {});
/// An untagged UDP datagram from kHost to kPeer.
Buffer udpFrame(size_t payloadSize = 18, Kiv::U16 sourcePort = 40'000);

/// Writes a row as the driver does, in the chip's own bytes.
void rowIs(BfnChip::ChipModel& chip, Kiv::U16 vlan, Host::Packets::AddressBytes const& source,
           Host::Packets::MacBytes const& mac);

/// A folder of its own, which goes with the object.
class Folder {
 public:
  Folder();
  Folder(Folder const&) = delete;
  Folder& operator=(Folder const&) = delete;
  ~Folder();

  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

void fileIs(std::filesystem::path const& path, Buffer const& bytes);
Buffer fileBytes(std::filesystem::path const& path);

}  // namespace BfnTest
