// SPDX-License-Identifier: Apache-2.0
#include "host/packets/Frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

#include "tests/host/packets/Samples.h"

namespace {

using namespace Host::Packets;
using BfnTest::Buffer;
using BfnTest::counting;
using BfnTest::ethernet;
using BfnTest::hex;
using BfnTest::tagged;

TEST(ReadFrame, ReadsATaggedIpv4FrameFromItsBytes) {
  auto const frame =
      readFrame(hex("02aa0000000b 02aa0000000a 8100 6064 0800"
                    "4500 0014 0001 0000 40 01 0000 0a010203 0a010114"));
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->ethernet, (EthernetHeader{BfnTest::kPeerMac, BfnTest::kHostMac, 0x8100}));
  EXPECT_EQ(frame->tag, (VlanTag{3, false, 100, 0x0800}));
  EXPECT_FALSE(frame->doubleTagged);
  EXPECT_EQ(frame->etherType, EtherType::kIpv4);
  EXPECT_EQ(frame->payloadAt, 18u);
  ASSERT_TRUE(frame->ipv4);
  EXPECT_EQ(frame->ipv4->source, BfnTest::kHost);
}

TEST(ReadFrame, ReadsAnUntaggedFrame) {
  auto const frame = readFrame(ethernet(EtherType::kArp, counting(28)));
  ASSERT_TRUE(frame);
  EXPECT_FALSE(frame->tag);
  EXPECT_FALSE(frame->ipv4);
  EXPECT_EQ(frame->etherType, EtherType::kArp);
  EXPECT_EQ(frame->payloadAt, 14u);
}

TEST(ReadFrame, StopsAtASecondTagOfEitherKind) {
  for (Kiv::U16 const inner : {EtherType::kVlan, EtherType::kServiceVlan}) {
    for (Kiv::U16 const outer : {EtherType::kVlan, EtherType::kServiceVlan}) {
      auto const frame = readFrame(tagged(300, tagged(20, BfnTest::udpFrame(), inner), outer));
      ASSERT_TRUE(frame);
      EXPECT_TRUE(frame->doubleTagged);
      EXPECT_EQ(frame->tag->vlan, 300);
      EXPECT_EQ(frame->etherType, inner);
      EXPECT_FALSE(frame->ipv4);
    }
  }
}

TEST(ReadFrame, IsNothingInsideTheEthernetHeaderOrTheTag) {
  Buffer const bytes = tagged(100, BfnTest::udpFrame());
  for (size_t size = 0; size < 18; ++size) {
    // The type that would call for a tag is only there from 14 bytes on.
    EXPECT_FALSE(readFrame(Bytes(bytes).first(size))) << size;
  }
  EXPECT_TRUE(readFrame(Bytes(bytes).first(18)));
  EXPECT_TRUE(readFrame(Bytes(BfnTest::udpFrame()).first(14)));
}

TEST(ReadFrame, HasNoIpv4HeaderUntilAllOfItIsThere) {
  Buffer const bytes = BfnTest::udpFrame();
  EXPECT_FALSE(readFrame(Bytes(bytes).first(33))->ipv4);
  EXPECT_TRUE(readFrame(Bytes(bytes).first(34))->ipv4);
}

Kiv::U32 hashOf(Buffer const& bytes) {
  return flowHash(readFrame(bytes).value(), bytes);
}

TEST(FlowHash, IsTheSameForEveryFrameOfAFlow) {
  EXPECT_EQ(hashOf(BfnTest::udpFrame(10)), hashOf(BfnTest::udpFrame(1000)));
  EXPECT_EQ(hashOf(BfnTest::udpFrame(10)), hashOf(tagged(100, BfnTest::udpFrame(10))));
}

TEST(FlowHash, DiffersByEachFieldOfAFlow) {
  Buffer const udp = BfnTest::udpFrame();
  // A byte of each MAC, both addresses, the protocol (to TCP), both ports.
  for (size_t const at : {0u, 5u, 6u, 11u, 26u, 29u, 30u, 33u, 34u, 35u, 36u, 37u}) {
    Buffer other = udp;
    other[at] ^= 1;
    EXPECT_NE(hashOf(other), hashOf(udp)) << at;
  }
  Buffer tcp = udp;
  tcp[23] = IpProtocol::kTcp;
  EXPECT_NE(hashOf(tcp), hashOf(udp));
}

TEST(FlowHash, TakesPortsAndAddressesOfIpv6) {
  Buffer packet = counting(60);
  packet[6] = IpProtocol::kUdp;
  Buffer const frame = ethernet(EtherType::kIpv6, packet);
  for (size_t const at : {14u + 8u, 14u + 39u, 14u + 40u, 14u + 43u}) {
    Buffer other = frame;
    other[at] ^= 1;
    EXPECT_NE(hashOf(other), hashOf(frame)) << at;
  }
  Buffer other = frame;
  other[14 + 44] ^= 1;
  EXPECT_EQ(hashOf(other), hashOf(frame)) << "what follows the ports is no part of the flow";
}

TEST(FlowHash, LeavesThePortsOfFragmentsOut) {
  Ipv4Header first;
  first.protocol = IpProtocol::kUdp;
  first.flagsAndOffset = Ipv4Header::kMoreFragments;
  Ipv4Header last;
  last.protocol = IpProtocol::kUdp;
  last.flagsAndOffset = 185;
  EXPECT_EQ(hashOf(ethernet(EtherType::kIpv4, BfnTest::ipv4(hex("9c40138d0000"), first))),
            hashOf(ethernet(EtherType::kIpv4, BfnTest::ipv4(hex("ffffffffffff"), last))));
}

TEST(FlowHash, SpreadsFlowsThatDifferInOnePort) {
  std::set<Kiv::U32> ports;
  for (Kiv::U16 i = 0; i < 1000; ++i) {
    ports.insert(hashOf(BfnTest::udpFrame(18, static_cast<Kiv::U16>(30'000 + i))) & 0x3fff);
  }
  // Drawn at random, 1,000 of 16,384 leave about 970 different ones.
  EXPECT_GT(ports.size(), 900u);
}

}  // namespace
