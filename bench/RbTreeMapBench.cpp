// SPDX-License-Identifier: Apache-2.0
// The ordered map against std::map: keys of 12 bytes and a pointer. Names are
// <map>/<operation>/<members>; times are for one member.

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "framework/collections/RbTreeMap.h"
#include "framework/core/Types.h"

namespace {

using Kiv::U32;

struct Key {
  U32 vrf;
  U32 address;
  U32 port;

  friend bool operator<(Key const& a, Key const& b) {
    if (a.vrf != b.vrf) return a.vrf < b.vrf;
    if (a.address != b.address) return a.address < b.address;
    return a.port < b.port;
  }
};

using Ours = Kiv::RbTreeMap<Key, void const*>;
using Std = std::map<Key, void const*>;

void insertInto(Ours& map, Key const& key, void const* value) {
  map.insert(key, value);
}
void insertInto(Std& map, Key const& key, void const* value) {
  map.emplace(key, value);
}

enum class Order { Random, Ascending };

std::vector<Key> keys(size_t count, Order order) {
  std::mt19937 random(static_cast<U32>(count));
  std::vector<Key> made;
  // The third word makes each key a different one.
  for (U32 i = 0; i < count; ++i)
    made.push_back({static_cast<U32>(random()) % 64, static_cast<U32>(random()), i});
  if (order == Order::Ascending) std::sort(made.begin(), made.end());
  return made;
}

template <class Map>
void fill(Map& map, std::vector<Key> const& all) {
  for (Key const& key : all) insertInto(map, key, &key);
}

template <class Map, Order kOrder>
void insert(benchmark::State& state) {
  std::vector<Key> const all = keys(static_cast<size_t>(state.range(0)), kOrder);
  for (auto _ : state) {
    auto map = std::make_unique<Map>();
    fill(*map, all);
    benchmark::DoNotOptimize(map->begin());
    state.PauseTiming();
    map.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void walk(benchmark::State& state) {
  Map map;
  std::vector<Key> const all = keys(static_cast<size_t>(state.range(0)), Order::Random);
  fill(map, all);
  for (auto _ : state) {
    size_t sum = 0;
    for (auto const& [key, value] : map) sum += key.address + reinterpret_cast<size_t>(value);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void add(std::string const& name) {
  constexpr std::int64_t kMany = 65'536;
  benchmark::RegisterBenchmark((name + "/insert").c_str(), insert<Map, Order::Random>)->Arg(kMany);
  benchmark::RegisterBenchmark((name + "/append").c_str(), insert<Map, Order::Ascending>)
      ->Arg(kMany);
  benchmark::RegisterBenchmark((name + "/walk").c_str(), walk<Map>)->Arg(kMany);
}

[[maybe_unused]] bool const added = [] {
  add<Ours>("RbTreeMap");
  add<Std>("std_map");
  return true;
}();

}  // namespace
