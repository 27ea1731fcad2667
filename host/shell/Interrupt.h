// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>

namespace Host {

/// Takes SIGINT, which Ctrl-C sends, as a wish to stop what is running: the signal sets a flag, and
/// long work looks at it. One at a time. A system call that waits ends with EINTR.
class Interrupt {
 public:
  Interrupt();
  Interrupt(Interrupt const&) = delete;
  Interrupt& operator=(Interrupt const&) = delete;
  /// Gives the signal its former meaning.
  ~Interrupt();

  /// Whether the signal came since the last clear(). False where nothing takes the signal.
  static bool requested();
  static void clear();

 private:
  struct sigaction former_ {};
};

}  // namespace Host
