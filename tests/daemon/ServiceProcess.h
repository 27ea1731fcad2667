// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "client/Connection.h"
#include "tests/host/store/Places.h"

namespace BfnTest {

/// The service's program, started by a test, in a directory of its own that goes with the object.
/// What it keeps there outlives its process.
class ServiceProcess {
 public:
  explicit ServiceProcess(std::vector<std::string> options = {});
  ServiceProcess(ServiceProcess const&) = delete;
  ServiceProcess& operator=(ServiceProcess const&) = delete;
  /// Kills it.
  ~ServiceProcess();

  /// Starts it, and returns when it answers. Throws std::runtime_error with its log when it ends
  /// before that.
  void start();
  /// Ends it by a signal, SIGTERM or SIGKILL, and gives its wait status.
  int stop(int signal);
  /// Waits until it has ended by itself, 60 s at most. Gives its wait status.
  int wait();
  bool runs() const { return process_ > 0; }
  pid_t process() const { return process_; }
  /// Options of the next start.
  std::vector<std::string>& options() { return options_; }

  /// Of the next start.
  std::string plugin;
  std::string switchName = "leaf1";

  std::string file(std::string const& name) const { return directory_.file(name); }
  std::string socket() const { return file("control"); }
  std::string log() const;

  /// The answer to a line: {"answer", "text"} or {"error", "status"}. Throws NoService.
  nlohmann::json ask(std::string const& line);
  /// Its JSON; throws std::runtime_error with the error.
  nlohmann::json answer(std::string const& line);
  std::string text(std::string const& line);
  /// Lines whose answers are of no interest; throws std::runtime_error with the first error.
  void lines(std::vector<std::string> const& all);
  nlohmann::json status() { return answer("status"); }
  /// Whether the agent comes into that state within 60 s.
  bool reaches(std::string const& state);
  /// Whether the agent is in sync and its store connected within 60 s.
  bool becomesReady();
  Connection connect() const { return Connection(socket()); }

 private:
  TemporaryDirectory const directory_;
  std::vector<std::string> options_;
  pid_t process_ = -1;
  std::optional<Connection> connection_;
};

/// Lines after which a switch has one VRF, red, with id 7, one interface in VLAN 1006, and is to be
/// brought up.
std::vector<std::string> bringUpLines(size_t tableSize = 1000);
/// An address on that interface.
std::string addressLine(std::string const& address);
/// The operator's line for it.
std::string rewriteLine(std::string const& address, std::string const& mac);

}  // namespace BfnTest
