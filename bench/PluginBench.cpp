// SPDX-License-Identifier: Apache-2.0
// The plug-in on its chip, row by row, against a program that takes the same decisions without a
// framework: flat hash maps, plain structs, and one raw record in a ring wherever the plug-in
// traces.
#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>
#include <benchmark/benchmark.h>
#include <cstring>
#include <malloc.h>
#include <vector>
#include <x86intrin.h>

#include "bench/Events.h"
#include "framework/trace/Trace.h"
#include "host/reconcile/Reconciler.h"

namespace {

using namespace BfnBench;
using Kiv::U16;
using Kiv::U64;
using Kiv::U8;

// The same without a framework.
class Floor {
 public:
  explicit Floor(U32 = 0) {
    for (U32 i = 0; i < kIntfs; ++i) routing_[i] = static_cast<U16>(100 + i);
    for (U32 v = 1; v <= kVrfs; ++v) names_[v] = v;
  }
  void start() {}
  void add(Address const& a) {
    auto& vrf = status_[a.vrf];
    auto const [at, fresh] = vrf.try_emplace(a.ip, Where{a.intf, false});
    if (!fresh) return;
    trace(1, a.vrf, a.ip, 0);
    auto const found = vrf.find(a.ip);
    if (found == vrf.end()) return;
    trace(2, a.vrf, a.ip, 0);
    U64 const pair = U64{a.vrf} << 32 | a.ip;
    auto const old = ipToIntf_.find(pair);
    if (old != ipToIntf_.end() && old->second != a.intf) __builtin_trap();
    Where const where = found->second;
    ipToIntf_[pair] = where.intf;
    intfToIp_[where.intf].insert(pair);
    auto const routing = routing_.find(where.intf);
    if (routing == routing_.end()) return;
    trace(3, a.vrf, a.ip, where.intf);
    U16 const vlan = where.self ? static_cast<U16>(fwdVlan_[a.vrf]) : routing->second;
    U64 mac = 0;
    auto const config = config_.find(a.vrf);
    if (config != config_.end()) {
      auto const entry = config->second.find(a.ip);
      if (entry != config->second.end()) mac = entry->second;
    }
    trace(4, where.intf, vlan, mac);
    U32 const name = names_[a.vrf];
    trace(5, name, where.intf, mac);
    U64 const key = U64{where.intf} << 32 | a.ip;
    auto const [record, isNew] = records_.try_emplace(key);
    if (!isNew) return;
    record->second = {chipKey(vlan, a.ip), 1};
    chip_[record->second.chipKey] = mac;
    trace(6, 0, 0, 0);
  }
  void remove(Address const& a) {
    status_[a.vrf].erase(a.ip);
    trace(1, a.vrf, a.ip, 0);
    trace(2, a.vrf, a.ip, 0);
    U64 const pair = U64{a.vrf} << 32 | a.ip;
    auto const found = ipToIntf_.find(pair);
    if (found == ipToIntf_.end()) return;
    U32 const intf = found->second;
    ipToIntf_.erase(found);
    intfToIp_[intf].erase(pair);
    if (!routing_.contains(intf)) return;
    trace(3, a.vrf, a.ip, intf);
    trace(4, intf, a.ip, 0);
    auto const record = records_.find(U64{intf} << 32 | a.ip);
    if (--record->second.refCount != 0) return;
    chip_.erase(record->second.chipKey);
    records_.erase(record);
  }
  void configure(Address const& a, U32 generation) { mac(a, generation); }
  void mac(Address const& a, U32 generation) {
    U64 const mac = macOf(a.ip + generation).value();
    U64& stored = config_[a.vrf][a.ip];
    if (stored == mac) return;
    stored = mac;
    trace(1, a.vrf, a.ip, 0);
    trace(2, mac, 0, 0);
    auto const found = ipToIntf_.find(U64{a.vrf} << 32 | a.ip);
    if (found == ipToIntf_.end() || !routing_.contains(found->second)) return;
    trace(3, a.vrf, a.ip, found->second);
    trace(4, found->second, a.ip, mac);
    chip_[records_.find(U64{found->second} << 32 | a.ip)->second.chipKey] = mac;
  }
  size_t rows() const { return chip_.size(); }

 private:
  struct Where {
    U32 intf;
    bool self;
  };
  struct Record {
    U64 chipKey;
    U16 refCount;
  };
  static U64 chipKey(U16 vlan, U32 ip) {
    return U64{5} | U64{vlan} << 8 | U64{__builtin_bswap32(ip)} << 24 | U64{1} << 56;
  }
  void trace(U64 id, U64 a, U64 b, U64 c) {
    U64 const record[] = {id, __rdtsc(), a, b, c};
    if (at_ + sizeof record > ring_.size()) at_ = 0;
    std::memcpy(ring_.data() + at_, record, sizeof record);
    at_ += sizeof record;
  }

  absl::flat_hash_map<U32, absl::flat_hash_map<U32, Where>> status_;
  absl::flat_hash_map<U32, absl::flat_hash_map<U32, U64>> config_;
  absl::flat_hash_map<U64, U32> ipToIntf_;
  absl::flat_hash_map<U32, absl::flat_hash_set<U64>> intfToIp_;
  absl::flat_hash_map<U32, U16> routing_;
  absl::flat_hash_map<U32, U32> fwdVlan_;
  absl::flat_hash_map<U32, U32> names_;
  absl::flat_hash_map<U64, Record> records_;
  absl::flat_hash_map<U64, U64> chip_;
  std::vector<U8> ring_ = std::vector<U8>(1 << 20);
  size_t at_ = 0;
};

// The plug-in with a reconciler before its chip, each event a turn.
class Reconciled {
 public:
  Reconciled() : plugin_(0, &reconciler_) {}
  void start() {
    plugin_.start();
    reconciler_.commit();
  }
  void add(Address const& a) {
    plugin_.add(a);
    reconciler_.flush();
  }
  void remove(Address const& a) {
    plugin_.remove(a);
    reconciler_.flush();
  }
  void mac(Address const& a, U32 generation) {
    plugin_.mac(a, generation);
    reconciler_.flush();
  }
  void configure(Address const& a, U32 generation) { plugin_.configure(a, generation); }
  size_t rows() const { return chip_.rowCount(); }

 private:
  static BfnChip::ChipModel& quiet(BfnChip::ChipModel& chip) {
    chip.journal().limitIs(0);
    return chip;
  }

  BfnChip::ChipModel chip_{4'000'000};
  Host::Reconciler reconciler_{quiet(chip_), Kiv::make<Kiv::SteadyClock const>()};
  Framework plugin_;
};

BENCHMARK(events<Framework, Event::Add>)
    ->Name("Plugin/add")
    ->Arg(1000)
    ->Arg(65'536)
    ->Arg(1'000'000)
    ->UseManualTime();
BENCHMARK(events<Reconciled, Event::Add>)->Name("Reconciled/add")->Arg(65'536)->UseManualTime();
BENCHMARK(events<Floor, Event::Add>)->Name("Floor/add")->Arg(65'536)->UseManualTime();
BENCHMARK(events<Framework, Event::Mac>)
    ->Name("Plugin/mac")
    ->Arg(1000)
    ->Arg(65'536)
    ->Arg(1'000'000)
    ->UseManualTime();
BENCHMARK(events<Reconciled, Event::Mac>)->Name("Reconciled/mac")->Arg(65'536)->UseManualTime();
BENCHMARK(events<Floor, Event::Mac>)->Name("Floor/mac")->Arg(65'536)->UseManualTime();
BENCHMARK(events<Framework, Event::Remove>)
    ->Name("Plugin/remove")
    ->Arg(1000)
    ->Arg(65'536)
    ->Arg(1'000'000)
    ->UseManualTime();
BENCHMARK(events<Reconciled, Event::Remove>)
    ->Name("Reconciled/remove")
    ->Arg(65'536)
    ->UseManualTime();
BENCHMARK(events<Floor, Event::Remove>)->Name("Floor/remove")->Arg(65'536)->UseManualTime();

size_t heapInUse() {
  struct mallinfo2 const info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// Heap of everything a row with a configured MAC takes, the configuration line, the journal-less
// chip and the allocator's own share included.
void heapPerRow(benchmark::State& state) {
  auto const count = static_cast<U32>(state.range(0));
  for (auto _ : state) {
    Framework system;
    system.start();
    auto const all = addresses(count);
    size_t const before = heapInUse();
    for (Address const& a : all) {
      system.configure(a, 1);
      system.add(a);
    }
    state.counters["bytes"] = static_cast<double>(heapInUse() - before) / count;
    if (system.rows() != count) state.SkipWithError("rows are missing");
  }
}
BENCHMARK(heapPerRow)->Name("Plugin/heap_per_row")->Arg(65'536)->Iterations(1);

// Everything is there before stage 2 ...
void stage2(benchmark::State& state) {
  auto const count = static_cast<U32>(state.range(0));
  for (auto _ : state) {
    Framework system(count);
    for (Address const& a : addresses(count)) system.add(a);
    system.host.stage1();
    double const begin = cpuSeconds();
    system.host.stage2();
    state.SetIterationTime(cpuSeconds() - begin);
    if (system.rows() != count) state.SkipWithError("rows are missing");
  }
}
// ... or comes one by one after it.
void singleEvents(benchmark::State& state) {
  auto const count = static_cast<U32>(state.range(0));
  for (auto _ : state) {
    Framework system;
    system.start();
    auto const all = addresses(count);
    double const begin = cpuSeconds();
    for (Address const& a : all) system.add(a);
    for (Address const& a : all) system.configure(a, 1);
    state.SetIterationTime(cpuSeconds() - begin);
    if (system.rows() != count) state.SkipWithError("rows are missing");
  }
}
BENCHMARK(stage2)->Name("Plugin/stage2")->Arg(65'536)->UseManualTime()->Iterations(3);
BENCHMARK(singleEvents)->Name("Plugin/single_events")->Arg(65'536)->UseManualTime()->Iterations(3);

// The translator starts on 65,536 lines over range(0) VRFs.
void translate(benchmark::State& state) {
  auto const vrfs = static_cast<U32>(state.range(0));
  auto const config = Kiv::makeActive<BfnMacRewrite::Input::Config>();
  auto const l3Status = Kiv::makeActive<Pex::L3Status>();
  for (U32 v = 0; v < vrfs; ++v) {
    l3Status->vrfIs(L3::VrfName("vrf" + std::to_string(v)), Pex::VrfId(v + 1));
  }
  for (U32 i = 0; i < 65'536; ++i) {
    config->overlaySrcMacRewriteEntryIs(
        {L3::VrfName("vrf" + std::to_string(i % vrfs)), Ovra::IpAddr(i), macOf(i)});
  }
  for (auto _ : state) {
    auto const agentConfig = Kiv::makeActive<BfnMacRewrite::Agent::Config>();
    double const begin = cpuSeconds();
    auto const machine =
        BfnMacRewrite::overlaySrcMacRewriteCliConfigSmFactory(config, agentConfig, l3Status);
    state.SetIterationTime(cpuSeconds() - begin);
    if (agentConfig->overlaySrcMacRewrite().size() != vrfs) state.SkipWithError("VRFs are missing");
  }
}
BENCHMARK(translate)->Name("Plugin/translate")->Arg(10)->Arg(1000)->UseManualTime();

}  // namespace
