// What the show command costs, all phases, against formatting the same lines by snprintf, and the
// longest of its slices under a quantum.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "framework/core/Clock.h"
#include "show/ShowMacRewriteCommandRequestSm.h"
#include "tests/support/PluginHost.h"

namespace {

using BfnMacRewrite::ShowMacRewriteCommandRequestSm;
using BfnTest::PluginHost;
using Kiv::U32;

constexpr unsigned kRows = 65'536;

struct Line {
  std::string vrf;
  U32 ip;
  unsigned char mac[6];
};

/// The host of a switch with that many VRFs, kRows rows in all, each with a MAC of its own, and the
/// lines that a listing of them has.
struct Switch {
  explicit Switch(unsigned vrfs) : host(kRows) {
    host.bringUp();
    char name[32];
    char intf[32];
    for (unsigned i = 0; i < vrfs; ++i) {
      std::snprintf(name, sizeof name, "customer-%04u", i);
      std::snprintf(intf, sizeof intf, "Ethernet%u/%u", i / 64 + 1, i % 64 + 1);
      host.vrf(name, i + 1);
      host.port(intf, i + 1, i + 1);
      unsigned const end = static_cast<unsigned>(std::size_t{kRows} * (i + 1) / vrfs);
      for (unsigned n = static_cast<unsigned>(std::size_t{kRows} * i / vrfs); n < end; ++n) {
        Line line{name,
                  0x0a000000u + n * 7,
                  {2, 0, 0, static_cast<unsigned char>(n >> 16), static_cast<unsigned char>(n >> 8),
                   static_cast<unsigned char>(n)}};
        std::string const ip = Ovra::IpAddr(line.ip).valueToStrep().stdString();
        char mac[32];
        std::snprintf(mac, sizeof mac, "02:00:00:%02x:%02x:%02x", line.mac[3], line.mac[4],
                      line.mac[5]);
        host.rewrite(name, ip.c_str(), mac);
        host.address(i + 1, ip.c_str(), intf);
        lines.push_back(std::move(line));
      }
    }
  }

  Kiv::Ptr<ShowMacRewriteCommandRequestSm> command(double maxRunTime, prettyout::Sink sink,
                                                   U32 format = 0) const {
    return BfnMacRewrite::showMacRewriteCommandRequestSmFactory(
        "show", Kiv::make<Agent::AgentCommandRequest const>(1u, format, std::move(sink)),
        maxRunTime, Kiv::make<Kiv::SteadyClock const>(), host.agent->overlaySrcMacRewriteManager(),
        false, L3::VrfName(), false, Ovra::IpAddr(), false, Ovra::EthAddr(), false);
  }

  PluginHost host;
  std::vector<Line> lines;
};

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

/// The listing, its columns by snprintf.
void appendLines(std::string& out, std::vector<Line> const& lines) {
  char text[160];
  char ip[20];
  char mac[20];
  for (Line const& line : lines) {
    std::snprintf(ip, sizeof ip, "%u.%u.%u.%u", line.ip >> 24, line.ip >> 16 & 0xff,
                  line.ip >> 8 & 0xff, line.ip & 0xff);
    std::snprintf(mac, sizeof mac, "%02x:%02x:%02x:%02x:%02x:%02x", line.mac[0], line.mac[1],
                  line.mac[2], line.mac[3], line.mac[4], line.mac[5]);
    int const size =
        std::snprintf(text, sizeof text, "%-15s %-20s %-20s\n", line.vrf.c_str(), ip, mac);
    out.append(text, static_cast<std::size_t>(size));
  }
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

prettyout::Sink into(std::string& out) {
  return [&out](std::string_view text) {
    out += text;
    return text.size();
  };
}

void showUnsliced(benchmark::State& state) {
  Switch const& device = switchOf(state);
  std::string expected = "\n";
  char header[80];
  std::snprintf(header, sizeof header, "%-15s %-20s %-20s\n", "VRF name", "Source IP",
                "Source MAC");
  expected += header + std::string(60, '-') + "\n";
  appendLines(expected, device.lines);
  expected += "\n";
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
