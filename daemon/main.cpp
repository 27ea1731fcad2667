// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <pwd.h>
#include <random>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-id128.h>
#include <unistd.h>

#include "daemon/Configuration.h"
#include "daemon/Log.h"
#include "framework/core/Hash.h"
#include "framework/log/LogService.h"
#include "framework/trace/TraceHandle.h"
#include "host/kernel/OpenTable.h"
#include "host/loop/EventLoop.h"
#include "host/reconcile/Audit.h"
#include "host/service/ControlServer.h"
#include "host/service/Metrics.h"
#include "host/service/Service.h"
#include "host/service/ServiceCommands.h"
#include "host/service/Version.h"
#include "host/store/ScopedStore.h"
#include "host/switch/Installed.h"

namespace {

namespace fs = std::filesystem;
using Host::EventLoop;
using Host::OwnedDescriptor;
using Kiv::LogSeverity;

enum ExitStatus : int { Done = 0, Failed = 1, BadInput = 2 };

constexpr char kExamples[] =
    "Examples:\n"
    "  macrewrited                                rows in a model, inputs in a file\n"
    "  macrewrited --table kernel --switch leaf1  rows in the kernel\n"
    "  macrewrited --config /etc/macrewrite/macrewrited.toml --check\n"
    "                                             what is wrong with a configuration\n"
    "  macrewrited --database redis://10.0.0.9 --switch leaf1\n"
    "                                             inputs at a server that switches share\n"
    "\n"
    "Exit status:\n"
    "  0  ended by a signal\n"
    "  1  it could not run\n"
    "  2  bad input\n"
    "  3  this machine has not what the kernel's table needs";

// Beside the control socket, which cannot be on a bpf file system.
constexpr char kKernelTable[] = "kernel:/run/macrewrite/table";

std::string hostName() {
  char name[256] = "";
  ::gethostname(name, sizeof name - 1);
  return name;
}

std::string defaultState() {
  // Set by the service manager; several directories are separated by colons.
  if (char const* const given = std::getenv("STATE_DIRECTORY"); given != nullptr) {
    std::string const all = given;
    return all.substr(0, all.find(':'));
  }
  return "/var/lib/macrewrite";
}

// The same after a restart, and another one on another machine.
std::string ownerOf(Configuration const& with) {
  sd_id128_t machine{};
  char text[SD_ID128_STRING_MAX] = "unknown";
  // Not to be confused with what other programs call this machine.
  constexpr sd_id128_t kApplication{{0x8e, 0x51, 0xc0, 0x3b, 0x7f, 0x2d, 0x4a, 0x96, 0xb1, 0x0e,
                                     0x5d, 0x72, 0xc8, 0x94, 0x3a, 0x6f}};
  if (::sd_id128_get_machine_app_specific(kApplication, &machine) >= 0) {
    ::sd_id128_to_string(machine, text);
  }
  std::error_code error;
  return hostName() + ' ' + text + ' ' + fs::absolute(with.state, error).string();
}

// Hashed collections keep their order over restarts, so that an agent that starts again does the
// same as before.
Kiv::U32 storedHashSeed(fs::path const& state) {
  fs::path const file = state / "hash-seed";
  Kiv::U32 seed = 0;
  if (std::ifstream(file) >> seed) return seed;
  seed = std::random_device()();
  std::ofstream out(file);
  out << seed << '\n';
  if (!out.flush()) throw std::system_error(errno, std::generic_category(), file.string());
  return seed;
}

std::unique_ptr<Host::Store> storeOf(Configuration const& with, bool& shared) {
  Host::StoreUrl const url(with.database.empty() ? "sqlite:" + with.state + "/database"
                                                 : with.database);
  auto store = Host::openStore(url, with.store);
  shared = url.kind == Host::StoreUrl::Kind::Redis;
  if (!shared) return store;
  std::set<std::string> common;
  if (!with.ownConfiguration) common.insert(Host::InputPath::kConfig);
  return std::make_unique<Host::ScopedStore>(std::move(store), "switch/" + with.switchName + '/',
                                             std::move(common));
}

OwnedDescriptor controlSocket(Configuration const& with) {
  // A service manager may have made it, so that requests wait over a restart.
  if (::sd_listen_fds(1) > 0) return OwnedDescriptor(SD_LISTEN_FDS_START);
  return Host::ControlServer::listen(with.control);
}

/// The process: the service in an event loop.
class Daemon {
 public:
  Daemon(Configuration const& with, std::unique_ptr<Host::Store> store, Host::SwitchTable table,
         bool shared)
      : configuration_(with),
        service_(std::move(store), std::move(table),
                 {with.plugin, with.state, with.table, with.switchName, ownerOf(with), shared}),
        commands_(service_) {
    Kiv::LogService::clockIs([this] { return service_.host().clock->now(); });
    addCommands();
    server_ = std::make_unique<Host::ControlServer>(
        loop_, service_, commands_, controlSocket(with),
        Host::ControlServer::Options{
            writers(), [](uid_t uid, std::string_view line, std::string_view why) {
              Log::write(LogSeverity::informational,
                         "uid " + std::to_string(uid) + ": " + std::string(line) +
                             (why.empty() ? "" : ": ") + std::string(why));
            }});
    signals_[0] = loop_.signal(SIGTERM, [this] { loop_.stop(); });
    signals_[1] = loop_.signal(SIGINT, [this] { loop_.stop(); });
    due_ = loop_.timer([] {});
    metrics_ = loop_.timer([this] { writeMetrics(); });
    audit_ = loop_.timer([this] { stepAudit(); });
    if (int const devices = service_.deviceDescriptor(); devices >= 0) {
      devices_ =
          loop_.descriptor(devices, EPOLLIN, [this](std::uint32_t) { service_.devicesChanged(); });
    }
  }

  int run() {
    if (!configuration_.metrics.empty()) metrics_->timeIs(EventLoop::now());
    if (configuration_.auditInterval > 0) {
      audit_->timeIs(EventLoop::now() + configuration_.auditInterval);
    }
    do {
      turn();
    } while (loop_.step());
    ::sd_notify(0, "STOPPING=1");
    return Done;
  }

 private:
  void turn() {
    service_.turn(loop_.woken());
    server_->turnEnded();
    waitForStore();
    due_->timeIs(service_.due());
    notifyManager();
  }

  // The store may close its descriptor in any operation, and another one may get the number. So a
  // copy is waited for, and what it is of is known by the socket, not by the number.
  void waitForStore() {
    int const descriptor = service_.storeDescriptor();
    struct stat now {};
    if (descriptor >= 0 && ::fstat(descriptor, &now) != 0) now = {};
    if (now.st_dev == storeSocket_.st_dev && now.st_ino == storeSocket_.st_ino) return;
    store_.reset();
    storeSocket_ = now;
    storeDescriptor_ =
        OwnedDescriptor(now.st_ino == 0 ? -1 : ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    if (storeDescriptor_.get() < 0) return;
    store_ = loop_.descriptor(storeDescriptor_.get(), EPOLLIN, [](std::uint32_t) {});
  }

  // Up means that requests are answered; whether the agent is in sync is in the status.
  void notifyManager() {
    std::string const state = std::string("STATUS=") + Host::name(service_.state()) +
                              (service_.because().empty() ? "" : ": " + service_.because());
    if (state == notified_) return;
    ::sd_notify(0, ((notified_.empty() ? "READY=1\n" : "") + state).c_str());
    notified_ = state;
  }

  std::set<uid_t> writers() const {
    std::set<uid_t> users;
    for (std::string const& name : configuration_.writers) {
      if (passwd const* const user = ::getpwnam(name.c_str())) users.insert(user->pw_uid);
    }
    return users;
  }

  void addCommands() {
    Host::CommandGroup group{"process", {}};
    group.commands.emplace_back(
        "log level emergency|alert|critical|error|warning|notice|info|debug",
        "messages down to that severity are written", "log level notice",
        [](Host::Arguments const& given) {
          constexpr char const* kNames[] = {"emergency", "alert",  "critical", "error",
                                            "warning",   "notice", "info",     "debug"};
          std::string const name = given.text("emergency");
          for (int i = 0; i < 8; ++i) {
            if (name == kNames[i]) Log::levelIs(static_cast<LogSeverity>(i));
          }
          return Host::Answer();
        });
    commands_.add(std::move(group), true);
    Host::CommandGroup looks{"process", {}};
    looks.commands.emplace_back("show options", "the options in force, as a configuration has them",
                                "show options", [this](Host::Arguments const&) {
                                  nlohmann::json all = optionsOf(configuration_);
                                  std::string text;
                                  for (auto const& [name, value] : all.items()) {
                                    text +=
                                        (text.empty() ? "" : "\n") + name + " = " + value.dump();
                                  }
                                  return Host::Answer(std::move(all), std::move(text));
                                });
    looks.commands.emplace_back("show metrics", "the metrics, as the file for Prometheus has them",
                                "show metrics", [this](Host::Arguments const&) {
                                  std::string const text =
                                      Host::metricsText(service_, auditFindings_);
                                  return Host::Answer(text, text);
                                });
    commands_.add(std::move(looks), false);
  }

  void writeMetrics() {
    try {
      Host::writeMetrics(service_, configuration_.metrics, auditFindings_);
      metricsFailed_ = false;
    } catch (std::exception const& error) {
      if (!metricsFailed_)
        Log::write(LogSeverity::warning, std::string("metrics: ") + error.what());
      metricsFailed_ = true;
    }
    metrics_->timeIs(EventLoop::now() + std::max(configuration_.metricsInterval, 0.1));
  }

  // One slice of a comparison of the wanted rows with the table's; the loop runs between slices.
  void stepAudit() {
    Host::Reconciler* const rows = service_.host().reconciler();
    if (rows == nullptr || rows->held() || rows->tables() == 0) {
      comparison_.reset();
      audit_->timeIs(EventLoop::now() + configuration_.auditInterval);
      return;
    }
    constexpr size_t kRowsASlice = 4096;
    try {
      if (!comparison_) comparison_.emplace(rows->table(0));
      if (!comparison_->step(kRowsASlice)) {
        audit_->timeIs(EventLoop::now());
        return;
      }
      size_t const found = comparison_->findings().size();
      if (found > 0 && found != auditFindings_) {
        Log::write(LogSeverity::error,
                   "the audit has found " + std::to_string(found) +
                       " rows that are not as they are wanted; show them with audit, mend them "
                       "with repair");
      }
      auditFindings_ = found;
    } catch (std::exception const& error) {
      Log::write(LogSeverity::error, std::string("the audit: ") + error.what());
    }
    comparison_.reset();
    audit_->timeIs(EventLoop::now() + configuration_.auditInterval);
  }

  Configuration const& configuration_;
  EventLoop loop_;
  Host::Service service_;
  Host::ServiceCommands commands_;
  std::unique_ptr<Host::ControlServer> server_;
  EventLoop::SourcePtr signals_[2];
  EventLoop::SourcePtr due_;
  EventLoop::SourcePtr metrics_;
  EventLoop::SourcePtr audit_;
  EventLoop::SourcePtr devices_;
  struct stat storeSocket_ {};
  OwnedDescriptor storeDescriptor_;
  EventLoop::SourcePtr store_;
  std::string notified_;
  bool metricsFailed_ = false;
  std::optional<Host::Audit> comparison_;
  size_t auditFindings_ = 0;
};

int run(Configuration const& with) {
  // A lost connection is an answer to a write, not the end of the process.
  std::signal(SIGPIPE, SIG_IGN);
  fs::create_directories(with.state);
  Kiv::HashHelper::hashSeed32Is(with.hashSeed ? *with.hashSeed : storedHashSeed(with.state));
  if (with.traceLevel) {
    Kiv::TraceHandle::defaultLevelsIs((Kiv::U32{2} << *with.traceLevel) - 1);
  }
  Log::begin();
  bool shared = false;
  auto store = storeOf(with, shared);
  Daemon daemon(with, std::move(store), {Host::openTable(with.table, with.rows), true}, shared);
  return daemon.run();
}

int parseAndRun(int argc, char** argv) {
  Configuration with;
  with.plugin = Host::installedPlugin().string();
  with.state = defaultState();
  with.switchName = hostName();
  Configuration line;
  std::string file;
  bool check = false;
  CLI::App app{"The MAC rewrite agent as a service."};
  app.footer(kExamples);
  app.add_option("--config", file, "a file of options (TOML)")->type_name("FILE");
  auto const text = [&app](char const* option, std::string& to, char const* help,
                           char const* type) {
    return app.add_option(option, to, help)->type_name(type);
  };
  std::vector<std::pair<CLI::Option*, std::string Configuration::*>> texts{
      {text("--database", line.database,
            "where the inputs are: sqlite:FILE (the default, in the state directory),\n"
            "redis://HOST[:PORT][/DB], redis+unix://PATH, memory",
            "URL"),
       &Configuration::database},
      {text("--table", line.table,
            "where the rows are: a model (default), or the kernel's table in DIR (default:\n"
            "/run/macrewrite/table)",
            "model|kernel[:DIR]"),
       &Configuration::table},
      {text("--control", line.control, "the control socket (default: /run/macrewrite/control)",
            "SOCKET"),
       &Configuration::control},
      {text("--metrics", line.metrics, "metrics for Prometheus, as a text file", "FILE"),
       &Configuration::metrics},
      {text("--plugin", line.plugin, "the plug-in (default: the one beside this program)", "PATH"),
       &Configuration::plugin},
      {text("--state", line.state,
            "what outlives the process (default: $STATE_DIRECTORY, else /var/lib/macrewrite)",
            "DIR"),
       &Configuration::state},
      {text("--switch", line.switchName,
            "this switch's name in a database that several share (default: the host's name)",
            "NAME"),
       &Configuration::switchName}};
  auto* const seed = app.add_option("--hash-seed", line.hashSeed,
                                    "walk hashed collections in this order (default: stored)");
  seed->type_name("N");
  auto* const trace = app.add_option("--trace", line.traceLevel,
                                     "traces up to that level as text on standard error");
  trace->check(CLI::Range(0U, 30U).description(""))->type_name("LEVEL");
  auto* const rows =
      app.add_option("--rows", line.rows, "rows of a kernel's table that is made (default: 65536)");
  rows->check(CLI::Range(size_t{0}, size_t{16'000'000}).description(""))->type_name("N");
  app.add_flag("--check", check, "say what is wrong with the options, and start nothing");
  app.set_version_flag("--version", std::string("macrewrited ") + Host::serviceVersion());
  try {
    app.parse(argc, argv);
    if (!file.empty()) readConfiguration(file, with);
  } catch (CLI::ParseError const& error) {
    return app.exit(error) == 0 ? Done : BadInput;
  } catch (ConfigurationError const& error) {
    std::cerr << error.what() << std::endl;
    return BadInput;
  }
  // The command line comes before the file.
  for (auto const& [option, member] : texts) {
    if (option->count() > 0) with.*member = line.*member;
  }
  if (seed->count() > 0) with.hashSeed = line.hashSeed;
  if (rows->count() > 0) with.rows = line.rows;
  if (trace->count() > 0) with.traceLevel = line.traceLevel;
  if (with.table == "kernel") with.table = kKernelTable;
  if (std::string const faults = faultsOf(with); !faults.empty()) {
    std::cerr << faults << std::endl;
    return BadInput;
  }
  if (check) {
    std::cout << "the configuration is right" << std::endl;
    return Done;
  }
  return run(with);
}

int attempt(int argc, char** argv) {
  try {
    return parseAndRun(argc, argv);
  } catch (Host::TableUnavailable const& error) {
    std::cerr << "macrewrited: " << error.what() << std::endl;
    return Host::kTableUnavailableStatus;
  } catch (std::exception const& error) {
    std::cerr << "macrewrited: error: " << error.what() << std::endl;
    return Failed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  int const status = attempt(argc, argv);
  // A manager that starts a service again at once would do nothing else while it cannot run.
  if (status != Done && std::getenv("NOTIFY_SOCKET") != nullptr) ::sleep(1);
  return status;
}
