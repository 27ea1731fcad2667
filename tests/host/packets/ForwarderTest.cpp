// SPDX-License-Identifier: Apache-2.0
#include "host/packets/Forwarder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "framework/core/Exceptions.h"
#include "framework/platform/OverlaySrcMacRewriteTable.h"
#include "tests/host/packets/Samples.h"

namespace {

using namespace Host::Packets;
using BfnChip::ChipModel;
using BfnTest::Buffer;
using BfnTest::counting;
using BfnTest::ethernet;
using BfnTest::hex;
using BfnTest::kHost;
using BfnTest::kHostMac;
using BfnTest::kRowMac;
using BfnTest::tagged;
using BfnTest::udpFrame;

class ForwarderTest : public testing::Test {
 protected:
  ForwarderTest() {
    config.accessVlan = 10;
    BfnTest::rowIs(chip, 100, kHost, kRowMac);
    BfnTest::rowIs(chip, 10, kHost, kRowMac);
  }

  // Forwards and checks what holds for every frame that leaves: it is one VXLAN packet, in the
  // VNI of its VLAN, around the frame as it came except for its source MAC.
  ForwardedFrame forward(Buffer const& frame) {
    ForwardedFrame const result = forwarder().forward(frame);
    EXPECT_EQ(result.packet.empty(), !isForwarded(result.verdict)) << text(result.verdict);
    if (result.packet.empty()) {
      EXPECT_FALSE(result.macAfter);
      return result;
    }
    auto const read = readVxlan(result.packet);
    EXPECT_TRUE(read);
    if (!read) return result;
    EXPECT_EQ(read->vxlan.vni, 10'000u + *result.vlan);
    Buffer wanted = frame;
    storeBytes(wanted, EthernetHeader::kSourceAt, *result.macAfter);
    EXPECT_EQ(Buffer(read->inner.begin(), read->inner.end()), wanted);
    if (result.verdict != Verdict::Rewritten) {
      EXPECT_EQ(result.macAfter, result.macBefore);
    }
    return result;
  }
  Verdict verdict(Buffer const& frame) { return forward(frame).verdict; }

  Forwarder& forwarder() {
    if (!forwarder_) forwarder_.emplace(chip, config);
    return *forwarder_;
  }
  ForwardTotals const& totals() { return forwarder().totals(); }

  ChipModel chip;
  ForwarderConfig config;

 private:
  std::optional<Forwarder> forwarder_;
};

TEST_F(ForwarderTest, GivesAFrameThatHitsARowTheRowsMac) {
  ForwardedFrame const result = forward(tagged(100, udpFrame()));
  EXPECT_EQ(result.number, 1u);
  EXPECT_EQ(result.verdict, Verdict::Rewritten);
  EXPECT_EQ(result.vlan, 100);
  EXPECT_EQ(result.source, kHost);
  EXPECT_EQ(result.macBefore, kHostMac);
  EXPECT_EQ(result.macAfter, kRowMac);
}

TEST_F(ForwarderTest, LeavesTheMacOfAFrameWhoseRowHasTheZeroMac) {
  BfnTest::rowIs(chip, 100, kHost, {});
  ForwardedFrame const result = forward(tagged(100, udpFrame()));
  EXPECT_EQ(result.verdict, Verdict::NoMac);
  EXPECT_EQ(result.macAfter, kHostMac);
  EXPECT_EQ(totals().of(Verdict::NoMac), 1u);
  EXPECT_EQ(chip.rows().back().hits, 1u);
}

TEST_F(ForwarderTest, LeavesTheMacOfAFrameInAnotherVlanOrFromAnotherSource) {
  EXPECT_EQ(verdict(tagged(101, udpFrame())), Verdict::NoRow);
  Buffer other = tagged(100, udpFrame());
  other[33] = 99;  // the last byte of the source address
  ipv4ChecksumIs(MutableBytes(other).subspan(18));
  ForwardedFrame const result = forward(other);
  EXPECT_EQ(result.verdict, Verdict::NoRow);
  EXPECT_EQ(result.source, (AddressBytes{10, 1, 2, 99}));
}

TEST_F(ForwarderTest, PutsUntaggedAndPriorityTaggedFramesIntoTheAccessVlan) {
  ForwardedFrame const untagged = forward(udpFrame());
  EXPECT_EQ(untagged.vlan, 10);
  EXPECT_EQ(untagged.verdict, Verdict::Rewritten);
  ForwardedFrame const priority = forward(tagged(0, udpFrame(), EtherType::kVlan, 5));
  EXPECT_EQ(priority.vlan, 10);
  EXPECT_EQ(priority.verdict, Verdict::Rewritten);
  EXPECT_EQ(totals().tagged, 1u);
  EXPECT_EQ(totals().priorityTagged, 1u);
}

TEST_F(ForwarderTest, TakesAServiceTagForATag) {
  EXPECT_EQ(verdict(tagged(100, udpFrame(), EtherType::kServiceVlan)), Verdict::Rewritten);
}

TEST_F(ForwarderTest, MatchesTheRowThatTheTablesBindingWrote) {
  ChipModel written;
  auto const table = BfOverlaySrcMacRewrite::overlaySrcMacRewriteTableFactory(
      nullptr, nullptr, written.opaque(), 0, 0, 0, "profile");
  auto match = Kiv::make<BfOverlaySrcMacRewrite::OverlaySrcMacRewriteMatchSpec>();
  match->matchTypeIs(5);
  match->vlanIs(258);
  match->validIs(1);
  auto action = BfOverlaySrcMacRewrite::RewriteOverlaySrcMacActionSpecIs();
  action->ouiIs(0x025e10);
  action->stationIs(0x010203);
  match->sourceIpIs(0x0302010a);  // 10.1.2.3, byte-reversed
  table->entryIs({match, action});
  Forwarder through(written);
  EXPECT_EQ(through.forward(tagged(258, udpFrame())).macAfter, kRowMac);
  EXPECT_EQ(through.forward(tagged(513, udpFrame())).macAfter, kHostMac) << "258 byte-reversed";
}

TEST_F(ForwarderTest, CountsTheHitInTheRow) {
  forward(tagged(100, udpFrame()));
  forward(tagged(100, udpFrame()));
  forward(tagged(101, udpFrame()));
  auto const rows = chip.rows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].hits, 0u);
  EXPECT_EQ(rows[1].hits, 2u);
}

TEST_F(ForwarderTest, ForwardsArpIpv6AndOtherProtocolsWithoutALookUp) {
  EXPECT_EQ(verdict(ethernet(EtherType::kArp, counting(28))), Verdict::Arp);
  EXPECT_EQ(verdict(tagged(100, ethernet(EtherType::kIpv6, counting(40)))), Verdict::Ipv6);
  EXPECT_EQ(verdict(ethernet(0x88cc, counting(46))), Verdict::OtherProtocol);
  EXPECT_EQ(verdict(ethernet(0x0026, counting(46))), Verdict::OtherProtocol) << "a length";
  EXPECT_EQ(verdict(ethernet(EtherType::kArp, {})), Verdict::Arp) << "without a payload";
  EXPECT_EQ(totals().forwarded(), 5u);
}

TEST_F(ForwarderTest, ForwardsADoubleTaggedFrameInItsOuterVlanWithoutALookUp) {
  ForwardedFrame const result = forward(tagged(100, tagged(100, udpFrame())));
  EXPECT_EQ(result.verdict, Verdict::DoubleTagged);
  EXPECT_EQ(result.vlan, 100);
  EXPECT_FALSE(result.source);
  EXPECT_EQ(verdict(Buffer(hex("02aa0000000b02aa0000000a 8100 0064 8100"))), Verdict::DoubleTagged)
      << "also when the inner tag is cut";
}

TEST_F(ForwarderTest, DropsAFrameThatEndsInsideItsHeaderOrTag) {
  Buffer const frame = tagged(100, udpFrame());
  for (size_t size = 0; size < 18; ++size) {
    ForwardedFrame const result =
        forward(Buffer(frame.begin(), frame.begin() + std::ptrdiff_t(size)));
    EXPECT_EQ(result.verdict, Verdict::TooShort) << size;
    EXPECT_EQ(result.macBefore.has_value(), size >= 14) << size;
    EXPECT_FALSE(result.vlan) << size;
  }
  EXPECT_EQ(totals().dropped(), 18u);
}

TEST_F(ForwarderTest, DropsAFrameThatTheCaptureCut) {
  Buffer const frame = tagged(100, udpFrame());
  for (size_t const kept : {size_t{0}, size_t{10}, size_t{20}, frame.size()}) {
    ForwardedFrame const result = forwarder().forward(Bytes(frame).first(kept), frame.size() + 1);
    EXPECT_EQ(result.verdict, Verdict::Truncated) << kept;
    EXPECT_TRUE(result.packet.empty()) << kept;
  }
  EXPECT_EQ(chip.rows()[1].hits, 0u);
}

TEST_F(ForwarderTest, DropsAFrameOfTheReservedVlan) {
  ForwardedFrame const result = forward(tagged(4095, udpFrame()));
  EXPECT_EQ(result.verdict, Verdict::ReservedVlan);
  EXPECT_FALSE(result.vlan);
  EXPECT_EQ(verdict(tagged(4094, udpFrame())), Verdict::NoRow);
}

TEST_F(ForwarderTest, ForwardsJumboFramesUpToTheLongest) {
  auto const frameOf = [](size_t size) { return udpFrame(size - 42); };
  EXPECT_EQ(verdict(frameOf(1514)), Verdict::Rewritten);
  EXPECT_EQ(totals().jumbo, 0u);
  EXPECT_EQ(verdict(frameOf(1515)), Verdict::Rewritten);
  EXPECT_EQ(verdict(frameOf(9216)), Verdict::Rewritten);
  EXPECT_EQ(totals().jumbo, 2u);
  EXPECT_EQ(verdict(frameOf(9217)), Verdict::TooLong);
}

TEST_F(ForwarderTest, ForwardsTheLongestFrameThatAPacketHasRoomFor) {
  config.maxFrame = VxlanTunnel::kMaxInner;
  EXPECT_EQ(forward(udpFrame(VxlanTunnel::kMaxInner - 42)).packet.size(), 0xffffu + 14);
  EXPECT_EQ(verdict(udpFrame(VxlanTunnel::kMaxInner - 41)), Verdict::TooLong);
}

TEST_F(ForwarderTest, RewritesEveryFragmentOfADatagram) {
  Ipv4Header first;
  first.protocol = IpProtocol::kUdp;
  first.flagsAndOffset = Ipv4Header::kMoreFragments;
  Ipv4Header last = first;
  last.flagsAndOffset = 3;
  EXPECT_EQ(verdict(ethernet(EtherType::kIpv4, BfnTest::ipv4(counting(24), first))),
            Verdict::Rewritten);
  EXPECT_EQ(verdict(ethernet(EtherType::kIpv4, BfnTest::ipv4(counting(5), last))),
            Verdict::Rewritten);
  EXPECT_EQ(totals().fragments, 2u);
}

TEST_F(ForwarderTest, RewritesAPacketWithOptions) {
  EXPECT_EQ(verdict(ethernet(EtherType::kIpv4, BfnTest::ipv4(counting(8), {}, Buffer(40, 1)))),
            Verdict::Rewritten);
  EXPECT_EQ(totals().withOptions, 1u);
}

TEST_F(ForwarderTest, KeepsThePaddingAfterAPacket) {
  EXPECT_EQ(verdict(ethernet(EtherType::kIpv4,
                             BfnTest::joined({BfnTest::ipv4(counting(4)), Buffer(22, 0x55)}))),
            Verdict::Rewritten);
}

TEST_F(ForwarderTest, DropsABadIpv4Header) {
  Ipv4Header otherVersion;
  otherVersion.version = 6;
  Ipv4Header small;
  small.headerWords = 4;
  Ipv4Header shorter;
  shorter.totalLength = 19;
  for (Ipv4Header const& header : {otherVersion, small, shorter}) {
    EXPECT_EQ(verdict(ethernet(EtherType::kIpv4, BfnTest::ipv4(counting(26), header))),
              Verdict::BadIpv4Header);
  }
  EXPECT_EQ(verdict(ethernet(EtherType::kIpv4, counting(19))), Verdict::BadIpv4Header);
  EXPECT_EQ(totals().of(Verdict::BadIpv4Header), 4u);
  EXPECT_EQ(totals().dropped(), 4u);
}

TEST_F(ForwarderTest, DropsAPacketThatIsLongerThanItsFrame) {
  Ipv4Header header;
  header.totalLength = 47;
  EXPECT_EQ(verdict(ethernet(EtherType::kIpv4, BfnTest::ipv4(counting(26), header))),
            Verdict::Ipv4CutShort);
}

TEST_F(ForwarderTest, DropsAPacketWithAWrongHeaderChecksum) {
  Ipv4Header header;
  header.checksum = 0x1234;
  EXPECT_EQ(verdict(ethernet(EtherType::kIpv4, BfnTest::ipv4(counting(26), header))),
            Verdict::BadIpv4Checksum);
}

TEST_F(ForwarderTest, CountsEveryFrameOnce) {
  Buffer const hit = tagged(100, udpFrame());
  Buffer const arp = ethernet(EtherType::kArp, counting(28));
  forward(hit);
  forward(hit);
  forward(arp);
  forward(hex("00"));
  ForwardTotals wanted;
  wanted.frames = 4;
  wanted.bytesIn = 2 * hit.size() + arp.size() + 1;
  wanted.bytesOut = 2 * hit.size() + arp.size() + 3 * 50;
  wanted.byVerdict[size_t(Verdict::Rewritten)] = 2;
  wanted.byVerdict[size_t(Verdict::Arp)] = 1;
  wanted.byVerdict[size_t(Verdict::TooShort)] = 1;
  wanted.tagged = 2;
  EXPECT_EQ(totals(), wanted);
  EXPECT_EQ(totals().forwarded(), 3u);
  EXPECT_EQ(totals().dropped(), 1u);
}

TEST_F(ForwarderTest, KeepsTheOuterSourcePortOfAFlowWhenARowComes) {
  Buffer const frame = tagged(200, udpFrame());
  Kiv::U16 const before = readVxlan(forward(frame).packet)->udp.sourcePort;
  BfnTest::rowIs(chip, 200, kHost, kRowMac);
  ForwardedFrame const result = forward(frame);
  EXPECT_EQ(result.verdict, Verdict::Rewritten);
  EXPECT_EQ(readVxlan(result.packet)->udp.sourcePort, before);
}

TEST_F(ForwarderTest, RefusesValuesOutOfRange) {
  auto const with = [&](Kiv::U16 accessVlan, size_t maxFrame) {
    ForwarderConfig bad;
    bad.accessVlan = accessVlan;
    bad.maxFrame = maxFrame;
    Forwarder{chip, bad};
  };
  EXPECT_NO_THROW(with(1, 14));
  EXPECT_NO_THROW(with(4094, VxlanTunnel::kMaxInner));
  EXPECT_THROW(with(0, 9216), Kiv::RangeException);
  EXPECT_THROW(with(4095, 9216), Kiv::RangeException);
  EXPECT_THROW(with(1, 13), Kiv::RangeException);
  EXPECT_THROW(with(1, VxlanTunnel::kMaxInner + 1), Kiv::RangeException);
}

TEST(Verdict, HasAWordForEachOfThem) {
  for (size_t i = 0; i < kVerdicts; ++i) EXPECT_NE(text(Verdict(i)), "unknown") << i;
  EXPECT_EQ(text(Verdict(kVerdicts)), "unknown");
}

class CutFramesTest : public ForwarderTest {
 protected:
  CutFramesTest() { config.judgeTruncated = true; }

  // The frame as a capture keeps it that stores `kept` bytes of it.
  ForwardedFrame cut(Buffer const& frame, size_t kept) {
    return forwarder().forward(Bytes(frame).first(kept), frame.size());
  }
};

TEST_F(CutFramesTest, AreForwardedByTheHeadersThatTheCaptureKept) {
  Buffer const frame = tagged(100, udpFrame(1400));
  ForwardedFrame const result = cut(frame, 96);
  EXPECT_EQ(result.verdict, Verdict::Rewritten);
  EXPECT_EQ(result.macAfter, kRowMac);
  EXPECT_EQ(result.packet.size(), VxlanTunnel::kOverhead + 96);
  EXPECT_EQ(result.packetWireLength, VxlanTunnel::kOverhead + frame.size());
  auto const outer = Ipv4Header::read(result.packet.subspan(EthernetHeader::kSize));
  EXPECT_EQ(outer->totalLength, result.packetWireLength - EthernetHeader::kSize);
  auto const udp =
      UdpHeader::read(result.packet.subspan(EthernetHeader::kSize + Ipv4Header::kSize));
  EXPECT_EQ(udp->length, outer->totalLength - Ipv4Header::kSize);
  EXPECT_EQ(udp->checksum, 0) << "the bytes that it is made of are not all there";
}

TEST_F(CutFramesTest, AreDroppedWhenTheirHeadersAreCut) {
  Buffer const frame = tagged(100, udpFrame());
  for (size_t const kept : {0u, 13u, 14u, 17u, 18u, 37u}) {
    EXPECT_EQ(cut(frame, kept).verdict, Verdict::Truncated) << kept;
  }
  EXPECT_EQ(cut(frame, 38).verdict, Verdict::Rewritten);
  Buffer const withOptions =
      ethernet(EtherType::kIpv4, BfnTest::ipv4(counting(40), {}, Buffer(8, 1)));
  EXPECT_EQ(cut(withOptions, 14 + 27).verdict, Verdict::Truncated);
  EXPECT_EQ(cut(withOptions, 14 + 28).verdict, Verdict::Rewritten);
}

TEST_F(CutFramesTest, AreJudgedByTheirLengthOnTheWire) {
  config.maxFrame = 1000;
  EXPECT_EQ(cut(tagged(100, udpFrame(1400)), 96).verdict, Verdict::TooLong);
  Buffer shortened = tagged(100, udpFrame(100));
  shortened.resize(shortened.size() - 1);
  EXPECT_EQ(cut(shortened, 96).verdict, Verdict::Ipv4CutShort);
}

TEST_F(ForwarderTest, CutFramesAreDroppedUnlessTheyAreToBeJudged) {
  Buffer const frame = tagged(100, udpFrame(1400));
  EXPECT_EQ(forwarder().forward(Bytes(frame).first(96), frame.size()).verdict, Verdict::Truncated);
}

// Frames as RFC 7348 has them have no tag within.
TEST_F(ForwarderTest, TheTagIsStrippedWhenThatIsAskedFor) {
  config.stripTag = true;
  Buffer const plain = udpFrame();
  ForwardedFrame const result = forwarder().forward(tagged(100, plain));
  auto const read = readVxlan(result.packet);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->vxlan.vni, 10'100u);
  Buffer wanted = plain;
  storeBytes(wanted, EthernetHeader::kSourceAt, kRowMac);
  EXPECT_EQ(Buffer(read->inner.begin(), read->inner.end()), wanted);
  EXPECT_EQ(result.packetWireLength, result.packet.size());

  ForwardedFrame const twice = forwarder().forward(tagged(100, tagged(200, plain)));
  auto const inner = readVxlan(twice.packet);
  ASSERT_TRUE(inner);
  EXPECT_EQ(Buffer(inner->inner.begin(), inner->inner.end()), tagged(200, plain))
      << "of two tags the outer one";
}

TEST_F(ForwarderTest, ACutFrameIsStrippedToo) {
  config.stripTag = true;
  config.judgeTruncated = true;
  Buffer const frame = tagged(100, udpFrame(100));
  ForwardedFrame const result = forwarder().forward(Bytes(frame).first(60), frame.size());
  EXPECT_EQ(result.packet.size(), VxlanTunnel::kOverhead + 56);
  EXPECT_EQ(result.packetWireLength, VxlanTunnel::kOverhead + frame.size() - 4);
}

TEST_F(ForwarderTest, DscpAndEcnAreThoseOfThePacketWithinWhenThatIsAskedFor) {
  Ipv4Header header;
  header.typeOfService = 0xb9;
  Buffer const packet = ethernet(EtherType::kIpv4, BfnTest::ipv4(counting(20), header));
  Buffer ipv6 = counting(40);
  ipv6[0] = 0x6b;
  ipv6[1] = 0x90;
  config.carryTypeOfService = true;
  auto const outer = [&](Buffer const& frame) {
    return readVxlan(forwarder().forward(frame).packet).value().ipv4.typeOfService;
  };
  EXPECT_EQ(outer(packet), 0xb9);
  EXPECT_EQ(outer(tagged(100, packet)), 0xb9);
  EXPECT_EQ(outer(ethernet(EtherType::kIpv6, ipv6)), 0xb9);
  EXPECT_EQ(outer(ethernet(EtherType::kIpv6, {})), 0);
  EXPECT_EQ(outer(ethernet(EtherType::kArp, counting(28))), 0);
  EXPECT_EQ(outer(tagged(100, tagged(200, packet))), 0);

  Forwarder usual(chip);
  EXPECT_EQ(readVxlan(usual.forward(packet).packet)->ipv4.typeOfService, 0);
}

TEST_F(ForwarderTest, LinkLocalMulticastIsDroppedWhenThatIsAskedFor) {
  auto const to = [](AddressBytes const& address) {
    Buffer packet = BfnTest::ipv4(counting(20));
    storeBytes(packet, 16, address);
    ipv4ChecksumIs(packet);
    return ethernet(EtherType::kIpv4, packet);
  };
  Buffer const hello = to({224, 0, 0, 5});
  Buffer const other = to({224, 0, 1, 5});
  Buffer bridge = ethernet(0x88cc, counting(40));
  storeBytes(bridge, 0, MacBytes{0x01, 0x80, 0xc2, 0, 0, 0x0e});
  Buffer next = bridge;
  next[5] = 0x10;
  Forwarder usual(chip);
  EXPECT_NE(usual.forward(hello).verdict, Verdict::LinkLocal);
  config.dropLinkLocal = true;
  EXPECT_EQ(verdict(hello), Verdict::LinkLocal);
  EXPECT_EQ(verdict(tagged(100, hello)), Verdict::LinkLocal);
  EXPECT_EQ(verdict(bridge), Verdict::LinkLocal);
  EXPECT_NE(verdict(other), Verdict::LinkLocal);
  EXPECT_NE(verdict(next), Verdict::LinkLocal);
  EXPECT_EQ(totals().dropped(), 3u);
}

TEST_F(ForwarderTest, TheOuterTimeToLiveIsTheTunnels) {
  config.tunnel.timeToLive = 7;
  EXPECT_EQ(readVxlan(forward(udpFrame()).packet)->ipv4.timeToLive, 7);
}

}  // namespace
