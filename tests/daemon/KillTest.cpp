// SPDX-License-Identifier: Apache-2.0
// The service is killed at random moments under random events; the rows are in the kernel and
// outlive it. BFN_KILLS says how often.
#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sys/wait.h>
#include <thread>

#include "framework/core/AddressSanitizer.h"
#include "tests/daemon/KernelRows.h"
#include "tests/daemon/ServiceProcess.h"
#include "tests/kernel/KernelFixture.h"
#include "tests/support/Seed.h"

namespace {

using BfnTest::addressLine;
using BfnTest::rewriteLine;
using BfnTest::ServiceProcess;
using nlohmann::json;

constexpr unsigned kAddresses = 40;
constexpr size_t kTableRows = 20;  // fewer than addresses: some wait
constexpr char kNoMac[] = "00:00:00:00:00:00";

// Under the sanitizers a start takes ten times as long.
#ifdef KIV_ADDRESS_SANITIZER
constexpr unsigned kKills = 60;
#else
constexpr unsigned kKills = 200;
#endif

unsigned kills() {
  char const* const given = std::getenv("BFN_KILLS");
  return given == nullptr ? kKills : static_cast<unsigned>(std::strtoul(given, nullptr, 10));
}

class KillTest : public BfnTest::KernelFixture {
 protected:
  unsigned const seed = BfnTest::testSeed();
  std::mt19937 random{seed};
  ServiceProcess service;
  size_t written = 0;  // rows that restarts have corrected
  size_t full = 0;     // restarts with rows that wait

  void SetUp() override {
    KernelFixture::SetUp();
    if (IsSkipped()) return;
    service.options() = {"--table", "kernel:" + directory().string(), "--rows",
                         std::to_string(kTableRows)};
    service.start();
    service.lines(BfnTest::bringUpLines());
    ASSERT_TRUE(service.reaches("running")) << service.log();
  }

  unsigned below(unsigned bound) { return static_cast<unsigned>(random()) % bound; }
  std::string anAddress() { return "10.0.0." + std::to_string(1 + below(kAddresses)); }
  std::string aLine() {
    switch (below(6)) {
      case 0:
      case 1:
        return addressLine(anAddress());
      case 2:
        return "no host address " + anAddress() + " vrf-id 7";
      case 3:
      case 4:
        return rewriteLine(anAddress(), "02:00:00:00:00:0" + std::to_string(below(10)));
      default:
        return "no vxlan forwarding match vrf red src-ip " + anAddress();
    }
  }

  // The rows that a fresh bring-up wants of what the store has: each address, with the MAC of its
  // line.
  std::map<std::string, std::string> wanted() {
    std::map<std::string, std::string> rows;
    for (json const& address : addresses()) rows[address.get<std::string>()] = kNoMac;
    std::istringstream lines(service.text("show running-config"));
    for (std::string line; std::getline(lines, line);) {
      std::istringstream words(line);
      std::vector<std::string> const all{std::istream_iterator<std::string>(words), {}};
      if (auto const row = rows.find(all.at(6)); row != rows.end()) row->second = all.back();
    }
    return rows;
  }
  json addresses() {
    json found = json::array();
    json const inputs = service.answer("dump inputs");
    for (json const& vrf : inputs["agentStatus"]) {
      for (auto const& [address, place] : vrf.items()) found.push_back(address);
    }
    return found;
  }
  std::map<std::string, std::string> shown() {
    std::map<std::string, std::string> rows;
    for (json const& row : service.answer("dump chip")) rows[row["sip"]] = row["mac"];
    return rows;
  }

  void startAgain() {
    auto const before = BfnTest::rowsInTheKernel(directory());
    service.start();
    ASSERT_TRUE(service.reaches("running")) << service.log();
    auto const after = BfnTest::rowsInTheKernel(directory());
    json const status = service.status();
    auto const all = wanted();
    ASSERT_EQ(status["rows"]["wanted"], all.size());
    ASSERT_EQ(after.size(), std::min(all.size(), kTableRows));
    ASSERT_EQ(status["rows"]["waiting"], all.size() - after.size());
    for (auto const& [address, mac] : shown()) ASSERT_EQ(all.at(address), mac) << address;
    // No row was taken out and put back; rows that the full table refuses are tried, too.
    size_t const refused = all.size() - after.size();
    size_t const changed = BfnTest::differences(before, after);
    ASSERT_GE(status["chipChanges"].get<size_t>(), changed);
    ASSERT_LE(status["chipChanges"].get<size_t>(), changed + refused);
    written += changed;
    full += refused > 0 ? 1U : 0U;
  }
};

TEST_F(KillTest, AfterEachKillTheTableIsBroughtToTheInputsByTheirDifference) {
  SCOPED_TRACE("BFN_TEST_SEED=" + std::to_string(seed));
  // However few lines get through before the first kill: rows wait, and one has the MAC of a line
  // that is gone.
  std::string const first = "10.0.0.1";
  std::vector<std::string> lines;
  for (unsigned i = 1; i <= kAddresses; ++i) {
    lines.push_back(addressLine("10.0.0." + std::to_string(i)));
  }
  lines.push_back(rewriteLine(first, "02:00:00:00:00:01"));
  lines.push_back("no vxlan forwarding match vrf red src-ip " + first);
  service.lines(lines);
  for (unsigned kill = 0; kill < kills(); ++kill) {
    Connection connection = service.connect();
    unsigned const count = below(60);
    for (unsigned i = 0; i < count; ++i) connection.send({{"line", aLine()}});
    connection.flush();
    std::this_thread::sleep_for(std::chrono::microseconds(below(4000)));
    service.stop(SIGKILL);
    startAgain();
    if (HasFatalFailure()) FAIL() << "kill " << kill;
  }
  EXPECT_GT(written, 0u);
  EXPECT_GT(full, 0u);
}

TEST_F(KillTest, TheAgentIsBackAfterEachFatalEvent) {
  for (unsigned death = 0; death < kills() / 10; ++death) {
    service.lines({addressLine(anAddress()),
                   "host routing-status port Ethernet2 key-vlan 0 vlan 4095 vrf-id 7"});
    service.ask("host address 10.9.9.9 vrf-id 7 interface Ethernet2");
    EXPECT_THROW(service.ask("no host address 10.9.9.9 vrf-id 7"), NoService);
    int const status = service.wait();
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
    startAgain();
    if (HasFatalFailure()) FAIL() << "death " << death;
    ASSERT_EQ(service.status()["deaths"], death + 1);
  }
}

}  // namespace
