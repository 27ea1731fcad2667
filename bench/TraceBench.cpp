// SPDX-License-Identifier: Apache-2.0
// What a trace statement costs, against reading the time-stamp counter and writing the same bytes
// raw.
#include <benchmark/benchmark.h>
#include <cstring>
#include <string_view>

#include "framework/trace/Trace.h"

KIV_TRACE_FACILITY("TraceBench")

namespace {

using Kiv::U32;
using Kiv::U64;

struct Arguments {
  U32 vrfId = 7;
  char text[13] = "Ethernet1/10";
  U32 vlan = 100;

  std::string_view name() const { return {text, 12}; }
};

/// As large as the trace ring, so that both write to the same levels of the cache.
char rawRing[Ringlog::RingBuf::kDefaultBytes];

/// The words that a record has: header, one word for a number, two and a length for the text.
template <class Stamp>
void rawLoop(benchmark::State& state, Stamp stamp) {
  Arguments arguments;
  U64 head = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(arguments);
    char* const at = rawRing + (head & (sizeof rawRing - 1));
    U64 const words[] = {head, stamp(), 42, arguments.vrfId, 12};
    std::memcpy(at, words, sizeof words);
    std::memcpy(at + 40, arguments.text, 12);
    std::memset(at + 52, 0, 4);
    U64 const vlan = arguments.vlan;
    std::memcpy(at + 56, &vlan, sizeof vlan);
    head += 64;
    benchmark::ClobberMemory();
  }
}

void rawWithCounter(benchmark::State& state) {
  rawLoop(state, Ringlog::readCounter);
}
BENCHMARK(rawWithCounter)->Name("raw_bytes/counter");

void rawWithoutCounter(benchmark::State& state) {
  U64 const stamp = Ringlog::readCounter();
  rawLoop(state, [stamp] { return stamp; });
}
BENCHMARK(rawWithoutCounter)->Name("raw_bytes/no_counter");

void readTheCounter(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(Ringlog::readCounter());
}
BENCHMARK(readTheCounter)->Name("raw_bytes/counter_alone");

void traceOf(Arguments const& arguments) {
  KIV_TRACE(9, "vrfId: ", arguments.vrfId, " intfId: ", arguments.name(),
            ", vlan: ", arguments.vlan);
}

void traceLoop(benchmark::State& state) {
  Arguments arguments;
  for (auto _ : state) {
    benchmark::DoNotOptimize(arguments);
    traceOf(arguments);
    benchmark::ClobberMemory();
  }
}

void traceWithThreeArguments(benchmark::State& state) {
  traceLoop(state);
}
BENCHMARK(traceWithThreeArguments)->Name("Trace/three_arguments");

void traceInsideAnEvent(benchmark::State& state) {
  Ringlog::EventScope const event;
  traceLoop(state);
}
BENCHMARK(traceInsideAnEvent)->Name("Trace/three_arguments/in_event");

void eventScopeWithoutTraces(benchmark::State& state) {
  for (auto _ : state) {
    Ringlog::EventScope const event;
    benchmark::ClobberMemory();
  }
}
BENCHMARK(eventScopeWithoutTraces)->Name("Trace/event_scope");

void emptyLoop(benchmark::State& state) {
  for (auto _ : state) benchmark::ClobberMemory();
}
BENCHMARK(emptyLoop)->Name("Trace/empty_loop");

void disabledTextLevel(benchmark::State& state) {
  for (auto _ : state) {
    if (kivTraceHandle().enabled(4)) [[unlikely]]
      state.SkipWithError("level 4 is on");
    benchmark::ClobberMemory();
  }
}
BENCHMARK(disabledTextLevel)->Name("Trace/disabled_level");

}  // namespace
