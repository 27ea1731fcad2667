// SPDX-License-Identifier: Apache-2.0
#include "lab/ShellTarget.h"

#include <chrono>
#include <ostream>
#include <utility>

ShellTarget::ShellTarget(Host::Shell& shell) : shell_(shell) {
  shell.changes().realTimeIs([] {
    using Clock = std::chrono::steady_clock;
    return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
  });
}

ShellTarget::~ShellTarget() {
  shell_.changes().realTimeIs({});
}

Host::Selection ShellTarget::known(std::string_view kind, std::string_view typed) {
  return Host::beginningWith(typed, Host::knownValues(Host::KnownInputs(shell_.host()), kind));
}

void ShellTarget::pagerIs(std::function<void(Host::Answer const&)> pager) {
  if (!pager) {
    shell_.pagerIs({});
    return;
  }
  shell_.pagerIs([this, pager = std::move(pager)](Host::Answer const& answer) {
    shell_.out().flush();
    pager(answer);
  });
}

void ShellTarget::recorderIs(Recorder const& recorder) {
  shell_.recorderIs({recorder.line, recorder.refused});
}
