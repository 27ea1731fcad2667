// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>
#include <memory>
#include <vector>

#include "agent/records/BfnMacRewriteInput.h"
#include "framework/corvo/Replica.h"

// What it costs that a configuration is mounted for reading: a line written to the operator's
// entity alone, and to one that readers have replicas of.
namespace {

using BfnMacRewrite::Input::Config;
using BfnMacRewrite::Input::VrfIpAndMac;

constexpr Kiv::U32 kLines = 65536;
constexpr Kiv::U32 kVrfs = 16;

std::vector<VrfIpAndMac> lines() {
  std::vector<VrfIpAndMac> lines;
  for (Kiv::U32 i = 0; i < kLines; ++i) {
    lines.push_back({L3::VrfName("vrf" + std::to_string(i % kVrfs)), Ovra::IpAddr(0x0a000000 + i),
                     Ovra::ethAddrFromOuiStation(0x020000, i)});
  }
  return lines;
}

void lineWritten(benchmark::State& state) {
  std::vector<VrfIpAndMac> const all = lines();
  for (auto _ : state) {
    state.PauseTiming();
    auto config = Kiv::makeActive<Config>();
    std::vector<Kiv::Ptr<Config>> copies;
    std::vector<std::unique_ptr<Corvo::Replica>> readers;
    for (int i = 0; i < state.range(0); ++i) {
      copies.push_back(Kiv::makeActive<Config>());
      readers.push_back(std::make_unique<Corvo::Replica>(config, copies.back(), "config"));
    }
    state.ResumeTiming();
    for (VrfIpAndMac const& line : all) config->overlaySrcMacRewriteEntryIs(line);
    state.PauseTiming();
    readers.clear();
    copies.clear();
    config.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kLines);
}
BENCHMARK(lineWritten)
    ->Name("StateDatabase/lineWritten/readers")
    ->Arg(0)
    ->Arg(1)
    ->Arg(4)
    ->Unit(benchmark::kMillisecond);

}  // namespace
