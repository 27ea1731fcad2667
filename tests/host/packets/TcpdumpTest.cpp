// SPDX-License-Identifier: Apache-2.0
// What another program makes of the packets that leave.
#include <array>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "host/packets/CaptureWriter.h"
#include "host/packets/ForwardCapture.h"
#include "tests/host/packets/Samples.h"

namespace {

using namespace Host::Packets;
using BfnTest::Buffer;
using BfnTest::tagged;
using BfnTest::udpFrame;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string outputOf(std::string const& command) {
  auto const close = [](std::FILE* pipe) { pclose(pipe); };
  std::unique_ptr<std::FILE, decltype(close)> const pipe(popen(command.c_str(), "r"), close);
  std::string output;
  std::array<char, 4096> piece;
  while (size_t const size = std::fread(piece.data(), 1, piece.size(), pipe.get())) {
    output.append(piece.data(), size);
  }
  return output;
}

// One text for each packet: only a packet's first line begins with a time.
std::vector<std::string> packetsOf(std::filesystem::path const& capture) {
  static std::regex const kTime(R"(^\d+\.\d{6} )");
  std::istringstream lines(
      outputOf("tcpdump -nn -e -tt -vv -r '" + capture.string() + "' 2>/dev/null"));
  std::vector<std::string> packets;
  for (std::string line; std::getline(lines, line);) {
    if (std::regex_search(line, kTime)) packets.emplace_back();
    if (!packets.empty()) packets.back() += line + "\n";
  }
  return packets;
}

// The VNI and what follows it: the inner frame, from its source MAC on.
struct Inner {
  std::string vni;
  std::string sourceMac;
};

Inner innerOf(std::string const& packet) {
  static std::regex const kForm(R"(vni (\d+)\n([0-9a-f:]{17}) > )");
  std::smatch match;
  if (!std::regex_search(packet, match, kForm)) return {"none in " + packet, ""};
  return {match[1], match[2]};
}

class TcpdumpTest : public testing::Test {
 protected:
  void SetUp() override {
    if (outputOf("tcpdump --version 2>&1").find("libpcap") == std::string::npos) {
      GTEST_SKIP() << "tcpdump is not installed";
    }
  }

  std::vector<std::string> forwarded(std::vector<Buffer> const& frames,
                                     ForwarderConfig const& config = {}) {
    {
      CaptureWriter writer(folder / "in.pcap");
      for (Buffer const& frame : frames) writer.write({{1, 2'000}, frame, frame.size()});
    }
    Forwarder forwarder(chip, config);
    forwardCapture(folder / "in.pcap", folder / "out.pcap", forwarder);
    return packetsOf(folder / "out.pcap");
  }

  BfnTest::Folder folder;
  BfnChip::ChipModel chip;
};

TEST_F(TcpdumpTest, ReadsTheOuterHeadersAndFindsTheChecksumsRight) {
  auto const packets = forwarded({udpFrame()});
  ASSERT_EQ(packets.size(), 1u);
  EXPECT_THAT(packets[0],
              testing::StartsWith(
                  "1.000002 02:00:5e:00:00:01 > 02:00:5e:00:00:02, ethertype IPv4 (0x0800), "
                  "length 110: (tos 0x0, ttl 64, id 0, offset 0, flags [DF], proto UDP (17), "
                  "length 96)\n"));
  EXPECT_THAT(packets[0], testing::ContainsRegex(
                              R"(192\.0\.2\.1\.[0-9]+ > 192\.0\.2\.2\.4789: \[udp sum ok\] VXLAN, )"
                              R"(flags \[I\] \(0x08\), vni 10001)"));
  EXPECT_THAT(packets[0], HasSubstr("10.1.2.3.40000 > 10.1.1.20.5005: [udp sum ok] UDP"));
}

TEST_F(TcpdumpTest, SeesNoUdpChecksumWhenItIsOff) {
  ForwarderConfig config;
  config.tunnel.udpChecksum = false;
  auto const packets = forwarded({udpFrame()}, config);
  ASSERT_EQ(packets.size(), 1u);
  EXPECT_THAT(packets[0], HasSubstr("4789: [no cksum] VXLAN"));
}

TEST_F(TcpdumpTest, SeesTheRowsMacInTheRowsVlanOnly) {
  BfnTest::rowIs(chip, 100, BfnTest::kHost, BfnTest::kRowMac);
  auto const packets = forwarded({tagged(100, udpFrame()), tagged(101, udpFrame())});
  ASSERT_EQ(packets.size(), 2u);
  EXPECT_EQ(innerOf(packets[0]).vni, "10100");
  EXPECT_EQ(innerOf(packets[0]).sourceMac, "02:5e:10:01:02:03");
  EXPECT_THAT(packets[0], HasSubstr("vlan 100, p 0"));
  EXPECT_EQ(innerOf(packets[1]).vni, "10101");
  EXPECT_EQ(innerOf(packets[1]).sourceMac, "02:aa:00:00:00:0a");
}

TEST_F(TcpdumpTest, FindsNothingWrongWithFramesOfManyLengths) {
  std::vector<Buffer> frames;
  for (size_t size = 0; size < 200; ++size) frames.push_back(udpFrame(size));
  for (size_t const size : {1'471u, 1'472u, 8'999u, 9'174u}) frames.push_back(udpFrame(size));
  auto const packets = forwarded(frames);
  ASSERT_EQ(packets.size(), frames.size());
  for (std::string const& packet : packets) {
    EXPECT_THAT(packet, HasSubstr("4789: [udp sum ok] VXLAN"));
    EXPECT_THAT(packet, Not(HasSubstr("bad")));
    EXPECT_THAT(packet, Not(HasSubstr("invalid")));
  }
}

TEST_F(TcpdumpTest, ReadsTheForwardedRecordingOfTheExample) {
  AddressBytes const hosta{10, 1, 1, 11};
  BfnTest::rowIs(chip, 100, hosta, BfnTest::kRowMac);
  std::filesystem::path const recording = std::filesystem::path(EXAMPLES_DIR) / "leaf1/hosts.pcap";
  size_t rewritten = 0;
  Forwarder forwarder(chip);
  std::vector<ForwardedFrame> results;
  forwardCapture(recording, folder / "out.pcap", forwarder, [&](ForwardedFrame const& result) {
    results.push_back(result);
    if (result.verdict == Verdict::Rewritten) ++rewritten;
  });

  auto const before = packetsOf(recording);
  auto const after = packetsOf(folder / "out.pcap");
  ASSERT_EQ(before.size(), results.size());
  ASSERT_EQ(after.size(), results.size()) << "nothing of it is dropped";
  for (size_t i = 0; i < results.size(); ++i) {
    // By what tcpdump says of the frame, not by what the forwarder does.
    bool const hit = before[i].find("vlan 100, p 0, ethertype IPv4") != std::string::npos &&
                     before[i].find("10.1.1.11") < before[i].find("10.1.1.20");
    std::string const macBefore = before[i].substr(before[i].find(' ') + 1, 17);
    EXPECT_EQ(innerOf(after[i]).sourceMac, hit ? "02:5e:10:01:02:03" : macBefore) << before[i];
    EXPECT_THAT(after[i], HasSubstr("[udp sum ok] VXLAN"));
    EXPECT_THAT(after[i], Not(HasSubstr("bad")));
  }
  EXPECT_GT(rewritten, 0u);
  EXPECT_LT(rewritten, results.size());
}

}  // namespace
