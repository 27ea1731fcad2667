// SPDX-License-Identifier: Apache-2.0
// What the agent's records take: the memory of one address in Agent::VrfStatus.

#include <benchmark/benchmark.h>
#include <cstddef>
#include <malloc.h>
#include <string>

#include "agent/records/BfnMacRewriteTypes.h"

namespace {

using namespace BfnMacRewrite;

size_t allocatedBytes() {
  struct mallinfo2 const info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// All that the heap holds for the addresses counts: the table, and the texts of the interface ids,
// of which there are as many as a large switch has ports.
void fillVrfStatus(benchmark::State& state) {
  constexpr U32 kPorts = 512;
  U32 const count = static_cast<U32>(state.range(0));
  double bytes = 0;
  for (auto _ : state) {
    Kiv::Ptr<Agent::VrfStatus> const status = Kiv::makeActive<Agent::VrfStatus>(Pex::VrfId(7));
    size_t const before = allocatedBytes();
    for (U32 i = 0; i < count; ++i) {
      std::string const port = "Ethernet" + std::to_string(i % kPorts);
      Ovra::IpAddr const address(0x0A00'0000 + i);
      status->ipAndIntfIdIs({address, Ovra::IntfId(port.c_str()), false});
    }
    bytes = static_cast<double>(allocatedBytes() - before);
  }
  double const perAddress = bytes / count;
  state.counters["bytesPerAddress"] = perAddress;
  state.counters["timesValue"] = perAddress / sizeof(Agent::IpAndIntfId);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(fillVrfStatus)->Name("VrfStatus/fill")->Arg(65'536);

}  // namespace
