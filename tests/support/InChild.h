// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace BfnTest {

/// How a forked child has ended, and what it wrote.
struct ChildEnd {
  int status = 0;
  std::string text;

  bool exitedWith(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
};

/// Runs `body` in a forked child with `fd` led into a pipe; `body` gives the child's exit code. No
/// destructor of the parent's objects and no exit handler runs there.
template <class Body>
ChildEnd inChild(int fd, Body const& body) {
  int ends[2];
  if (::pipe(ends) != 0) std::abort();
  pid_t const child = ::fork();
  if (child < 0) std::abort();
  if (child == 0) {
    ::close(ends[0]);
    ::dup2(ends[1], fd);
    ::_exit(body());
  }
  ::close(ends[1]);
  ChildEnd end;
  char buffer[4096];
  ssize_t got = 0;
  while ((got = ::read(ends[0], buffer, sizeof buffer)) > 0) {
    end.text.append(buffer, static_cast<size_t>(got));
  }
  ::close(ends[0]);
  while (::waitpid(child, &end.status, 0) < 0) {
  }
  return end;
}

}  // namespace BfnTest
