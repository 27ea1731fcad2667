// SPDX-License-Identifier: Apache-2.0
#include "host/packets/ForwardCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "host/packets/CaptureReader.h"
#include "host/packets/CaptureWriter.h"
#include "tests/host/packets/Samples.h"

namespace {

using namespace Host::Packets;
using BfnTest::Buffer;
using BfnTest::kHost;
using BfnTest::kRowMac;
using BfnTest::tagged;
using BfnTest::udpFrame;
using testing::ElementsAre;

class ForwardCaptureTest : public testing::Test {
 protected:
  ForwardCaptureTest() { BfnTest::rowIs(chip, 100, kHost, kRowMac); }

  // Three frames, the second of which is dropped, a nanosecond more than a second apart.
  void writeInput(TimeUnit unit = TimeUnit::Nanoseconds) {
    CaptureWriter writer(in, unit);
    Kiv::U32 i = 0;
    for (Buffer const& frame :
         {tagged(100, udpFrame()), tagged(4095, udpFrame()), tagged(200, udpFrame())}) {
      ++i;
      writer.write({{1'000 + i, i}, frame, frame.size()});
    }
  }
  std::vector<Timestamp> timesOfOutput() {
    std::vector<Timestamp> times;
    CaptureReader reader(out);
    while (auto const frame = reader.next()) {
      EXPECT_TRUE(readVxlan(frame->bytes));
      EXPECT_EQ(frame->wireLength, frame->bytes.size());
      times.push_back(frame->time);
    }
    return times;
  }

  BfnTest::Folder folder;
  std::filesystem::path const in = folder / "in.pcap";
  std::filesystem::path const out = folder / "out.pcap";
  BfnChip::ChipModel chip;
  Forwarder forwarder{chip};
};

TEST_F(ForwardCaptureTest, WritesWhatLeavesWithItsTime) {
  writeInput();
  forwardCapture(in, out, forwarder);
  EXPECT_THAT(timesOfOutput(), ElementsAre(Timestamp{1'001, 1}, Timestamp{1'003, 3}));
  EXPECT_EQ(CaptureReader(out).timeUnit(), TimeUnit::Nanoseconds);
  EXPECT_EQ(forwarder.totals().frames, 3u);
}

TEST_F(ForwardCaptureTest, KeepsTheTimeUnitOfItsInput) {
  writeInput(TimeUnit::Microseconds);
  forwardCapture(in, out, forwarder);
  EXPECT_EQ(CaptureReader(out).timeUnit(), TimeUnit::Microseconds);
}

TEST_F(ForwardCaptureTest, NotifiesItsObserverOfEachFrameInTurn) {
  writeInput();
  std::vector<std::string> seen;
  forwardCapture(in, out, forwarder, [&](ForwardedFrame const& frame) {
    seen.push_back(std::to_string(frame.number) + " " + std::string(text(frame.verdict)));
  });
  EXPECT_THAT(seen, ElementsAre("1 rewritten", "2 reserved VLAN", "3 no row"));
}

TEST_F(ForwardCaptureTest, KeepsWhatWasWrittenWhenItsInputBreaksOff) {
  writeInput();
  Buffer bytes = BfnTest::fileBytes(in);
  bytes.pop_back();
  BfnTest::fileIs(in, bytes);
  EXPECT_THROW(forwardCapture(in, out, forwarder), CaptureError);
  EXPECT_THAT(timesOfOutput(), ElementsAre(Timestamp{1'001, 1}));
  EXPECT_EQ(forwarder.totals().frames, 2u);
}

TEST_F(ForwardCaptureTest, LeavesItsOutputAloneWhenItsInputIsNoCapture) {
  BfnTest::fileIs(in, BfnTest::hex("00112233445566"));
  BfnTest::fileIs(out, BfnTest::hex("aabb"));
  EXPECT_THROW(forwardCapture(in, out, forwarder), CaptureError);
  EXPECT_EQ(BfnTest::fileBytes(out), BfnTest::hex("aabb"));
}

TEST_F(ForwardCaptureTest, RefusesToWriteOverItsInput) {
  writeInput();
  Buffer const before = BfnTest::fileBytes(in);
  std::filesystem::create_hard_link(in, out);
  EXPECT_THROW(forwardCapture(in, in, forwarder), CaptureError);
  EXPECT_THROW(forwardCapture(in, out, forwarder), CaptureError);
  EXPECT_EQ(BfnTest::fileBytes(in), before);
}

}  // namespace
