// SPDX-License-Identifier: Apache-2.0
#include "host/shell/Interrupt.h"

namespace Host {

namespace {

volatile std::sig_atomic_t requests = 0;

void request(int /*signal*/) {
  requests = 1;
}

}  // namespace

Interrupt::Interrupt() {
  clear();
  struct sigaction action {};
  action.sa_handler = request;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, &former_);
}

Interrupt::~Interrupt() {
  ::sigaction(SIGINT, &former_, nullptr);
}

bool Interrupt::requested() {
  return requests != 0;
}

void Interrupt::clear() {
  requests = 0;
}

InterruptsHeld::InterruptsHeld() {
  sigset_t held;
  sigemptyset(&held);
  sigaddset(&held, SIGINT);
  sigaddset(&held, SIGWINCH);
  ::pthread_sigmask(SIG_BLOCK, &held, &before_);
}

InterruptsHeld::~InterruptsHeld() {
  ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace Host
