// SPDX-License-Identifier: Apache-2.0
// The flat hash table against absl::flat_hash_map, both with the same 32-bit hash, a key of 12
// bytes and a pointer. Names are <table>/<operation>/<members>; times are for one member.

#include <absl/container/flat_hash_map.h>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <functional>
#include <malloc.h>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "framework/collections/HashTable.h"
#include "framework/core/Hash.h"
#include "framework/core/Types.h"

namespace {

using Kiv::U32;

constexpr U32 kSeed = 0x1234'5678;

struct Key {
  U32 words[3];

  U32 hash(U32 seed) const {
    return Kiv::Hash(seed).hashMix(words[0]).hashMix(words[1]).hashMix(words[2]).result();
  }
  friend bool operator==(Key const& a, Key const& b) = default;
  friend bool operator<(Key const& a, Key const& b) {
    return std::lexicographical_compare(std::begin(a.words), std::end(a.words), std::begin(b.words),
                                        std::end(b.words));
  }
};

struct Member {
  Key key;
  void const* value;
};

struct Traits {
  using Slot = Member;
  using Key = ::Key;
  static Key const& key(Slot const& slot) { return slot.key; }
  static U32 hash(U32 seed, Key const& key) { return Kiv::hashSingleAttr(seed, key); }
};

// The table under test and its comparator, through the same five operations.
class Ours {
 public:
  bool insert(Key const& key, void const* value) { return table_.insert({key, value}).second; }
  bool erase(Key const& key) { return table_.erase(key); }
  void const* find(Key const& key) const {
    Member const* const member = table_.find(key);
    return member == nullptr ? nullptr : member->value;
  }
  template <class F>
  void each(F const& f) const {
    for (Member const& member : table_) f(member.key, member.value);
  }

 private:
  Kiv::HashTable<Traits> table_{kSeed};
};

class Absl {
 public:
  bool insert(Key const& key, void const* value) { return table_.try_emplace(key, value).second; }
  bool erase(Key const& key) { return table_.erase(key) != 0; }
  void const* find(Key const& key) const {
    auto const found = table_.find(key);
    return found == table_.end() ? nullptr : found->second;
  }
  template <class F>
  void each(F const& f) const {
    for (auto const& [key, value] : table_) f(key, value);
  }

 private:
  struct Hasher {
    size_t operator()(Key const& key) const { return Kiv::hashSingleAttr(kSeed, key); }
  };
  absl::flat_hash_map<Key, void const*, Hasher> table_;
};

// Twice `count` different keys in a random order, the same in every run.
std::vector<Key> const& keys(size_t count) {
  static std::vector<Key> made;
  if (made.size() != 2 * count) {
    std::mt19937 random(static_cast<U32>(count));
    made.clear();
    // The third word makes each key a different one.
    for (U32 i = 0; i < 2 * count; ++i)
      made.push_back({{static_cast<U32>(random()) % 64, static_cast<U32>(random()), i}});
    std::shuffle(made.begin(), made.end(), random);
  }
  return made;
}

template <class Table>
void fill(Table& table, size_t count) {
  std::vector<Key> const& all = keys(count);
  for (size_t i = 0; i < count; ++i) table.insert(all[i], &all[i]);
}

// The stored keys, or as many absent ones, in an order that has nothing to do with that of their
// insertion.
std::vector<Key> shuffled(size_t count, bool present) {
  std::vector<Key> const& all = keys(count);
  auto const from = all.begin() + static_cast<std::ptrdiff_t>(present ? 0 : count);
  std::vector<Key> order(from, from + static_cast<std::ptrdiff_t>(count));
  std::shuffle(order.begin(), order.end(), std::mt19937(99));
  return order;
}

void countMembers(benchmark::State& state, size_t count) {
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}

template <class Table, bool kPresent>
void find(benchmark::State& state) {
  size_t const count = static_cast<size_t>(state.range(0));
  Table table;
  fill(table, count);
  std::vector<Key> const order = shuffled(count, kPresent);
  size_t found = 0;
  for (auto _ : state) {
    for (Key const& key : order) {
      void const* value = table.find(key);
      benchmark::DoNotOptimize(value);
      found += value != nullptr;
    }
  }
  if (found != (kPresent ? count * static_cast<size_t>(state.iterations()) : 0))
    state.SkipWithError("wrong look-up");
  countMembers(state, count);
}

template <class Table>
void insert(benchmark::State& state) {
  size_t const count = static_cast<size_t>(state.range(0));
  std::vector<Key> const& all = keys(count);
  for (auto _ : state) {
    auto table = std::make_unique<Table>();
    for (size_t i = 0; i < count; ++i) {
      bool isNew = table->insert(all[i], &all[i]);
      benchmark::DoNotOptimize(isNew);
    }
    state.PauseTiming();
    table.reset();
    state.ResumeTiming();
  }
  countMembers(state, count);
}

template <class Table>
void erase(benchmark::State& state) {
  size_t const count = static_cast<size_t>(state.range(0));
  std::vector<Key> const order = shuffled(count, true);
  for (auto _ : state) {
    state.PauseTiming();
    auto table = std::make_unique<Table>();
    fill(*table, count);
    state.ResumeTiming();
    for (Key const& key : order) {
      bool erased = table->erase(key);
      benchmark::DoNotOptimize(erased);
    }
    state.PauseTiming();
    table.reset();
    state.ResumeTiming();
  }
  countMembers(state, count);
}

template <class Table>
void walk(benchmark::State& state) {
  size_t const count = static_cast<size_t>(state.range(0));
  Table table;
  fill(table, count);
  for (auto _ : state) {
    size_t sum = 0;
    table.each([&sum](Key const& key, void const* value) {
      sum += key.words[1] + reinterpret_cast<size_t>(value);
    });
    benchmark::DoNotOptimize(sum);
  }
  countMembers(state, count);
}

template <class Table>
void add(std::string const& name) {
  constexpr std::int64_t kMany = 65'536;
  constexpr std::int64_t kMost = 1'000'000;
  benchmark::RegisterBenchmark((name + "/hit").c_str(), find<Table, true>)->Arg(kMany)->Arg(kMost);
  benchmark::RegisterBenchmark((name + "/miss").c_str(), find<Table, false>)->Arg(kMany);
  benchmark::RegisterBenchmark((name + "/insert").c_str(), insert<Table>)->Arg(kMany);
  benchmark::RegisterBenchmark((name + "/erase").c_str(), erase<Table>)->Arg(kMany);
  benchmark::RegisterBenchmark((name + "/walk").c_str(), walk<Table>)->Arg(kMany)->Arg(kMost);
}

[[maybe_unused]] bool const added = [] {
  // Freed memory stays with the process: a table that grows would else measure how long the kernel
  // takes to hand out its pages, which is more than all the rest.
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  add<Ours>("HashTable");
  add<Absl>("flat_hash_map");
  return true;
}();

}  // namespace
