// SPDX-License-Identifier: Apache-2.0
#include "host/service/Service.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <utility>

#include "framework/log/EmitLog.h"
#include "framework/log/LogHandle.h"
#include "host/dumps/Dumps.h"
#include "host/loop/EventLoop.h"

namespace Host {

namespace {

using Kiv::U32;

constexpr unsigned kClaimSeconds = 10;
constexpr double kClaimEvery = 3;
constexpr double kFirstRestartPause = 0.1;
constexpr double kLongestRestartPause = 5;

// The limits are those of a service, whose states change seldom.
Kiv::LogHandle serviceState("BFN_MAC_REWRITE_SERVICE_STATE", Kiv::LogSeverity::notice,
                            "The agent is %s%s.",
                            "The service has brought the agent up, or waits before it does.",
                            "While it waits: provide what is missing.", 1.0, 1000.0, false);
Kiv::LogHandle serviceHeld(
    "BFN_MAC_REWRITE_SERVICE_HELD", Kiv::LogSeverity::alert, "The agent is held: %s.",
    "Several bring-ups in a row with the same inputs have ended the process. The agent is not "
    "brought up again; the hardware keeps the rows that it has.",
    "Correct the input that the message names, or start it again with agent retry.", 1.0, 1000.0,
    false);
Kiv::LogHandle earlierDeath(
    "BFN_MAC_REWRITE_SERVICE_DIED", Kiv::LogSeverity::error,
    "The last process ended while it handled \"%s\": %s.",
    "An event has ended the agent's process. The hardware kept its rows meanwhile.",
    "Report the message if the event was an ordinary one.", 1.0, 1000.0, false);
Kiv::LogHandle handlerException("BFN_MAC_REWRITE_SERVICE_EXCEPTION", Kiv::LogSeverity::error,
                                "%s: exception: %s.",
                                "A handler of the agent has refused an event.",
                                "Correct the input that the message names.", 60.0, 20.0, false);
Kiv::LogHandle portFailed("BFN_MAC_REWRITE_SERVICE_PORT", Kiv::LogSeverity::warning,
                          "The port %s cannot be set yet: %s.",
                          "A device of the store's ports is not there, or is not what a port is.",
                          "Make the device; the port is set by itself then.", 60.0, 20.0, false);
Kiv::LogHandle switchTaken("BFN_MAC_REWRITE_SERVICE_SWITCH_TAKEN", Kiv::LogSeverity::alert,
                           "The switch %s is held in the state store by %s.",
                           "Another service runs under the name of this switch, on the same store.",
                           "Give each switch a name of its own.", 1.0, 1000.0, false);

}  // namespace

char const* name(Service::State state) {
  switch (state) {
    case Service::State::Reading:
      return "reading";
    case Service::State::Waiting:
      return "waiting";
    case Service::State::Paused:
      return "paused";
    case Service::State::Held:
      return "held";
    case Service::State::Running:
      return "running";
  }
  return "?";
}

Service::Service(std::unique_ptr<Store> store, SwitchTable table, ServiceOptions options)
    : options_(std::move(options)),
      deaths_(options_.state),
      database_(Kiv::makeActive<Corvo::Database>()),
      host_(database_, std::move(table)),
      mirror_(std::move(store), database_, Kiv::Ptr<Kiv::Clock const>(host_.clock),
              {{InputPath::kCapability}}),
      inputs_(mirror_, *database_),
      started_(EventLoop::now()) {
  host_.clock->nowIs(started_);
  host_.journal().limitIs(0);
  since_ = started_;
  because_ = "the state store has not been read yet";
  if (auto const& death = deaths_.last(); death && deaths_.isNew()) {
    Kiv::emitLog(earlierDeath, death->event,
                 death->text.empty() ? "signal " + std::to_string(death->signal) : death->text);
  }
}

// The agent goes first, while all that it uses is there.
Service::~Service() {
  host_.agentDel();
}

void Service::stateIs(State state, std::string because) {
  if (state_ == state && because_ == because) return;
  if (state_ != state) since_ = host_.clock->now();
  state_ = state;
  because_ = std::move(because);
  if (state == State::Held) {
    Kiv::emitLog(serviceHeld, because_);
  } else {
    Kiv::emitLog(serviceState, name(state), because_.empty() ? "" : ": " + because_);
  }
}

std::string Service::because() const {
  if (state_ != State::Running) return because_;
  return host_.heldBecause().value_or("");
}

bool Service::ready() const {
  return state_ == State::Running && mirror_.current() && !host_.heldBecause();
}

double Service::uptime() const {
  return host_.clock->now() - started_;
}

Kiv::U64 Service::chipChanges() const {
  return host_.journal().dropped();
}

template <class F>
void Service::logged(char const* what, F const& run) {
  try {
    run();
  } catch (StoreError const&) {
    // The mirror says so itself.
  } catch (std::exception const& exception) {
    Kiv::emitLog(handlerException, what, exception.what());
  }
}

void Service::tick() {
  host_.clock->nowIs(std::max(EventLoop::now(), host_.clock->now()));
}

void Service::turn(double woken) {
  Kiv::U64 const before = chipChanges();
  tick();
  Deaths::eventIs("changes of the state store");
  logged("the state store", [&] { mirror_.follow(); });
  logged("the service", [&] { step(); });
  Deaths::eventIs("the end of a turn");
  logged("the end of a turn", [&] { host_.turnEnds(); });
  if (state_ == State::Running && !bringUpEnded_) {
    // Also when the rows are held: the process has not died of it.
    deaths_.bringUpEnded();
    bringUpEnded_ = true;
  }
  Deaths::eventIs("nothing");
  if (chipChanges() != before) latency_.add(EventLoop::now() - woken);
}

double Service::due() const {
  double due = mirror_.due();
  if (Reconciler const* const retry = host_.reconciler(); retry != nullptr && retry->nextRetry()) {
    due = std::min(due, *retry->nextRetry());
  }
  if (state_ == State::Paused) due = std::min(due, pausedUntil_);
  if (options_.shared && mirror_.current()) due = std::min(due, claimDue_);
  return due;
}

int Service::deviceDescriptor() const {
  HardwareTable const* const hardware = host_.hardware();
  return hardware == nullptr ? -1 : hardware->eventDescriptor();
}

void Service::holdSwitch() {
  if (!options_.shared || !mirror_.current() || host_.clock->now() < claimDue_) return;
  claimDue_ = host_.clock->now() + kClaimEvery;
  std::string const holder = mirror_.store().claim("", options_.owner, kClaimSeconds);
  if (holder != options_.owner && holder != holder_) {
    Kiv::emitLog(switchTaken, options_.switchName, holder);
  }
  holder_ = holder;
}

void Service::step() {
  holdSwitch();
  bool const heldByOther = options_.shared && holder_ != options_.owner;
  if (state_ != State::Running && heldByOther) {
    if (holder_.empty()) return;
    stateIs(State::Waiting, "the switch " + options_.switchName + " is held by " + holder_);
    return;
  }
  if (!inputs_.made()) {
    if (!mirror_.current()) return;
    inputs_.make();
    host_.cliConfigIsDatabases();
  }
  followPorts();
  if (state_ == State::Running) {
    followProfile();
    return;
  }
  if (state_ == State::Held && mirror_.status().applied == heldAt_) return;
  if (auto const lacks = inputs_.lacks()) {
    stateIs(State::Waiting, *lacks);
    return;
  }
  if (state_ != State::Paused) {
    Kiv::U64 const contents = mirror_.contentsHash();
    if (deaths_.attempts(contents) >= Deaths::kMaxAttempts) {
      heldAt_ = mirror_.status().applied;
      auto const& death = deaths_.last();
      stateIs(State::Held,
              std::to_string(deaths_.attempts()) + " bring-ups in a row have ended the process" +
                  (death ? ", while it handled \"" + death->event + "\": " + death->text : ""));
      return;
    }
    if (unsigned const deaths = deaths_.attempts(); deaths > 0) {
      double const pause =
          std::min(kLongestRestartPause,
                   kFirstRestartPause * static_cast<double>(1U << std::min(deaths, 10U)));
      pausedUntil_ = host_.clock->now() + pause;
      stateIs(State::Paused, "the last bring-up ended the process");
      return;
    }
  } else if (host_.clock->now() < pausedUntil_) {
    return;
  }
  bringUp();
}

void Service::bringUp() {
  deaths_.bringUpBegins(mirror_.contentsHash());
  bringUpEnded_ = false;
  Deaths::eventIs("the bring-up: the records");
  try {
    if (!host_.hasPlugin()) {
      host_.pluginIs(Plugin(options_.plugin));
      inputs_.connect(host_);
    }
  } catch (PluginError const& error) {
    deaths_.bringUpEnded();
    heldAt_ = mirror_.status().applied;
    stateIs(State::Held, error.what());
    return;
  }
  host_.agentIs();
  profile_.clear();
  followProfile();
  Deaths::eventIs("the bring-up: stage 1");
  std::optional<std::string> failure;
  try {
    set(host_.bfnL3Output(), "initMacRewriteTables", {Kiv::GenericValue::of(true)});
    host_.initializeTables();
    Deaths::eventIs("the bring-up: stage 2");
    set(host_.bfnL3Output(), "startMacRewriteSm", {Kiv::GenericValue::of(true)});
  } catch (std::exception const& exception) {
    failure = exception.what();
    Kiv::emitLog(handlerException, "the bring-up", exception.what());
  }
  Deaths::eventIs("the bring-up: the rows");
  host_.stage2Ended(failure);
  stateIs(State::Running, "");
}

void Service::followProfile() {
  std::string const wanted = inputs_.bringUp().activeProfile().stdString();
  if (wanted == profile_) return;
  Deaths::eventIs("the active profile " + wanted);
  profile_ = wanted;
  host_.profileData->profileDataEntryIs(wanted);
  host_.profileIs(wanted);
  if (host_.tableManager()) host_.initializeTables();
}

void Service::followPorts() {
  if (portsAt_ == mirror_.status().applied && !retryPorts_) return;
  bool const again = std::exchange(retryPorts_, false);
  portsAt_ = mirror_.status().applied;
  HardwareTable* const hardware = host_.hardware();
  std::map<std::string, Kiv::U16> wanted;
  for (auto walk = inputs_.ports().vlan().cursor(); auto const* const port = walk.next();) {
    wanted[port->key.stdString()] = port->value;
  }
  for (auto const& [device, vlan] : ports_) {
    if (wanted.contains(device)) continue;
    if (hardware != nullptr) hardware->portDel(device);
    portErrors_.erase(device);
  }
  std::erase_if(ports_, [&](auto const& port) { return !wanted.contains(port.first); });
  for (auto const& [device, vlan] : wanted) {
    auto const there = ports_.find(device);
    bool const failed = portErrors_.contains(device);
    if (there != ports_.end() && there->second == vlan && !(failed && again)) continue;
    ports_[device] = vlan;
    try {
      if (hardware == nullptr) throw std::runtime_error("the chip model has no ports");
      hardware->portIs(device, vlan == 0 ? std::nullopt : std::optional(vlan));
      portErrors_.erase(device);
    } catch (std::exception const& exception) {
      if (portErrors_[device] != exception.what()) {
        Kiv::emitLog(portFailed, device, exception.what());
      }
      portErrors_[device] = exception.what();
    }
  }
}

void Service::needSwitch() const {
  if (options_.shared && holder_ != options_.owner) {
    throw StoreRefused("the switch " + options_.switchName + " is held by " +
                       (holder_.empty() ? "nobody yet" : holder_));
  }
}

void Service::submit(std::vector<StoreChange> changes, std::string_view event) {
  if (changes.empty()) return;
  needSwitch();
  Deaths::eventIs(event);
  mirror_.submit(std::move(changes));
}

void Service::submit(std::vector<StoreChange> changes, std::string_view event,
                     StoreMirror::Progress const& progress) {
  needSwitch();
  Deaths::eventIs(event);
  mirror_.submitReadable(std::move(changes), progress);
}

bool Service::retry() {
  if (state_ != State::Held && state_ != State::Paused) return false;
  deaths_.bringUpEnded();
  stateIs(State::Waiting, "the next bring-up was asked for");
  return true;
}

bool Service::accept() {
  if (mirror_.status().state != StoreMirror::State::WentBack) return false;
  Deaths::eventIs("store accept");
  mirror_.accept();
  return true;
}

std::optional<BfnDriver::TableHits> Service::hits() {
  // Opened once, under a number that no binding has.
  constexpr U32 kSession = ~U32{0};
  if (!hitsTable_) {
    hitsTable_ = host_.table().open({kSession, 0, {}, "", BfnChip::ChipModel::kRewriteTable});
  }
  BfnDriver::TableHits hits;
  if (!hitsTable_ || host_.table().tableHits(*hitsTable_, hits) != BfnDriver::Status::Ok) {
    return std::nullopt;
  }
  return hits;
}

nlohmann::json Service::status() {
  nlohmann::json all;
  std::string const why = because();
  all["agent"] = {{"state", name(state_)},
                  {"because", why},
                  {"ready", ready()},
                  {"since", host_.clock->now() - since_}};
  all["profile"] = inputs_.made() ? inputs_.bringUp().activeProfile().stdString() : "";
  all["table"] = options_.table;
  if (Reconciler const* const rows = host_.reconciler()) {
    all["rows"] = {{"wanted", rows->wanted()},
                   {"installed", rows->installed()},
                   {"waiting", rows->waitingForRoom()},
                   {"failed", rows->failed()}};
  }
  StoreMirror::Status const& store = mirror_.status();
  all["store"] = {{"name", mirror_.store().name()},
                  {"state", Host::name(store.state)},
                  {"because", store.reason},
                  {"since", host_.clock->now() - store.since},
                  {"version", toString(store.version)},
                  {"applied", store.applied},
                  {"resyncs", store.resyncs},
                  {"unreadable", mirror_.unreadable()}};
  all["ports"] = nlohmann::json::object();
  for (auto const& [device, vlan] : ports_) {
    nlohmann::json port{{"vlan", vlan == 0 ? nlohmann::json() : nlohmann::json(vlan)}};
    if (auto const error = portErrors_.find(device); error != portErrors_.end()) {
      port["error"] = error->second;
    }
    all["ports"][device] = port;
  }
  all["switch"] = options_.switchName;
  if (options_.shared) all["holder"] = holder_;
  all["uptime"] = uptime();
  all["chipChanges"] = chipChanges();
  all["deaths"] = deaths_.count();
  if (auto const& death = deaths_.last()) {
    all["lastDeath"] = {{"time", death->time}, {"signal", death->signal}, {"event", death->event},
                        {"text", death->text}, {"where", death->where},   {"trace", death->trace}};
  } else {
    all["lastDeath"] = nullptr;
  }
  return all;
}

}  // namespace Host
