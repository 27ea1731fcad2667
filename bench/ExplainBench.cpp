// SPDX-License-Identifier: Apache-2.0
// What it costs to explain one pair or row of a switch with 65,536 rows, as an answer in text.
#include <benchmark/benchmark.h>
#include <sstream>
#include <stdexcept>
#include <string>

#include "host/explain/Explain.h"
#include "host/shell/Shell.h"
#include "host/switch/Switch.h"

namespace {

constexpr unsigned kRows = 65'536;

std::string addressOf(unsigned number) {
  return "10." + std::to_string(number / 65'536) + '.' + std::to_string(number / 256 % 256) + '.' +
         std::to_string(number % 256);
}

struct Scene {
  Scene() {
    std::ostringstream lines;
    lines << "host profile p rewrite supported table-size 65535\nhost use profile p\n"
             "chip capacity "
          << kRows
          << "\nhost agent create\nhost init-tables true\nhost start true\n"
             "host vrf red id 7\nhost vrf blue id 8\n"
             "host routing-status port Ethernet1 key-vlan 0 vlan 1006 vrf-id 7\n";
    for (unsigned i = 0; i < kRows; ++i) {
      lines << "vxlan forwarding match vrf red src-ip " << addressOf(i)
            << " action rewrite src-mac 02:00:00:00:00:01\nhost address " << addressOf(i)
            << " vrf-id 7 interface Ethernet1\n";
    }
    // The row of a line that was removed keeps its MAC: whose it may be is looked for everywhere.
    lines << "no vxlan forwarding match vrf red src-ip " << addressOf(1) << '\n';
    std::istringstream in(lines.str());
    std::ostringstream err;
    if (shell.runStream(in, "scene", err) != Host::Shell::Done) throw std::runtime_error(err.str());
  }

  std::ostringstream out;
  Host::Switch host{Host::Plugin(LAB_PLUGIN), {nullptr, true}};
  Host::Shell shell{host, out, {}};
};

Scene& scene() {
  static Scene one;
  return one;
}

void explainVrf(benchmark::State& state, char const* vrf, unsigned address, Host::Reason expected) {
  auto const ip = Ovra::IpAddr(0x0a000000u + address);
  Host::Switch& host = scene().host;
  for (auto _ : state) {
    Host::FactFinder const finder(factSources(host));
    auto const explanation = Host::explained(finder.ofVrf(L3::VrfName(vrf), ip));
    if (explanation.reason != expected) state.SkipWithError("another reason");
    benchmark::DoNotOptimize(explanation.text());
  }
}

void explainRow(benchmark::State& state) {
  Host::Switch& host = scene().host;
  for (auto _ : state) {
    Host::FactFinder const finder(factSources(host));
    auto const explanation = explainedRow(finder, 1006, Ovra::IpAddr(0x0a000005u));
    if (!explanation.row) state.SkipWithError("no row");
    benchmark::DoNotOptimize(explanation.text());
  }
}

BENCHMARK_CAPTURE(explainVrf, row, "red", 5, Host::Reason::None);
BENCHMARK_CAPTURE(explainVrf, no_line, "blue", 5, Host::Reason::NoLine);
BENCHMARK_CAPTURE(explainVrf, line_removed, "red", 1, Host::Reason::LineRemoved);
BENCHMARK(explainRow);

}  // namespace
