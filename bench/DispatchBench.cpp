// SPDX-License-Identifier: Apache-2.0
// What one notification costs from the notifier's list to the handler of a state machine, against a
// loop of plain virtual calls and against a general signal library without locking. The handlers
// are the same; they are not inlined, as those of a machine in another source file are not.
#include <benchmark/benchmark.h>
#include <boost/signals2/dummy_mutex.hpp>
#include <boost/signals2/signal.hpp>
#include <boost/signals2/signal_type.hpp>
#include <memory>
#include <vector>

#include "framework/collections/ReactorSlot.h"
#include "framework/core/Ptr.h"
#include "framework/core/Reactor.h"
#include "framework/core/StateMachine.h"

namespace {

using Kiv::AttributeId;
using Kiv::Ptr;

class Watched : public Kiv::PtrInterface {
 public:
  static constexpr Kiv::Attr<> kFirst{130};
  static constexpr Kiv::Attr<> kSecond{131};
};

class Machine : public Kiv::StateMachine<Machine> {
 public:
  class KivWatched;

  explicit Machine(Ptr<Watched> const& watched) {
    watched_.is(watched, this);
    initializedIs(true);
  }

  [[gnu::noinline]] void handleFirst() { benchmark::DoNotOptimize(++calls_); }
  [[gnu::noinline]] void handleSecond() { benchmark::DoNotOptimize(++calls_); }
  template <class F>
  void kivEachReactor(F f) {
    f(watched_);
  }

 private:
  long calls_ = 0;
  Kiv::ReactorSlot<KivWatched, Watched, Machine> watched_;
};

class Machine::KivWatched final : public Kiv::Reactor<KivWatched, Watched, Machine> {
 public:
  using Reactor::Reactor;
  using Rows = Kiv::Rows<Kiv::On<Watched::kFirst, &Machine::handleFirst>,
                         Kiv::On<Watched::kSecond, &Machine::handleSecond>>;
};

void dispatchVisit(benchmark::State& state) {
  Ptr<Watched> watched = Kiv::makeActive<Watched>();
  std::vector<Ptr<Machine>> machines;
  for (auto i = state.range(0); i > 0; --i) machines.push_back(Kiv::makeActive<Machine>(watched));
  for (auto _ : state) {
    benchmark::DoNotOptimize(watched);
    watched->notify(Watched::kSecond.id);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

class PlainListener {
 public:
  virtual ~PlainListener() = default;
  virtual void onAttribute(AttributeId id, void const* key) = 0;
};

class PlainMachine final : public PlainListener {
 public:
  void onAttribute(AttributeId id, void const*) override {
    if (id == Watched::kFirst.id) {
      handleFirst();
    } else if (id == Watched::kSecond.id) {
      handleSecond();
    }
  }
  [[gnu::noinline]] void handleFirst() { benchmark::DoNotOptimize(++calls_); }
  [[gnu::noinline]] void handleSecond() { benchmark::DoNotOptimize(++calls_); }

 private:
  long calls_ = 0;
};

class PlainNotifier {
 public:
  void listenerIs(PlainListener* listener) { listeners_.push_back(listener); }
  void visit(AttributeId id, void const* key) {
    for (PlainListener* const listener : listeners_) listener->onAttribute(id, key);
  }

 private:
  std::vector<PlainListener*> listeners_;
};

void dispatchVirtualCalls(benchmark::State& state) {
  std::vector<std::unique_ptr<PlainMachine>> machines;
  auto notifier = std::make_unique<PlainNotifier>();
  for (auto i = state.range(0); i > 0; --i) {
    machines.push_back(std::make_unique<PlainMachine>());
    notifier->listenerIs(machines.back().get());
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(notifier);
    notifier->visit(Watched::kSecond.id, nullptr);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void dispatchSignal(benchmark::State& state) {
  namespace keywords = boost::signals2::keywords;
  using Signal =
      boost::signals2::signal_type<void(AttributeId, void const*),
                                   keywords::mutex_type<boost::signals2::dummy_mutex>>::type;
  Signal signal;
  std::vector<std::unique_ptr<PlainMachine>> machines;
  for (auto i = state.range(0); i > 0; --i) {
    machines.push_back(std::make_unique<PlainMachine>());
    signal.connect([machine = machines.back().get()](AttributeId id, void const* key) {
      machine->onAttribute(id, key);
    });
  }
  for (auto _ : state) {
    signal(Watched::kSecond.id, nullptr);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(dispatchVisit)->Name("Dispatch/visit")->Arg(1)->Arg(64);
BENCHMARK(dispatchVirtualCalls)->Name("Dispatch/virtual_calls")->Arg(1)->Arg(64);
BENCHMARK(dispatchSignal)->Name("Dispatch/signal")->Arg(1);

}  // namespace
