// SPDX-License-Identifier: Apache-2.0
// Small frames through a full table of 65,536 rows and out into VXLAN packets, on one core: items
// are frames. What this is held to is a million frames a second.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "chip/ChipModel.h"
#include "host/packets/CaptureWriter.h"
#include "host/packets/ForwardCapture.h"
#include "host/packets/Forwarder.h"
#include "tests/support/RewriteRow.h"

namespace {

using namespace Host::Packets;
using Kiv::U16;
using Kiv::U32;
using Kiv::U8;

constexpr U32 kRows = 65'536;
constexpr size_t kFrames = 65'536;
constexpr size_t kFrameSize = 64;  // a tag, and the smallest payload

struct Flow {
  U16 vlan;
  AddressBytes source;
};

// 256 VLANs with 256 addresses each; numbers from kRows on have no row.
Flow flowOf(U32 number) {
  return {static_cast<U16>(100 + number % 256),
          {10, static_cast<U8>(number / kRows), static_cast<U8>(number >> 8 & 0xff), 7}};
}

void writeRows(BfnChip::ChipModel& chip) {
  auto const table = chip.open({0, 0, {}, "profile", BfnChip::ChipModel::kRewriteTable});
  for (U32 i = 0; i < kRows; ++i) {
    auto const [vlan, source] = flowOf(i);
    MacBytes const mac{2, 0, 0, 1, 2, static_cast<U8>(i)};
    if (chip.write(*table, BfnTest::rewriteKey(vlan, source), BfnTest::rewriteAction(mac)) !=
        BfnDriver::WriteResult::Ok) {
      throw std::runtime_error("the chip refused a row");
    }
  }
}

// A tagged UDP datagram, its payload filled up to the frame's size.
std::vector<U8> frameOf(Flow const& flow) {
  std::vector<U8> frame(kFrameSize);
  MutableBytes const bytes(frame);
  EthernetHeader{{2, 0, 0, 0, 0, 1}, {2, 0, 0, 0, 0, 2}, EtherType::kVlan}.write(bytes);
  VlanTag{0, false, flow.vlan, EtherType::kIpv4}.write(bytes.subspan(14));
  Ipv4Header ipv4;
  ipv4.protocol = IpProtocol::kUdp;
  ipv4.totalLength = kFrameSize - 18;
  ipv4.source = flow.source;
  ipv4.destination = {10, 9, 9, 9};
  ipv4.write(bytes.subspan(18));
  ipv4ChecksumIs(bytes.subspan(18));
  UdpHeader{40'000, 5'005, kFrameSize - 38, 0}.write(bytes.subspan(38));
  return frame;
}

// Frames of random flows; the flow of a given percentage of them has a row.
std::vector<std::vector<U8>> framesFor(int hitsInAHundred) {
  std::mt19937 random(1);
  std::vector<std::vector<U8>> frames;
  for (size_t i = 0; i < kFrames; ++i) {
    bool const hit = static_cast<int>(random() % 100) < hitsInAHundred;
    frames.push_back(frameOf(flowOf(static_cast<U32>(random() % kRows) + (hit ? 0 : kRows))));
  }
  return frames;
}

void report(benchmark::State& state, ForwardTotals const& totals) {
  state.SetItemsProcessed(static_cast<std::int64_t>(totals.frames));
  state.counters["hits"] =
      static_cast<double>(totals.of(Verdict::Rewritten)) / static_cast<double>(totals.frames);
  if (totals.dropped() > 0) state.SkipWithError("frames were dropped");
}

void inMemory(benchmark::State& state, bool udpChecksum) {
  BfnChip::ChipModel chip(kRows);
  writeRows(chip);
  ForwarderConfig config;
  config.tunnel.udpChecksum = udpChecksum;
  Forwarder forwarder(chip, config);
  auto const frames = framesFor(static_cast<int>(state.range(0)));
  size_t at = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(forwarder.forward(frames[at]).packet.data());
    if (++at == frames.size()) at = 0;
  }
  report(state, forwarder.totals());
}
BENCHMARK_CAPTURE(inMemory, withUdpChecksum, true)->ArgName("hits")->Arg(100)->Arg(50)->Arg(0);
BENCHMARK_CAPTURE(inMemory, withoutUdpChecksum, false)->ArgName("hits")->Arg(50);

void fileToFile(benchmark::State& state) {
  BfnChip::ChipModel chip(kRows);
  writeRows(chip);
  Forwarder forwarder(chip);
  std::string folder = (std::filesystem::temp_directory_path() / "packets-bench-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("cannot create " + folder);
  std::filesystem::path const in = std::filesystem::path(folder) / "in.pcap";
  std::filesystem::path const out = std::filesystem::path(folder) / "out.pcap";
  {
    CaptureWriter writer(in);
    auto const frames = framesFor(50);
    for (int round = 0; round < 16; ++round) {
      for (auto const& frame : frames) writer.write({{1, 0}, frame, frame.size()});
    }
    writer.close();
  }
  for (auto _ : state) {
    forwardCapture(in, out, forwarder);
    state.PauseTiming();
    std::filesystem::remove(out);
    state.ResumeTiming();
  }
  std::filesystem::remove_all(folder);
  report(state, forwarder.totals());
}
BENCHMARK(fileToFile)->Unit(benchmark::kMillisecond);

}  // namespace
