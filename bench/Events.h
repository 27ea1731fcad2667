// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <time.h>
#include <vector>

#include "tests/support/PluginHost.h"

// Events at the plug-in, one a row, and what they cost.
namespace BfnBench {

using Kiv::U32;

constexpr U32 kVrfs = 64;
constexpr U32 kIntfs = 256;
constexpr U32 kBatch = 4096;

inline double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

struct Address {
  U32 vrf;
  U32 ip;
  U32 intf;
};

// Address i of a VRF always lives on the same interface. In an order that no collection likes.
inline std::vector<Address> addresses(U32 count, U32 from = 0) {
  std::vector<Address> all;
  all.reserve(count);
  for (U32 i = from; i < from + count; ++i) {
    all.push_back({1 + i % kVrfs, 0x0A000000u + i, i * 7 % kIntfs});
  }
  std::mt19937 random(1);
  std::ranges::shuffle(all, random);
  return all;
}

inline Ovra::EthAddr macOf(U32 i) {
  return Ovra::ethAddrFromOuiStation(0x020000u, i & 0xffffffu);
}

/// The plug-in in its host, on a chip model without a journal, or on `driver`'s chip.
class Framework {
 public:
  explicit Framework(U32 lines = 0, BfnDriver::TableDriver* driver = nullptr) : host(4'000'000) {
    host.driver = driver;
    host.chip.journal().limitIs(0);
    for (U32 i = 0; i < kIntfs; ++i) {
      std::string const name = "Ethernet" + std::to_string(i);
      intfs.emplace_back(name);
      host.port(name.c_str(), 100 + i, 1);
    }
    for (U32 v = 1; v <= kVrfs; ++v) {
      names.emplace_back("vrf" + std::to_string(v));
      host.l3Status->vrfIs(names.back(), Pex::VrfId(v));
    }
    for (Address const& a : addresses(lines)) configure(a, 1);
    host.createAgent();
  }
  void start() {
    host.stage1();
    host.stage2();
  }
  void add(Address const& a) {
    status(a)->ipAndIntfIdIs({Ovra::IpAddr(a.ip), intfs[a.intf], false});
  }
  void remove(Address const& a) { status(a)->ipAndIntfIdDel(Ovra::IpAddr(a.ip)); }
  void configure(Address const& a, U32 generation) {
    host.cliConfig->overlaySrcMacRewriteEntryIs(
        {names[a.vrf - 1], Ovra::IpAddr(a.ip), macOf(a.ip + generation)});
  }
  void mac(Address const& a, U32 generation) {
    host.mount->bfnMacRewriteAgentConfig()
        ->overlaySrcMacRewrite(Pex::VrfId(a.vrf))
        ->ipAndMacIs({Ovra::IpAddr(a.ip), macOf(a.ip + generation)});
  }
  size_t rows() const { return host.chip.rowCount(); }

  BfnTest::PluginHost host;

 private:
  Kiv::Ptr<BfnMacRewrite::Agent::VrfStatus> status(Address const& a) {
    return host.mount->bfnMacRewriteAgentStatus()->vrfStatusIs(Pex::VrfId(a.vrf));
  }

  std::vector<Ovra::IntfId> intfs;
  std::vector<L3::VrfName> names;
};

enum class Event { Add, Remove, Mac };

// Events on `range(0)` rows, a batch at a time: rows anywhere in the tables, other ones in each
// batch. What a batch adds or removes is undone outside of the time.
template <class System, Event kEvent>
void events(benchmark::State& state) {
  auto const count = static_cast<U32>(state.range(0));
  System system;
  system.start();
  auto const all = addresses(count);
  for (Address const& a : all) {
    system.add(a);
    system.configure(a, 0);
  }
  size_t const batch = std::min<size_t>(count, kBatch);
  size_t from = 0;
  U32 generation = 0;
  for (auto _ : state) {
    if (from + batch > all.size()) {
      from = 0;
      ++generation;
    }
    std::span<Address const> const rows(all.data() + from, batch);
    from += batch;
    double seconds = 0;
    if constexpr (kEvent == Event::Mac) {
      double const begin = cpuSeconds();
      for (Address const& a : rows) system.mac(a, generation + 1);
      seconds = cpuSeconds() - begin;
    } else {
      double const begin = cpuSeconds();
      for (Address const& a : rows) system.remove(a);
      double const removed = cpuSeconds();
      for (Address const& a : rows) system.add(a);
      double const added = cpuSeconds();
      seconds = kEvent == Event::Add ? added - removed : removed - begin;
    }
    state.SetIterationTime(seconds);
  }
  if (system.rows() != count) state.SkipWithError("rows are missing");
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(batch));
}

}  // namespace BfnBench
