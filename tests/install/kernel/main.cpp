// SPDX-License-Identifier: Apache-2.0
// The kernel's table from outside: what every machine can do, rights or not.
#include <iostream>

#include "kernel/BpfMap.h"
#include "kernel/Counters.h"
#include "kernel/KernelError.h"
#include "kernel/KernelProgram.h"
#include "kernel/KernelTable.h"
#include "kernel/Ports.h"
#include "kernel/Rights.h"

int main() {
  BfnKernel::KernelTable table;  // of no device
  bool ok = !table.open({1, 0, {}, "", BfnKernel::KernelTable::kRewriteTable});
  try {
    BfnKernel::KernelProgram const program({"/proc/none", 1});
    ok = false;
  } catch (BfnKernel::KernelError const& error) {
    std::cout << error.what() << '\n';
  }
  if (auto const missing = BfnKernel::whatIsMissing()) std::cout << *missing << '\n';
  if (ok) std::cout << "outside host: ok\n";
  return ok ? 0 : 1;
}
