// SPDX-License-Identifier: Apache-2.0
#include "host/packets/Headers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/packets/Checksum.h"
#include "tests/host/packets/Samples.h"

namespace {

using namespace Host::Packets;
using BfnTest::Buffer;
using BfnTest::counting;
using BfnTest::hex;

// Writes the header into bytes of another value, so that a byte left out shows.
template <class Header>
Buffer written(Header const& header) {
  Buffer bytes(Header::kSize, 0xee);
  header.write(bytes);
  return bytes;
}

TEST(InternetChecksum, IsTheOneOfTheStandardsExample) {
  // The words 0001 f203 f4f5 f6f7 add up to ddf2.
  EXPECT_EQ(InternetChecksum().add(hex("0001f203f4f5f6f7")).value(), 0xffff ^ 0xddf2);
}

TEST(InternetChecksum, CountsAnOddLastByteAsTheUpperHalfOfAWord) {
  EXPECT_EQ(InternetChecksum().add(hex("0001 02")).value(), 0xffff ^ 0x0201);
}

TEST(InternetChecksum, IsTheSameInPiecesAndAsAWhole) {
  Buffer const bytes = counting(257);
  for (size_t cut = 0; cut <= bytes.size(); cut += 2) {
    EXPECT_EQ(
        InternetChecksum().add(Bytes(bytes).first(cut)).add(Bytes(bytes).subspan(cut)).value(),
        InternetChecksum().add(bytes).value())
        << cut;
  }
}

TEST(InternetChecksum, HasNoOverflowInTheLongestPacketOfOnes) {
  EXPECT_EQ(InternetChecksum().add(Buffer(0xfffe, 0xff)).value(), 0);
}

TEST(EthernetHeader, ReadsAndWritesItsBytes) {
  Buffer const bytes = hex("02aa0000000b 02aa0000000a 86dd");
  EthernetHeader const header{BfnTest::kPeerMac, BfnTest::kHostMac, 0x86dd};
  EXPECT_EQ(EthernetHeader::read(bytes), header);
  EXPECT_EQ(written(header), bytes);
}

TEST(VlanTag, ReadsAndWritesItsBytes) {
  Buffer const bytes = hex("b12c 0800");
  VlanTag const tag{5, true, 300, EtherType::kIpv4};
  EXPECT_EQ(VlanTag::read(bytes), tag);
  EXPECT_EQ(written(tag), bytes);
}

TEST(Ipv4Header, ReadsAndWritesItsBytes) {
  Buffer const bytes = hex("4510 0073 1234 2005 40 11 b861 0a010203 0a010114");
  Ipv4Header header;
  header.typeOfService = 0x10;
  header.totalLength = 0x73;
  header.identification = 0x1234;
  header.flagsAndOffset = 0x2005;
  header.protocol = 17;
  header.checksum = 0xb861;
  header.source = BfnTest::kHost;
  header.destination = BfnTest::kPeer;
  EXPECT_EQ(Ipv4Header::read(bytes), header);
  EXPECT_EQ(written(header), bytes);
  EXPECT_TRUE(header.isFragment());
  EXPECT_FALSE(header.hasOptions());
}

TEST(Ipv4Header, IsAFragmentByItsOffsetOrItsFlag) {
  Ipv4Header header;
  EXPECT_FALSE(header.isFragment());
  header.flagsAndOffset = Ipv4Header::kDontFragment;
  EXPECT_FALSE(header.isFragment());
  header.flagsAndOffset = Ipv4Header::kMoreFragments;
  EXPECT_TRUE(header.isFragment());
  header.flagsAndOffset = 1;
  EXPECT_TRUE(header.isFragment());
}

TEST(UdpHeader, ReadsAndWritesItsBytes) {
  Buffer const bytes = hex("c123 12b5 0020 abcd");
  UdpHeader const header{0xc123, 4789, 32, 0xabcd};
  EXPECT_EQ(UdpHeader::read(bytes), header);
  EXPECT_EQ(written(header), bytes);
}

TEST(VxlanHeader, ReadsAndWritesItsBytes) {
  Buffer const bytes = hex("08000000 012774 00");
  VxlanHeader const header{0x08, 0x012774};
  EXPECT_EQ(VxlanHeader::read(bytes), header);
  EXPECT_EQ(written(header), bytes);
}

template <class Header>
class EveryHeader : public testing::Test {};
using Headers = testing::Types<EthernetHeader, VlanTag, Ipv4Header, UdpHeader, VxlanHeader>;
TYPED_TEST_SUITE(EveryHeader, Headers);

TYPED_TEST(EveryHeader, IsReadOnlyWhenAllItsBytesAreThere) {
  Buffer const bytes = counting(TypeParam::kSize);
  for (size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_FALSE(TypeParam::read(Bytes(bytes).first(size))) << size;
  }
  EXPECT_TRUE(TypeParam::read(bytes));
}

Ipv4Fault faultOf(Buffer const& packet) {
  return ipv4Fault(Ipv4Header::read(packet).value(), packet);
}

// A header of 115 bytes in all whose checksum was computed elsewhere.
Buffer const kForeignHeader = hex("4500 0073 0000 4000 40 11 b861 c0a80001 c0a800c7");

TEST(Ipv4Fault, IsNoneForAPacketOfAnotherMaker) {
  EXPECT_EQ(faultOf(BfnTest::joined({kForeignHeader, Buffer(0x73 - 20)})), Ipv4Fault::None);
}

TEST(Ipv4Fault, IsCutShortWhenAByteOfThePacketIsMissing) {
  EXPECT_EQ(faultOf(BfnTest::joined({kForeignHeader, Buffer(0x73 - 21)})), Ipv4Fault::CutShort);
}

TEST(Ipv4Fault, IsAHeaderOfAnotherVersionOrOfLengthsThatContradictEachOther) {
  Ipv4Header other;
  other.version = 6;
  EXPECT_EQ(faultOf(BfnTest::ipv4(counting(8), other)), Ipv4Fault::Header);
  Ipv4Header small;
  small.headerWords = 4;
  EXPECT_EQ(faultOf(BfnTest::ipv4(counting(8), small)), Ipv4Fault::Header);
  Ipv4Header large;
  large.headerWords = 15;
  EXPECT_EQ(faultOf(BfnTest::ipv4(counting(39), large)), Ipv4Fault::Header);
  Ipv4Header shorter;
  shorter.totalLength = 19;
  EXPECT_EQ(faultOf(BfnTest::ipv4(counting(8), shorter)), Ipv4Fault::Header);
}

TEST(Ipv4Fault, IsNoneWithOptionsAndWithPaddingAfterThePacket) {
  EXPECT_EQ(faultOf(BfnTest::ipv4(counting(8), {}, hex("01010101"))), Ipv4Fault::None);
  EXPECT_EQ(faultOf(BfnTest::joined({BfnTest::ipv4(counting(8)), Buffer(18)})), Ipv4Fault::None);
}

TEST(Ipv4Fault, CoversEachBitOfTheHeaderByItsChecksum) {
  Buffer const good = BfnTest::ipv4(counting(8), {}, hex("94040000"));
  ASSERT_EQ(faultOf(good), Ipv4Fault::None);
  for (size_t bit = 0; bit < 24 * 8; ++bit) {
    Buffer bad = good;
    bad[bit / 8] = static_cast<Kiv::U8>(bad[bit / 8] ^ 1u << bit % 8);
    EXPECT_NE(faultOf(bad), Ipv4Fault::None) << "bit " << bit;
  }
}

TEST(UdpChecksum, IsRightForAWorkedExample) {
  // The pseudo header (addresses, protocol, length), then 40000 to 5005, length 10, "hi".
  Buffer datagram = hex("9c40 138d 000a 0000 6869");
  unsigned sum =
      0x0a01 + 0x0203 + 0x0a01 + 0x0114 + 0x0011 + 0x000a + 0x9c40 + 0x138d + 0x000a + 0x6869;
  sum = (sum & 0xffff) + (sum >> 16);
  Kiv::U16 const wanted = static_cast<Kiv::U16>(~sum);
  EXPECT_EQ(udpChecksum(BfnTest::kHost, BfnTest::kPeer, datagram), wanted);
  store16(datagram, UdpHeader::kChecksumAt, wanted);
  EXPECT_EQ(udpChecksum(BfnTest::kHost, BfnTest::kPeer, datagram), 0xffff);
}

}  // namespace
