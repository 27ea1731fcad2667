// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/prompt/PromptTarget.h"
#include "host/shell/Shell.h"

/// The lab's shell as what a prompt is for. While it lives, windows for changes end by the wall's
/// time.
class ShellTarget final : public Host::PromptTarget {
 public:
  /// The shell must outlive it.
  explicit ShellTarget(Host::Shell& shell);
  ~ShellTarget() override;

  std::string name() const override { return "lab"; }
  Host::Pipeline const& pipeline() const override { return shell_.pipeline(); }
  void add(Host::CommandGroup group) override { shell_.add(std::move(group)); }
  Host::Selection known(std::string_view kind, std::string_view typed) override;
  void run(std::string_view line, std::ostream& errors) override { shell_.runLine(line, errors); }
  bool ended() const override { return shell_.exited(); }
  void pagerIs(std::function<void(Host::Answer const&)> pager) override;
  void recorderIs(Recorder const& recorder) override;
  std::optional<double> timeLeft() override { return shell_.changes().realTimeLeft(); }
  void runDue() override { shell_.runDue(); }
  /// What was not confirmed does not outlive the session.
  void leave() override { shell_.takeBack(); }

 private:
  Host::Shell& shell_;
};
