// SPDX-License-Identifier: Apache-2.0
// The program by itself: frames given to it one by one.
#include <gtest/gtest.h>
#include <linux/bpf.h>

#include "kernel/KernelTable.h"
#include "tests/host/packets/Samples.h"
#include "tests/kernel/KernelFixture.h"
#include "tests/support/RewriteRow.h"

namespace {

using namespace Host::Packets;
using namespace BfnTest;
using BfnKernel::KernelProgram;
using BfnKernel::KernelTable;
using Kiv::U16;
using Kiv::U32;
using Kiv::U64;

constexpr U16 kRowVlan = 100;
constexpr int kReturned = -1;  // TC_ACT_UNSPEC

class Program : public BfnTest::KernelFixture {
 protected:
  void SetUp() override {
    KernelFixture::SetUp();
    if (IsSkipped()) return;
    kernel_ = std::make_unique<KernelProgram>(options());
    table_ = std::make_unique<KernelTable>(*kernel_);
    handle_ = *table_->open({0, 0, {}, "", KernelTable::kRewriteTable});
    deviceIs({.vlan = kRowVlan, .vni = 0, .made_qdisc = 0, .name = {}});
    rowIs(kRowVlan, kHost, kRowMac);
  }

  void deviceIs(mac_rewrite_device const& device) {
    U32 const loopback = 1;
    ASSERT_EQ(kernel_->devices().update(&loopback, &device, BPF_ANY), 0);
  }
  void rowIs(U16 vlan, AddressBytes const& source, MacBytes const& mac) {
    ASSERT_EQ(
        table_->write(handle_, BfnTest::rewriteKey(vlan, source), BfnTest::rewriteAction(mac)),
        BfnDriver::WriteResult::Ok);
  }
  U64 hits(U16 vlan, AddressBytes const& source) {
    U64 hits = ~U64{0};
    EXPECT_EQ(table_->rowHits(handle_, BfnTest::rewriteKey(vlan, source), hits),
              BfnDriver::Status::Ok);
    return hits;
  }

  // Counts the frame as `verdict` and as nothing else, and passes it on with this source MAC.
  void expect(Buffer const& frame, mac_rewrite_verdict verdict, MacBytes const& mac) {
    BfnKernel::FrameCounters wanted = kernel_->counters();
    ++wanted.byVerdict[verdict];
    auto const ran = BfnTest::run(kernel_->fd(), frame);
    ASSERT_TRUE(ran.has_value());
    Buffer expected = frame;
    storeBytes(expected, EthernetHeader::kSourceAt, mac);
    EXPECT_EQ(ran->frame, expected);
    EXPECT_EQ(ran->result, kReturned);
    EXPECT_EQ(kernel_->counters(), wanted);
  }
  void expectUnchanged(Buffer const& frame, mac_rewrite_verdict verdict) {
    expect(frame, verdict, kHostMac);
  }

  std::unique_ptr<KernelProgram> kernel_;
  std::unique_ptr<KernelTable> table_;
  BfnDriver::TableHandle handle_{};
};

TEST_F(Program, FrameOfARowLeavesWithTheRowsMac) {
  expect(udpFrame(), MAC_REWRITE_REWRITTEN, kRowMac);
  EXPECT_EQ(hits(kRowVlan, kHost), 1u);
}

TEST_F(Program, FrameWithoutARowLeavesAsItCame) {
  ASSERT_EQ(table_->erase(handle_, BfnTest::rewriteKey(kRowVlan, kHost)),
            BfnDriver::EraseResult::Ok);
  rowIs(kRowVlan + 1, kHost, kRowMac);
  rowIs(kRowVlan, kPeer, kRowMac);
  expectUnchanged(udpFrame(), MAC_REWRITE_NO_ROW);
}

TEST_F(Program, RowWithTheZeroMacLeavesTheFramesOwn) {
  rowIs(kRowVlan, kHost, {});
  expectUnchanged(udpFrame(), MAC_REWRITE_NO_MAC);
  EXPECT_EQ(hits(kRowVlan, kHost), 1u);
}

TEST_F(Program, TopBytesOfAnActionAreNotLookedAt) {
  BfnChip::ActionBytes action = BfnTest::rewriteAction({});
  action[3] = action[7] = 0xff;
  ASSERT_EQ(table_->write(handle_, BfnTest::rewriteKey(kRowVlan, kHost), action),
            BfnDriver::WriteResult::Ok);
  expectUnchanged(udpFrame(), MAC_REWRITE_NO_MAC);
}

TEST_F(Program, FrameThatIsNotIpv4IsNotLookedUp) {
  expectUnchanged(ethernet(EtherType::kArp, counting(28)), MAC_REWRITE_ARP);
  expectUnchanged(ethernet(EtherType::kIpv6, counting(60)), MAC_REWRITE_IPV6);
  expectUnchanged(ethernet(0x88cc, counting(60)), MAC_REWRITE_OTHER_PROTOCOL);
  expectUnchanged(ethernet(60, counting(60)), MAC_REWRITE_OTHER_PROTOCOL);
}

TEST_F(Program, HeaderWithOptionsAndFragmentsAreLookedUp) {
  for (size_t words = 1; words <= 10; ++words) {
    Buffer const options(4 * words, 1);
    expect(ethernet(EtherType::kIpv4, ipv4(counting(20), {}, options)), MAC_REWRITE_REWRITTEN,
           kRowMac);
  }
  Ipv4Header last;
  last.flagsAndOffset = 185;
  expect(ethernet(EtherType::kIpv4, ipv4(counting(3), last)), MAC_REWRITE_REWRITTEN, kRowMac);
}

TEST_F(Program, BrokenIpv4PassesAndIsCounted) {
  Buffer const good = udpFrame();
  Buffer version = good;
  version[14] = 0x55;
  expectUnchanged(version, MAC_REWRITE_BAD_IPV4_HEADER);
  Buffer shortHeader = good;
  shortHeader[14] = 0x44;
  expectUnchanged(shortHeader, MAC_REWRITE_BAD_IPV4_HEADER);
  Buffer total = good;
  total[17] = 19;
  expectUnchanged(total, MAC_REWRITE_BAD_IPV4_HEADER);
  Buffer noTotal = good;
  noTotal[16] = noTotal[17] = 0;
  expectUnchanged(noTotal, MAC_REWRITE_BAD_IPV4_HEADER);
  Buffer cut = good;
  cut.pop_back();
  expectUnchanged(cut, MAC_REWRITE_IPV4_CUT_SHORT);
  Buffer checksum = good;
  checksum[24] ^= 1;
  expectUnchanged(checksum, MAC_REWRITE_BAD_IPV4_CHECKSUM);
}

TEST_F(Program, PaddingAfterThePacketIsLeftAlone) {
  Buffer padded = udpFrame();
  padded.resize(padded.size() + 10, 0xee);
  expect(padded, MAC_REWRITE_REWRITTEN, kRowMac);
}

TEST_F(Program, VlanOfTheDeviceGoesBeforeTheTag) {
  expect(tagged(200, udpFrame()), MAC_REWRITE_REWRITTEN, kRowMac);
}

TEST_F(Program, TagSaysTheVlanWhenTheDeviceDoesNot) {
  deviceIs({});
  expect(tagged(kRowVlan, udpFrame()), MAC_REWRITE_REWRITTEN, kRowMac);
  expect(tagged(kRowVlan, udpFrame(), EtherType::kServiceVlan), MAC_REWRITE_REWRITTEN, kRowMac);
  expectUnchanged(tagged(200, udpFrame()), MAC_REWRITE_NO_ROW);
  expectUnchanged(tagged(0, udpFrame()), MAC_REWRITE_NO_VLAN);
  expectUnchanged(udpFrame(), MAC_REWRITE_NO_VLAN);
}

TEST_F(Program, DeviceThatIsNotListedGoesByTag) {
  U32 const loopback = 1;
  ASSERT_EQ(kernel_->devices().erase(&loopback), 0);
  expect(tagged(kRowVlan, udpFrame()), MAC_REWRITE_REWRITTEN, kRowMac);
}

TEST_F(Program, VniOfTheDeviceSaysTheVlan) {
  U32 const vni = 10'100;
  U32 const vlan = kRowVlan;
  deviceIs({.vlan = 0, .vni = vni, .made_qdisc = 0, .name = {}});
  expectUnchanged(udpFrame(), MAC_REWRITE_NO_VLAN);
  ASSERT_EQ(kernel_->vnis().update(&vni, &vlan, BPF_ANY), 0);
  expect(udpFrame(), MAC_REWRITE_REWRITTEN, kRowMac);
}

TEST_F(Program, ReservedVlanAndSecondTagAreNotLookedUp) {
  expectUnchanged(tagged(4095, udpFrame()), MAC_REWRITE_RESERVED_VLAN);
  expectUnchanged(tagged(4095, tagged(kRowVlan, udpFrame())), MAC_REWRITE_RESERVED_VLAN);
  expectUnchanged(tagged(kRowVlan, tagged(kRowVlan, udpFrame())), MAC_REWRITE_DOUBLE_TAGGED);
}

TEST_F(Program, FrameThatEndsInItsTagIsTooShort) {
  Buffer frame = ethernet(EtherType::kVlan, counting(3));
  expectUnchanged(frame, MAC_REWRITE_TOO_SHORT);
}

TEST_F(Program, HitsOfARowOutliveAnOverwriteAndNotAnErase) {
  for (int i = 0; i < 3; ++i) BfnTest::run(kernel_->fd(), udpFrame());
  EXPECT_EQ(hits(kRowVlan, kHost), 3u);
  rowIs(kRowVlan, kHost, kPeerMac);
  EXPECT_EQ(hits(kRowVlan, kHost), 3u);
  expect(udpFrame(), MAC_REWRITE_REWRITTEN, kPeerMac);
  ASSERT_EQ(table_->erase(handle_, BfnTest::rewriteKey(kRowVlan, kHost)),
            BfnDriver::EraseResult::Ok);
  rowIs(kRowVlan, kHost, kRowMac);
  EXPECT_EQ(hits(kRowVlan, kHost), 0u);
}

TEST_F(Program, HitsOfTheTableAreItsCounters) {
  BfnTest::run(kernel_->fd(), udpFrame());
  rowIs(kRowVlan, kHost, {});
  BfnTest::run(kernel_->fd(), udpFrame());
  ASSERT_EQ(table_->erase(handle_, BfnTest::rewriteKey(kRowVlan, kHost)),
            BfnDriver::EraseResult::Ok);
  BfnTest::run(kernel_->fd(), udpFrame());
  BfnTest::run(kernel_->fd(), ethernet(EtherType::kArp, counting(28)));
  BfnDriver::TableHits hits;
  ASSERT_EQ(table_->tableHits(handle_, hits), BfnDriver::Status::Ok);
  EXPECT_EQ(hits, (BfnDriver::TableHits{2, 1}));
  ASSERT_EQ(table_->tableHitsClear(handle_), BfnDriver::Status::Ok);
  ASSERT_EQ(table_->tableHits(handle_, hits), BfnDriver::Status::Ok);
  EXPECT_EQ(hits, BfnDriver::TableHits{});
}

}  // namespace
