// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/commands/Configuration.h"

namespace Host {

/// Changes of the operator's configuration that can be taken back: checkpoints, and a window within
/// which changes have to be confirmed.
///
/// The window is measured by the lab's clock; handleTime() ends it once its time is over. Where
/// time passes by itself, as at a prompt, realTimeIs() adds a clock: the window ends with whichever
/// shows its end first.
class Changes {
 public:
  /// The checkpoints that are kept; a further one replaces the oldest.
  static constexpr size_t kMostCheckpoints = 100;

  struct Checkpoint {
    std::string name;
    double time;
    Configuration configuration;
  };

  /// The host must outlive this.
  explicit Changes(Switch& host) : host_(host) {}
  Changes(Changes const&) = delete;
  Changes& operator=(Changes const&) = delete;

  Configuration current() const { return configurationOf(host_); }
  /// What is different for the configuration to become that one.
  std::vector<ConfigurationChange> differencesTo(Configuration const& target) const;
  /// Makes the configuration that one, with no change but those. Throws InputError when it has been
  /// taken away; what a handler throws comes once all changes are made.
  std::vector<ConfigurationChange> become(Configuration const& target);

  /// Keeps the configuration under that name, in place of an earlier one of the name; without a
  /// name, under the next number. Gives the name.
  std::string const& checkpointIs(std::string const& name);
  /// Oldest first.
  std::vector<Checkpoint> const& checkpoints() const { return checkpoints_; }
  /// Null when there is none of that name; without a name, the newest.
  Checkpoint const* checkpoint(std::string const& name) const;

  /// Opens the window, or gives it another end; what it goes back to is the configuration when it
  /// was opened.
  void windowIs(double seconds);
  /// What was changed since the window was opened stays. False when there is no window.
  bool confirm();
  bool hasWindow() const { return window_.has_value(); }
  /// When the window ends on the lab's clock.
  std::optional<double> deadline() const;
  /// How long the window still lasts by itself; nothing without a window or a clock for that.
  std::optional<double> realTimeLeft() const;
  void realTimeIs(std::function<double()> clock);
  /// Goes back when the window's time is over.
  void handleTime();
  /// Goes back at once.
  void expire();
  /// Forgets everything.
  void reset();

 private:
  struct Window {
    Configuration before;
    double seconds;
    double deadline;
    double realDeadline;
  };

  Switch& host_;
  std::function<double()> realTime_;
  std::vector<Checkpoint> checkpoints_;
  size_t numbered_ = 0;
  std::optional<Window> window_;
};

}  // namespace Host
