// SPDX-License-Identifier: Apache-2.0
// What the show command costs, all phases, against formatting the same lines by snprintf, and the
// longest of its slices under a quantum.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <memory>
#include <string>
#include <vector>

#include "bench/ShowScene.h"
#include "framework/core/Clock.h"

namespace {

using namespace BfnBench;

Switch const& switchOf(benchmark::State const& state) {
  static std::unique_ptr<Switch> kept;
  static unsigned vrfs = 0;
  auto const wanted = static_cast<unsigned>(state.range(0));
  if (vrfs != wanted) {
    kept.reset();
    kept = std::make_unique<Switch>(wanted);
    vrfs = wanted;
  }
  return *kept;
}

void formatBySnprintf(benchmark::State& state) {
  Switch const& device = switchOf(state);
  std::string out;
  for (auto _ : state) {
    out.clear();
    appendLines(out, device.lines);
    benchmark::DoNotOptimize(out.data());
  }
}

void showUnsliced(benchmark::State& state) {
  Switch const& device = switchOf(state);
  std::string const expected = listing(device.lines);
  std::string out;
  for (auto _ : state) {
    out.clear();
    auto const command = device.command(1e6, into(out));
    if (command->runSlice() != Agent::SliceResult::Completed) state.SkipWithError("not unsliced");
    benchmark::DoNotOptimize(out.data());
  }
  if (out != expected) state.SkipWithError("not the same lines");
}

// The time of an iteration is that of its longest slice; `typical_ms` is the median of those, which
// one interruption by the machine's other work leaves alone.
void showLongestSlice(benchmark::State& state) {
  Switch const& device = switchOf(state);
  Kiv::SteadyClock const clock;
  std::string out;
  std::vector<double> longest;
  double slices = 0;
  for (auto _ : state) {
    out.clear();
    auto const command = device.command(0.005, into(out));
    double longestOfThis = 0;
    for (bool more = true; more; ++slices) {
      double const begin = clock.now();
      more = command->runSlice() == Agent::SliceResult::Again;
      longestOfThis = std::max(longestOfThis, clock.now() - begin);
    }
    state.SetIterationTime(longestOfThis);
    longest.push_back(longestOfThis);
  }
  std::ranges::sort(longest);
  state.counters["typical_ms"] = longest[longest.size() / 2] * 1e3;
  state.counters["longest_ms"] = longest.back() * 1e3;
  state.counters["slices"] = benchmark::Counter(slices, benchmark::Counter::kAvgIterations);
}

BENCHMARK(formatBySnprintf)->Name("show/snprintf")->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(showUnsliced)->Name("show/unsliced")->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(showLongestSlice)
    ->Name("show/longest_slice")
    ->Arg(10)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(100);
BENCHMARK(formatBySnprintf)->Name("show/snprintf")->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(showUnsliced)->Name("show/unsliced")->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(showLongestSlice)
    ->Name("show/longest_slice")
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(100);

}  // namespace
