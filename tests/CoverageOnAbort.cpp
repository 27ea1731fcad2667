// SPDX-License-Identifier: Apache-2.0
// Coverage builds only: a death test's child ends by SIGABRT, which would lose the counters of the
// very lines that the test is about. Write them first, then die as before.
#include <csignal>

extern "C" void __gcov_dump();  // NOLINT(bugprone-reserved-identifier): the runtime's name

namespace {

void dumpAndAbort(int signal) {
  __gcov_dump();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

[[maybe_unused]] auto const previous = std::signal(SIGABRT, dumpAndAbort);

}  // namespace
