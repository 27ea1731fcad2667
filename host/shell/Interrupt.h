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

/// Holds SIGINT and SIGWINCH back, so that none comes between a question and the wait after it,
/// which is done with released().
class InterruptsHeld {
 public:
  InterruptsHeld();
  InterruptsHeld(InterruptsHeld const&) = delete;
  InterruptsHeld& operator=(InterruptsHeld const&) = delete;
  ~InterruptsHeld();

  /// The signals as they were held before.
  sigset_t const* released() const { return &before_; }

 private:
  sigset_t before_{};
};

}  // namespace Host
