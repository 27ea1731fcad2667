// SPDX-License-Identifier: Apache-2.0
#include "tests/daemon/ServiceProcess.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace BfnTest {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

template <class F>
bool within(seconds time, F const& is) {
  auto const deadline = std::chrono::steady_clock::now() + time;
  while (!is()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds(2));
  }
  return true;
}

}  // namespace

ServiceProcess::ServiceProcess(std::vector<std::string> options)
    : plugin(SERVICE_PLUGIN), options_(std::move(options)) {}

ServiceProcess::~ServiceProcess() {
  if (runs()) stop(SIGKILL);
}

void ServiceProcess::start() {
  std::vector<std::string> words{SERVICE_PROGRAM, "--plugin",    plugin,   "--state",
                                 file("state"),   "--control",   socket(), "--switch",
                                 switchName,      "--hash-seed", "1"};
  words.insert(words.end(), options_.begin(), options_.end());
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  std::string const logFile = file("log");
  process_ = ::fork();
  if (process_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    int const out = ::open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(out, STDERR_FILENO);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  bool const answers = within(seconds(60), [&] {
    try {
      connection_.emplace(socket());
      return true;
    } catch (NoService const&) {
      int status = 0;
      if (::waitpid(process_, &status, WNOHANG) == process_) process_ = -1;
      return !runs();
    }
  });
  if (!answers || !runs()) throw std::runtime_error("the service does not start:\n" + log());
}

int ServiceProcess::stop(int signal) {
  ::kill(process_, signal);
  return wait();
}

int ServiceProcess::wait() {
  int status = -1;
  connection_.reset();
  if (!within(seconds(60), [&] { return ::waitpid(process_, &status, WNOHANG) == process_; })) {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, &status, 0);
  }
  process_ = -1;
  return status;
}

std::string ServiceProcess::log() const {
  std::ostringstream text;
  text << std::ifstream(file("log")).rdbuf();
  return text.str();
}

nlohmann::json ServiceProcess::ask(std::string const& line) {
  return connection_.value().ask({{"line", line}});
}

nlohmann::json ServiceProcess::answer(std::string const& line) {
  nlohmann::json const all = ask(line);
  if (all.contains("error"))
    throw std::runtime_error(line + ": " + all["error"].get<std::string>());
  return all["answer"];
}

std::string ServiceProcess::text(std::string const& line) {
  nlohmann::json const all = ask(line);
  if (all.contains("error"))
    throw std::runtime_error(line + ": " + all["error"].get<std::string>());
  return all["text"].get<std::string>();
}

void ServiceProcess::lines(std::vector<std::string> const& all) {
  for (std::string const& line : all) connection_.value().send({{"line", line}});
  std::string first;
  for (std::string const& line : all) {
    nlohmann::json const answer = connection_.value().receive();
    if (answer.contains("error") && first.empty()) {
      first = line + ": " + answer["error"].get<std::string>();
    }
  }
  if (!first.empty()) throw std::runtime_error(first);
}

bool ServiceProcess::reaches(std::string const& state) {
  return within(seconds(60), [&] { return status()["agent"]["state"] == state; });
}

bool ServiceProcess::becomesReady() {
  return within(seconds(60), [&] { return status()["agent"]["ready"].get<bool>(); });
}

std::vector<std::string> bringUpLines(size_t tableSize) {
  return {"host profile vxlan rewrite supported table-size " + std::to_string(tableSize),
          "host use profile vxlan",
          "host vrf red id 7",
          "host routing-status port Ethernet1 key-vlan 0 vlan 1006 vrf-id 7",
          "host route vrf red vrf-id 7 forwarding-vlan 200",
          "host inputs complete"};
}

std::string addressLine(std::string const& address) {
  return "host address " + address + " vrf-id 7 interface Ethernet1";
}

std::string rewriteLine(std::string const& address, std::string const& mac) {
  return "vxlan forwarding match vrf red src-ip " + address + " action rewrite src-mac " + mac;
}

}  // namespace BfnTest
