// SPDX-License-Identifier: Apache-2.0
#include "host/commands/Changes.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "framework/log/EmitLog.h"
#include "framework/log/LogHandle.h"
#include "host/language/InputError.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

Kiv::LogHandle notConfirmed(
    "BFN_VXLAN_MAC_REWRITE_NOT_CONFIRMED", Kiv::LogSeverity::warning,
    "VXLAN forwarding source MAC address rewrites were not confirmed within %s seconds: the "
    "configuration is what it was before, lines changed: %s.",
    "The changes were made in a window that ended without a commit.",
    "Make the changes again, and commit them in time.", 1.0, 1000.0, false);

}  // namespace

std::vector<ConfigurationChange> Changes::differencesTo(Configuration const& target) const {
  return differences(configurationOf(host_), target);
}

std::vector<ConfigurationChange> Changes::become(Configuration const& target) {
  if (!host_.cliConfig()) {
    throw InputError("there is no cli-config; host replace cli-config makes one");
  }
  auto changes = differencesTo(target);
  // A line whose handlers throw is configured all the same, and so are those after it.
  std::exception_ptr exception;
  for (ConfigurationChange const& change : changes) {
    try {
      if (change.after) {
        configurationLineIs(host_, change.key, *change.after);
      } else {
        configurationLineDel(host_, change.key);
      }
    } catch (std::exception const&) {
      if (!exception) exception = std::current_exception();
    }
  }
  if (exception) std::rethrow_exception(exception);
  return changes;
}

std::string const& Changes::checkpointIs(std::string const& name) {
  std::string known = name;
  while (known.empty() || (name.empty() && checkpoint(known) != nullptr)) {
    known = std::to_string(++numbered_);
  }
  std::erase_if(checkpoints_, [&](Checkpoint const& each) { return each.name == known; });
  if (checkpoints_.size() == kMostCheckpoints) checkpoints_.erase(checkpoints_.begin());
  checkpoints_.push_back({known, host_.clock->now(), configurationOf(host_)});
  return checkpoints_.back().name;
}

Changes::Checkpoint const* Changes::checkpoint(std::string const& name) const {
  if (name.empty()) return checkpoints_.empty() ? nullptr : &checkpoints_.back();
  auto const found = std::ranges::find(checkpoints_, name, &Checkpoint::name);
  return found == checkpoints_.end() ? nullptr : &*found;
}

void Changes::windowIs(double seconds) {
  double const end = host_.clock->now() + seconds;
  double const realEnd = (realTime_ ? realTime_() : 0) + seconds;
  auto before = window_ ? std::move(window_->before) : configurationOf(host_);
  window_ = Window{std::move(before), seconds, end, realEnd};
}

bool Changes::confirm() {
  bool const open = hasWindow();
  window_.reset();
  return open;
}

std::optional<double> Changes::deadline() const {
  if (!window_) return std::nullopt;
  return window_->deadline;
}

std::optional<double> Changes::realTimeLeft() const {
  if (!window_ || !realTime_) return std::nullopt;
  return std::max(0.0, window_->realDeadline - realTime_());
}

void Changes::realTimeIs(std::function<double()> clock) {
  realTime_ = std::move(clock);
}

void Changes::handleTime() {
  if (!window_) return;
  bool const over = host_.clock->now() >= window_->deadline ||
                    (realTime_ && realTime_() >= window_->realDeadline);
  if (over) expire();
}

void Changes::expire() {
  if (!window_) return;
  Window const window = std::move(*window_);
  window_.reset();
  // Without a configuration there is nothing to take back.
  if (!host_.cliConfig()) return;
  Kiv::emitLog(notConfirmed, std::to_string(static_cast<Kiv::U64>(window.seconds)),
               std::to_string(differencesTo(window.before).size()));
  become(window.before);
}

void Changes::reset() {
  window_.reset();
  checkpoints_.clear();
  numbered_ = 0;
}

}  // namespace Host
