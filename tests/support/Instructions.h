// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>
#include <cstddef>
#include <optional>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace BfnTest {

/// Counts the machine instructions that `work` executes, by single steps of a forked copy of the
/// process, in which its effects stay: a measure of cost that does not depend on the machine's
/// load. Nothing where a process may not be traced. A step takes microseconds.
template <class Work>
std::optional<size_t> instructionsOf(Work const& work) {
  pid_t const child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    raise(SIGSTOP);
    work();
    raise(SIGSTOP);
    _exit(0);
  }
  int status = 0;
  auto const stoppedBy = [&](int signal) {
    return waitpid(child, &status, 0) == child && WIFSTOPPED(status) && WSTOPSIG(status) == signal;
  };
  if (!stoppedBy(SIGSTOP)) return std::nullopt;
  size_t steps = 0;
  do {
    ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr);
    ++steps;
  } while (stoppedBy(SIGTRAP));
  bool const whole = WIFSTOPPED(status) && WSTOPSIG(status) == SIGSTOP;
  if (WIFSTOPPED(status)) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  return whole ? std::optional(steps) : std::nullopt;
}

}  // namespace BfnTest
