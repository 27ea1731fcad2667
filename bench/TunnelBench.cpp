// SPDX-License-Identifier: Apache-2.0
// TCP through a VXLAN tunnel between two network namespaces, with the program on the near end's
// device and without it.
#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "bench/KernelScene.h"
#include "kernel/Ports.h"

namespace {

using namespace BfnBench;

// How long one repetition sends.
constexpr char kSeconds[] = "1";

/// This process is the near end and its host; the far end is another namespace.
class Tunnel {
 public:
  Tunnel() {
    run(nullptr, "ip link add under type veth peer name under netns " + std::to_string(far_.pid()));
    end(nullptr, "1", "2");
    end(&far_, "2", "1");
    run(nullptr,
        "i=0; until ping -q -c 1 -W 1 10.1.0.2 > /dev/null; do i=$((i+1)); "
        "[ $i -lt 5 ] || exit 1; done");
  }

  /// Bits for each second that the far end received; 0 when iperf3 failed.
  double bitsPerSecond() {
    std::string const report = BfnTest::outputOf(
        "for i in 1 2 3 4 5 6 7 8 9 10; do out=$(iperf3 -J -c 10.1.0.2 -t " +
        std::string(kSeconds) + ") && break; sleep 0.1; done; printf %s \"$out\"");
    server_.wait();
    auto const json = nlohmann::json::parse(report, nullptr, false);
    return json.is_discarded() || !json.contains("end") || !json["end"].contains("sum_received")
               ? 0
               : json["end"]["sum_received"].value("bits_per_second", 0.0);
  }

 private:
  static void run(BfnTest::OtherHost const* host, std::string const& line) {
    if ((host != nullptr ? host->shell(line) : BfnTest::shell(line)) != 0) {
      throw std::runtime_error(line);
    }
  }
  static void end(BfnTest::OtherHost const* host, std::string const& self,
                  std::string const& peer) {
    run(host, "ip addr add 192.0.2." + self + "/24 dev under && ip link set under up && " +
                  "ip link add vx0 type vxlan id 100 dstport 4789 local 192.0.2." + self +
                  " remote 192.0.2." + peer + " && ip link set vx0 up && ip addr add 10.1.0." +
                  self + "/24 dev vx0");
  }

  BfnTest::OtherHost far_;
  BfnTest::Running server_ = far_.start("exec iperf3 -s -1 2>&1 > /dev/null");
};

void tcp(benchmark::State& state, bool withProgram) {
  if (cannotRun(state)) return;
  if (BfnTest::shell("which iperf3 ping > /dev/null") != 0) {
    state.SkipWithError("skipped: iperf3 or ping is missing");
    return;
  }
  KernelChip kernel;
  Tunnel tunnel;
  BfnKernel::Ports ports(kernel.program);
  if (withProgram) {
    ports.attach("vx0", kVlan);
    kernel.driver.write(kernel.handle, BfnTest::rewriteKey(kVlan, {10, 1, 0, 1}),
                        BfnTest::rewriteAction({2, 0, 0, 0, 0, 1}));
  }
  double bits = 0;
  for (auto _ : state) {
    bits = tunnel.bitsPerSecond();
    if (bits == 0) state.SkipWithError("iperf3 failed");
    state.SetIterationTime(bits == 0 ? 1 : 1e9 / bits);
  }
  auto const hit = kernel.program.counters().of(MAC_REWRITE_REWRITTEN);
  if (withProgram != (hit > 1000)) state.SkipWithError("frames did not meet the row as planned");
  state.counters["Gbit_per_s"] = bits * 1e-9;
}
BENCHMARK_CAPTURE(tcp, with, true)->Name("Tunnel/tcp_with")->UseManualTime()->Iterations(1);
BENCHMARK_CAPTURE(tcp, without, false)->Name("Tunnel/tcp_without")->UseManualTime()->Iterations(1);

}  // namespace
