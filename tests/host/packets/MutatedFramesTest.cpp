// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "host/packets/CaptureReader.h"
#include "host/packets/CaptureWriter.h"
#include "host/packets/ForwardCapture.h"
#include "host/packets/Forwarder.h"
#include "tests/host/packets/Samples.h"
#include "tests/support/Seed.h"

namespace {

using namespace Host::Packets;
using BfnTest::Buffer;
using BfnTest::counting;
using BfnTest::ethernet;
using BfnTest::kHost;
using BfnTest::tagged;
using BfnTest::udpFrame;

class MutatedFrames : public testing::Test {
 protected:
  MutatedFrames() {
    std::cout << "seed " << seed_ << '\n';
    RecordProperty("seed", std::to_string(seed_));
    for (Kiv::U16 const vlan : std::initializer_list<Kiv::U16>{1, 100, 300})
      BfnTest::rowIs(chip, vlan, kHost, BfnTest::kRowMac);
    BfnTest::rowIs(chip, 200, kHost, {});
    Ipv4Header fragment;
    fragment.flagsAndOffset = Ipv4Header::kMoreFragments;
    frames = {udpFrame(),
              tagged(100, udpFrame()),
              tagged(200, udpFrame()),
              tagged(300, tagged(20, udpFrame())),
              tagged(4095, udpFrame()),
              tagged(100, ethernet(EtherType::kIpv4, BfnTest::ipv4(counting(9), {}, Buffer(8, 1)))),
              ethernet(EtherType::kIpv4, BfnTest::ipv4(counting(48), fragment)),
              ethernet(EtherType::kIpv6, counting(60)),
              ethernet(EtherType::kArp, counting(28)),
              ethernet(0x88cc, counting(46))};
    storeBytes(frames.back(), 0, MacBytes{0x01, 0x80, 0xc2, 0, 0, 0x0e});
  }

  size_t below(size_t limit) {
    return std::uniform_int_distribution<size_t>(0, limit - 1)(random_);
  }
  void mutate(Buffer& bytes, size_t from = 0) {
    for (size_t changes = below(4); changes > 0 && bytes.size() > from; --changes) {
      size_t const at = from + below(bytes.size() - from);
      switch (below(4)) {
        case 0:
          bytes[at] = static_cast<Kiv::U8>(below(256));
          break;
        case 1:
          bytes[at] = static_cast<Kiv::U8>(bytes[at] ^ 1u << below(8));
          break;
        case 2:
          bytes.resize(at);
          break;
        default:
          bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), below(20), Kiv::U8{0x81});
      }
    }
  }

  BfnChip::ChipModel chip;
  std::vector<Buffer> frames;

 private:
  unsigned const seed_ = BfnTest::testSeed(std::random_device{}());
  std::mt19937 random_{seed_};
};

TEST_F(MutatedFrames, LeaveWholeOrAreDroppedForAReason) {
  ForwarderConfig config;
  config.dropLinkLocal = true;
  Forwarder forwarder(chip, config);
  config.stripTag = true;
  config.carryTypeOfService = true;
  config.judgeTruncated = true;
  Forwarder withOptions(chip, config);
  Kiv::U64 bytesOut = 0;
  for (int i = 0; i < 100'000; ++i) {
    Buffer frame = frames[below(frames.size())];
    mutate(frame);
    frame.shrink_to_fit();  // so that a read past its end is seen
    size_t const wireLength = frame.size() + (below(8) == 0 ? below(100) : 0);
    ForwardedFrame const result = forwarder.forward(frame, wireLength);
    ASSERT_EQ(isForwarded(result.verdict), !result.packet.empty());
    ForwardedFrame const other = withOptions.forward(frame, wireLength);
    ASSERT_EQ(isForwarded(other.verdict), !other.packet.empty());
    if (result.packet.empty()) continue;
    bool const stripped = readFrame(frame)->tag.has_value();
    ASSERT_EQ(other.packet.size() + (stripped ? VlanTag::kSize : 0), result.packet.size());
    bytesOut += result.packet.size();
    auto const read = readVxlan(result.packet);
    ASSERT_TRUE(read);
    ASSERT_EQ(read->vxlan.vni, 10'000u + *result.vlan);
    storeBytes(frame, EthernetHeader::kSourceAt, *result.macAfter);
    ASSERT_TRUE(std::ranges::equal(read->inner, frame));
    // What changed the MAC can only be a row, and rows are for kHost.
    if (result.macAfter != result.macBefore) {
      ASSERT_EQ(result.source, kHost);
    }
  }
  ForwardTotals const& totals = forwarder.totals();
  EXPECT_EQ(totals.bytesOut, bytesOut);
  EXPECT_EQ(totals.frames, 100'000u);
  for (size_t i = 0; i < kVerdicts; ++i) {
    if (Verdict(i) == Verdict::TooLong) continue;  // none of them is so long
    EXPECT_GT(totals.byVerdict[i], 0u) << "a run without a frame that is " << text(Verdict(i));
  }
}

TEST_F(MutatedFrames, InABrokenCaptureEndItWithAnErrorAtMost) {
  BfnTest::Folder const folder;
  {
    CaptureWriter writer(folder / "good.pcap");
    for (Buffer const& frame : frames) writer.write({{1, 2}, frame, frame.size()});
  }
  Buffer const good = BfnTest::fileBytes(folder / "good.pcap");
  int broken = 0;
  for (int i = 0; i < 1'000; ++i) {
    Buffer bytes = good;
    mutate(bytes, below(2) == 0 ? 0 : 24);
    BfnTest::fileIs(folder / "bad.pcap", bytes);
    std::filesystem::remove(folder / "out.pcap");
    Forwarder forwarder(chip);
    Kiv::U64 left = 0;
    bool opened = true;
    try {
      forwardCapture(folder / "bad.pcap", folder / "out.pcap", forwarder);
    } catch (CaptureError const&) {
      ++broken;
      opened = forwarder.totals().frames > 0;
    }
    if (!opened) continue;
    CaptureReader reader(folder / "out.pcap");
    while (reader.next()) ++left;
    ASSERT_EQ(left, forwarder.totals().forwarded());
  }
  EXPECT_GT(broken, 0);
}

}  // namespace
