// SPDX-License-Identifier: Apache-2.0
#include "host/packets/VxlanTunnel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/core/Exceptions.h"
#include "tests/host/packets/Samples.h"

namespace {

using namespace Host::Packets;
using BfnTest::Buffer;
using BfnTest::counting;
using BfnTest::hex;

Buffer encapsulated(VxlanTunnel const& tunnel, Kiv::U16 vlan, Kiv::U32 flowHash,
                    Buffer const& inner) {
  Buffer packet = BfnTest::joined({Buffer(VxlanTunnel::kOverhead, 0xee), inner});
  tunnel.encapsulate(vlan, flowHash, packet);
  return packet;
}

TEST(VxlanTunnel, WritesTheseBytes) {
  TunnelConfig config;
  config.udpChecksum = false;
  Buffer const inner = counting(14);
  EXPECT_EQ(encapsulated(VxlanTunnel(config), 100, 0x12345, inner),
            BfnTest::joined({hex("02005e000002 02005e000001 0800"
                                 "4500 0032 0000 4000 40 11 b6b7 c0000201 c0000202"
                                 "e345 12b5 001e 0000"
                                 "08000000 002774 00"),
                             inner}));
}

TEST(VxlanTunnel, IsReadBackWithEveryField) {
  TunnelConfig config;
  config.source = {10, 255, 0, 1};
  config.destination = {10, 255, 0, 2};
  config.vniBase = 5'000'000;
  Buffer const inner = counting(99);
  Buffer const packet = encapsulated(VxlanTunnel(config), 4094, 0xffff'ffff, inner);
  auto const read = readVxlan(packet);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->ethernet.source, config.sourceMac);
  EXPECT_EQ(read->ethernet.destination, config.destinationMac);
  EXPECT_EQ(read->ipv4.source, config.source);
  EXPECT_EQ(read->ipv4.destination, config.destination);
  EXPECT_EQ(read->ipv4.timeToLive, 64);
  EXPECT_EQ(read->udp.sourcePort, 65'535);
  EXPECT_NE(read->udp.checksum, 0);
  EXPECT_EQ(read->vxlan.vni, 5'004'094u);
  EXPECT_EQ(Buffer(read->inner.begin(), read->inner.end()), inner);
}

TEST(VxlanTunnel, ComesBackFromEveryLengthUpToTheLongest) {
  VxlanTunnel const tunnel;
  for (size_t const size : {size_t{1}, size_t{2}, size_t{59}, size_t{60}, size_t{1518},
                            size_t{9216}, VxlanTunnel::kMaxInner}) {
    Buffer const inner = counting(size);
    Buffer const packet = encapsulated(tunnel, 7, 1, inner);
    auto const read = readVxlan(packet);
    ASSERT_TRUE(read) << size;
    EXPECT_EQ(Buffer(read->inner.begin(), read->inner.end()), inner) << size;
  }
}

TEST(VxlanTunnel, TakesItsSourcePortFromTheFlowInTheDynamicRange) {
  VxlanTunnel const tunnel;
  for (Kiv::U32 const hash : {0u, 1u, 0x3fffu, 0x4000u, 0xffff'ffffu}) {
    Buffer const packet = encapsulated(tunnel, 1, hash, counting(60));
    EXPECT_EQ(readVxlan(packet)->udp.sourcePort, 49'152 + hash % 16'384) << hash;
  }
}

TEST(VxlanTunnel, RefusesABaseThatLeavesNoRoomForEveryVlan) {
  TunnelConfig config;
  config.vniBase = VxlanHeader::kMaxVni - 4094;
  EXPECT_EQ(VxlanTunnel(config).vni(4094), VxlanHeader::kMaxVni);
  ++config.vniBase;
  EXPECT_THROW(VxlanTunnel{config}, Kiv::RangeException);
}

TEST(ReadVxlan, RefusesAPacketOfWhichAnyOuterBitIsWrong) {
  Buffer const good = encapsulated(VxlanTunnel{}, 100, 9, counting(60));
  auto const same = [&](Buffer const& bytes) {
    auto const read = readVxlan(bytes);
    return read && read->vxlan.vni == 10'100 && std::ranges::equal(read->inner, counting(60));
  };
  ASSERT_TRUE(same(good));
  // From the EtherType on; nothing guards the MACs.
  for (size_t bit = 12 * 8; bit < good.size() * 8; ++bit) {
    Buffer bad = good;
    bad[bit / 8] = static_cast<Kiv::U8>(bad[bit / 8] ^ 1u << bit % 8);
    EXPECT_FALSE(same(bad)) << "bit " << bit;
  }
}

TEST(ReadVxlan, RefusesEveryPacketThatEndsTooEarly) {
  Buffer const good = encapsulated(VxlanTunnel{}, 100, 9, counting(60));
  for (size_t size = 0; size < good.size(); ++size) {
    EXPECT_FALSE(readVxlan(Bytes(good).first(size))) << size;
  }
}

}  // namespace
