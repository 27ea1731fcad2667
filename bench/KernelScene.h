// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>
#include <string>
#include <vector>

#include "kernel/KernelProgram.h"
#include "kernel/KernelTable.h"
#include "tests/kernel/Sandbox.h"
#include "tests/support/RewriteRow.h"

namespace BfnBench {

inline constexpr Kiv::U32 kTableRows = 65'536;
inline constexpr Kiv::U16 kVlan = 100;

/// Whether the benchmark is skipped since this machine has not what it needs; the message says
/// what.
inline bool cannotRun(benchmark::State& state) {
  if (!BfnTest::whyNot()) return false;
  state.SkipWithError(("skipped: " + *BfnTest::whyNot()).c_str());
  return true;
}

/// The kernel's table in namespaces of its own, empty.
struct KernelChip {
  BfnKernel::KernelProgram program{{BfnTest::enterSandbox() / "bpf", kTableRows}};
  BfnKernel::KernelTable driver{program};
  BfnDriver::TableHandle handle =
      *driver.open({0, 0, {}, "", BfnKernel::KernelTable::kRewriteTable});
};

/// 65,536 rows as changes of a table.
struct Rows {
  Rows() {
    for (Kiv::U32 n = 0; n < kTableRows; ++n) {
      auto const byte = [n](unsigned i) { return static_cast<Kiv::U8>(n >> 8 * i); };
      keys.push_back(BfnTest::rewriteKey(kVlan, {10, 0, byte(1), byte(0)}));
      actions.push_back(BfnTest::rewriteAction({2, 0, 0, byte(2), byte(1), byte(0)}));
    }
    for (Kiv::U32 n = 0; n < kTableRows; ++n) {
      changes.push_back({BfnDriver::Change::Kind::Write, keys[n], actions[n]});
    }
    results.resize(kTableRows);
  }

  std::vector<BfnChip::KeyBytes> keys;
  std::vector<BfnChip::ActionBytes> actions;
  std::vector<BfnDriver::Change> changes;
  std::vector<BfnDriver::Status> results;
};

/// The kernel's table and rows for it.
struct Table : KernelChip, Rows {
  void fill() { driver.apply(handle, changes, results); }
};

}  // namespace BfnBench
