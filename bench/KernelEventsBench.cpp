// SPDX-License-Identifier: Apache-2.0
// The plug-in on the kernel's table, through the reconciler as the host has it: events, a commit of
// all rows, the show command.
#include <benchmark/benchmark.h>
#include <memory>
#include <string>

#include "bench/Events.h"
#include "bench/KernelScene.h"
#include "bench/ShowScene.h"
#include "host/reconcile/Reconciler.h"

namespace {

using namespace BfnBench;

/// Events that end a turn, `kTurn` of them each.
template <U32 kTurn>
class OnKernel {
 public:
  void start() {
    plugin_.start();
    reconciler_.commit();
    reconciler_.turnsIs(kTurn > 1);
  }
  void add(Address const& a) {
    plugin_.add(a);
    event();
  }
  void remove(Address const& a) {
    plugin_.remove(a);
    event();
  }
  void mac(Address const& a, U32 generation) {
    plugin_.mac(a, generation);
    event();
  }
  void configure(Address const& a, U32 generation) {
    plugin_.configure(a, generation);
    event();
  }
  size_t rows() const { return kernel_.driver.entryCount(kernel_.handle); }

 private:
  void event() {
    if (++events_ % kTurn == 0) reconciler_.flush();
  }

  KernelChip kernel_;
  Host::Reconciler reconciler_{kernel_.driver, Kiv::make<Kiv::SteadyClock const>()};
  Framework plugin_{0, &reconciler_};
  U32 events_ = 0;
};

template <U32 kTurn, Event kEvent>
void kernelEvents(benchmark::State& state) {
  if (!cannotRun(state)) events<OnKernel<kTurn>, kEvent>(state);
}

template <U32 kTurn>
void eventsByTurn(std::string const& name) {
  auto const one = [&name](char const* event, void (*function)(benchmark::State&)) {
    benchmark::RegisterBenchmark((name + event).c_str(), function)
        ->Arg(kTableRows)
        ->UseManualTime();
  };
  one("add", kernelEvents<kTurn, Event::Add>);
  one("mac", kernelEvents<kTurn, Event::Mac>);
  one("remove", kernelEvents<kTurn, Event::Remove>);
}
[[maybe_unused]] bool const registered = [] {
  eventsByTurn<1>("KernelEvents/one_by_one/");
  eventsByTurn<256>("KernelEvents/turns_of_256/");
  return true;
}();

// A commit of 65,536 rows over a kernel table that has as many equal ones, or none.
void commit(benchmark::State& state, bool equal) {
  if (cannotRun(state)) return;
  Table table;
  table.fill();
  double writes = 0;
  for (auto _ : state) {
    if (!equal) table.driver.clear(table.handle);
    Host::Reconciler reconciler(table.driver, Kiv::make<Kiv::SteadyClock const>());
    auto const handle = *reconciler.open({0, 0, {}, "", BfnKernel::KernelTable::kRewriteTable});
    for (U32 n = 0; n < kTableRows; ++n) reconciler.write(handle, table.keys[n], table.actions[n]);
    double const begin = cpuSeconds();
    Host::Applied const applied = reconciler.commit();
    state.SetIterationTime(cpuSeconds() - begin);
    writes = static_cast<double>(applied.inserted + applied.overwritten + applied.erased);
    if (applied.status != BfnDriver::Status::Ok || applied.waiting != 0 ||
        table.driver.entryCount(table.handle) != kTableRows) {
      state.SkipWithError("not all rows were committed");
      break;
    }
  }
  state.counters["writes"] = writes;
}
BENCHMARK_CAPTURE(commit, into_empty, false)
    ->Name("KernelCommit/into_empty")
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();
BENCHMARK_CAPTURE(commit, over_equal, true)
    ->Name("KernelCommit/over_equal")
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

// The show command over 65,536 rows in 10 VRFs.
void show(benchmark::State& state, Switch const& device, Host::Reconciler* reconciler) {
  std::string out;
  for (auto _ : state) {
    if (reconciler != nullptr) reconciler->flush();  // each command is a turn
    out.clear();
    auto const command = device.command(1e6, into(out));
    if (command->runSlice() != Agent::SliceResult::Completed) state.SkipWithError("not unsliced");
    benchmark::DoNotOptimize(out.data());
  }
  if (out != listing(device.lines)) state.SkipWithError("not the same lines");
}

void showOfKernel(benchmark::State& state) {
  if (cannotRun(state)) return;
  KernelChip kernel;
  Host::Reconciler reconciler(kernel.driver, Kiv::make<Kiv::SteadyClock const>());
  reconciler.turnsIs(true);
  Switch const device(10, &reconciler);
  reconciler.commit();
  show(state, device, &reconciler);
}
void showOfModel(benchmark::State& state) {
  Switch const device(10);
  show(state, device, nullptr);
}
BENCHMARK(showOfKernel)->Name("KernelShow/kernel")->Unit(benchmark::kMillisecond);
BENCHMARK(showOfModel)->Name("KernelShow/model")->Unit(benchmark::kMillisecond);

}  // namespace
