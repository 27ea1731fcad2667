// SPDX-License-Identifier: Apache-2.0
// The kernel's table: changes and walks of 65,536 rows, and the program on the path of a frame.
#include <array>
#include <benchmark/benchmark.h>
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <cstring>
#include <linux/bpf.h>
#include <memory>
#include <spread.skel.h>
#include <vector>

#include "bench/KernelScene.h"
#include "host/packets/Headers.h"

namespace {

using namespace BfnBench;
using BfnDriver::WriteResult;
using Kiv::U32;
using Kiv::U8;

void overwrite(benchmark::State& state) {
  if (cannotRun(state)) return;
  Table table;
  table.fill();
  U32 n = 0;
  for (auto _ : state) {
    n = (n + 40'503) % kTableRows;
    if (table.driver.write(table.handle, table.keys[n], table.actions[0]) != WriteResult::Ok) {
      state.SkipWithError("a write failed");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(overwrite)->Name("KernelTable/overwrite");

void batches(benchmark::State& state) {
  if (cannotRun(state)) return;
  Table table;
  table.fill();
  auto const size = static_cast<size_t>(state.range(0));
  size_t from = 0;
  for (auto _ : state) {
    table.driver.apply(table.handle, std::span(table.changes).subspan(from, size),
                       std::span(table.results).first(size));
    from = (from + size) % kTableRows;
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(size));
}
BENCHMARK(batches)->Name("KernelTable/batch")->Arg(256);

void fillEmpty(benchmark::State& state) {
  if (cannotRun(state)) return;
  Table table;
  for (auto _ : state) {
    state.PauseTiming();
    table.driver.clear(table.handle);
    state.ResumeTiming();
    table.fill();
  }
  if (table.driver.entryCount(table.handle) != kTableRows) state.SkipWithError("rows are missing");
}
BENCHMARK(fillEmpty)->Name("KernelTable/fill/65536")->Unit(benchmark::kMillisecond);

void walk(benchmark::State& state) {
  if (cannotRun(state)) return;
  Table table;
  table.fill();
  std::vector<U8> keys(8 * 4096);
  std::vector<U8> actions(8 * 4096);
  for (auto _ : state) {
    BfnDriver::WalkCursor cursor;
    size_t rows = 0;
    size_t all = 0;
    while (!cursor.ended) {
      table.driver.walk(table.handle, cursor, keys, actions, rows);
      all += rows;
    }
    if (all != kTableRows) state.SkipWithError("rows are missing");
  }
}
BENCHMARK(walk)->Name("KernelTable/walk/65536")->Unit(benchmark::kMillisecond);

// Runs of the program over one frame, as the kernel times them: so many that each row has had its
// first hit, then a million that count.
void measure(benchmark::State& state, int program) {
  std::array<U8, 64> frame{};
  frame[12] = 0x08;
  Host::Packets::Ipv4Header header;
  header.totalLength = 50;
  header.source = {10, 0, 0, 0};
  header.destination = {10, 1, 0xff, 0xff};
  auto const packet = std::span(frame).subspan(14);
  header.write(packet);
  Host::Packets::ipv4ChecksumIs(packet);
  auto const run = [&](int repeat) {
    bpf_test_run_opts options{};
    options.sz = sizeof options;
    options.data_in = frame.data();
    options.data_size_in = static_cast<U32>(frame.size());
    options.repeat = repeat;
    if (bpf_prog_test_run_opts(program, &options) != 0) state.SkipWithError("no test run");
    return options.duration;
  };
  run(2 * static_cast<int>(kTableRows));
  for (auto _ : state) state.SetIterationTime(run(1'000'000) * 1e-9);
  state.SetItemsProcessed(state.iterations());
}

mac_rewrite_device const kLoopback{kVlan, 0, 0, {}};
constexpr U32 kLoopbackIndex = 1;

void hotRow(benchmark::State& state) {
  if (cannotRun(state)) return;
  Table table;
  table.fill();
  table.program.devices().update(&kLoopbackIndex, &kLoopback, BPF_ANY);
  measure(state, table.program.fd());
  if (table.program.counters().of(MAC_REWRITE_REWRITTEN) < 1'000'000) {
    state.SkipWithError("the row is not hit");
  }
}
BENCHMARK(hotRow)->Name("KernelProgram/one_row")->UseManualTime()->Iterations(1);

void manySources(benchmark::State& state) {
  if (cannotRun(state)) return;
  Table const table;
  std::unique_ptr<spread, void (*)(spread*)> const skeleton(spread__open_and_load(),
                                                            spread__destroy);
  if (!skeleton) {
    state.SkipWithError("the program cannot be loaded");
    return;
  }
  bpf_map_update_elem(bpf_map__fd(skeleton->maps.devices), &kLoopbackIndex, &kLoopback, BPF_ANY);
  int const rows = bpf_map__fd(skeleton->maps.rows);
  for (U32 n = 0; n < kTableRows; ++n) {
    bpf_map_update_elem(rows, table.keys[n].data(), table.actions[n].data(), BPF_ANY);
  }
  int const program = bpf_program__fd(skeleton->progs.spread);
  measure(state, program);
  std::vector<mac_rewrite_counters> counted(BfnKernel::possibleCpus());
  U32 const only = 0;
  bpf_map_lookup_elem(bpf_map__fd(skeleton->maps.counters), &only, counted.data());
  Kiv::U64 hit = 0;
  for (auto const& cpu : counted) hit += cpu.frames[MAC_REWRITE_REWRITTEN];
  if (hit < 1'000'000) state.SkipWithError("rows are not hit");
}
BENCHMARK(manySources)->Name("KernelProgram/65536_rows")->UseManualTime()->Iterations(1);

}  // namespace
