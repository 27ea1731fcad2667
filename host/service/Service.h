// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/service/Deaths.h"
#include "host/service/Inputs.h"
#include "host/service/Latency.h"
#include "host/store/StoreMirror.h"
#include "host/switch/Switch.h"

namespace Host {

struct ServiceOptions {
  std::filesystem::path plugin;
  /// Where what outlives the process is kept, beside the store.
  std::filesystem::path state;
  /// The table as it was asked for; shown in the status.
  std::string table = "model";
  /// The switch's name, under which its inputs lie in a store that several share, and by which it
  /// is held there.
  std::string switchName;
  /// Who holds it: this service on this machine, also after a restart.
  std::string owner;
  bool shared = false;
};

/// The agent as a service: its inputs come from a store, its rows go through a reconciler into a
/// table that may outlive the process, and it is brought up when the inputs say that they are
/// complete.
///
/// Until then, and when bring-ups end in death, the table keeps the rows that it has. Three deaths
/// in a row at the same inputs: the agent is held, the plug-in is not loaded, until an input
/// changes or retry().
///
/// Turns: the host calls turn() after each event, and waits for the descriptors and for due().
class Service {
 public:
  enum class State : Kiv::U8 {
    Reading,  ///< the store has not been read
    Waiting,  ///< the inputs are not complete
    Paused,   ///< after a death, before the next bring-up
    Held,     ///< bring-ups end in death
    Running,
  };

  /// Throws what Deaths does. The plug-in is opened later.
  Service(std::unique_ptr<Store> store, SwitchTable table, ServiceOptions options);
  Service(Service const&) = delete;
  Service& operator=(Service const&) = delete;
  ~Service();

  State state() const { return state_; }
  /// Why it is not Running, or runs with the rows held as they are; empty otherwise.
  std::string because() const;
  /// The agent runs, its rows are followed, and the store is.
  bool ready() const;

  /// The time is what the steady clock says, until the next call. turn() does it, too.
  void tick();
  /// Follows the store and the devices, brings the agent up when that is due, and ends the turn.
  /// `woken`: the time, by the steady clock, at which the event came. Exceptions of handlers are
  /// logged.
  void turn(double woken);
  /// When turn() has something to do by itself, by the steady clock.
  double due() const;
  int storeDescriptor() { return mirror_.descriptor(); }
  int deviceDescriptor() const;
  /// Devices have come or gone.
  void devicesChanged() { retryPorts_ = true; }

  /// Puts changes into the store and applies what it then has. Throws StoreError,
  /// UnreadableException, and what handlers throw. `event` is what a death would be noted under.
  void submit(std::vector<StoreChange> changes, std::string_view event);
  /// The same for changes that are readable, see StoreMirror::submitReadable().
  void submit(std::vector<StoreChange> changes, std::string_view event,
              StoreMirror::Progress const& progress);
  /// Tries a bring-up again. False when none failed.
  bool retry();
  /// Takes the store as it is after it went back. False when it did not.
  bool accept();

  Switch& host() { return host_; }
  Switch const& host() const { return host_; }
  Inputs& inputs() { return inputs_; }
  StoreMirror& mirror() { return mirror_; }
  Deaths const& deaths() const { return deaths_; }
  ServiceOptions const& options() const { return options_; }
  Latency const& latency() const { return latency_; }
  /// Ports that could not be set, and why.
  std::map<std::string, std::string> const& portErrors() const { return portErrors_; }
  double since() const { return since_; }
  /// Seconds since the service began.
  double uptime() const;
  /// Writes and erases that reached the chip.
  Kiv::U64 chipChanges() const;

  /// Packets that matched; nothing when the table cannot say.
  std::optional<BfnDriver::TableHits> hits();
  /// All of it, for people and programs.
  nlohmann::json status();

 private:
  void step();
  void stateIs(State state, std::string because);
  void holdSwitch();
  void needSwitch() const;
  void bringUp();
  void followProfile();
  void followPorts();
  template <class F>
  void logged(char const* what, F const& run);

  ServiceOptions const options_;
  Deaths deaths_;
  Kiv::Ptr<Corvo::Database> const database_;
  Switch host_;
  StoreMirror mirror_;
  Inputs inputs_;
  State state_ = State::Reading;
  std::string because_;
  double since_ = 0;
  double const started_;
  double pausedUntil_ = 0;
  Kiv::U64 heldAt_ = 0;  // changes applied when it was held
  bool bringUpEnded_ = false;
  double claimDue_ = 0;
  std::string holder_;
  std::string profile_;
  std::map<std::string, Kiv::U16> ports_;
  std::map<std::string, std::string> portErrors_;
  Kiv::U64 portsAt_ = ~Kiv::U64{0};
  bool retryPorts_ = false;
  Latency latency_;
  std::optional<BfnDriver::TableHandle> hitsTable_;
};

/// "reading", "waiting", "paused", "held", "running".
char const* name(Service::State state);

}  // namespace Host
