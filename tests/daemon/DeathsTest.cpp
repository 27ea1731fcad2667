// SPDX-License-Identifier: Apache-2.0
// What a death leaves behind, and how the service comes back from it.
#include <csignal>
#include <gmock/gmock.h>
#include <stdexcept>
#include <sys/wait.h>

#include "tests/daemon/DaemonTest.h"

namespace {

using BfnTest::addressLine;
using BfnTest::bringUpLines;
using BfnTest::kMac1;
using BfnTest::rewriteLine;
using BfnTest::row;
using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::Not;

using DeathsTest = BfnTest::DaemonTest;

TEST_F(DeathsTest, AFatalEventIsRememberedAndTheAgentComesBack) {
  up();
  service.lines({addressLine("10.0.0.1"), rewriteLine("10.0.0.1", kMac1)});
  dies();
  service.start();
  ASSERT_TRUE(service.reaches("running")) << service.log();
  json const death = service.status()["lastDeath"];
  EXPECT_EQ(death["event"], "no host address 10.9.9.9 vrf-id 7");
  EXPECT_THAT(death["text"], HasSubstr("Failed("));
  EXPECT_EQ(death["signal"], SIGABRT);
  EXPECT_FALSE(death["trace"].empty());
  EXPECT_EQ(service.status()["deaths"], 1);
  EXPECT_THAT(service.log(), HasSubstr("BFN_MAC_REWRITE_SERVICE_DIED"));
  EXPECT_EQ(service.answer("show chip"), json::array({row("10.0.0.1")}));
}

TEST_F(DeathsTest, ADeadlySignalIsRememberedWithTheEndOfTheTrace) {
  up();
  service.lines({addressLine("10.0.0.1")});
  ::kill(service.process(), SIGILL);
  int const status = service.wait();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGILL) << status;
  service.start();
  ASSERT_TRUE(service.reaches("running")) << service.log();
  json const death = service.status()["lastDeath"];
  EXPECT_EQ(death["signal"], SIGILL);
  EXPECT_EQ(death["text"], "");
  EXPECT_THAT(death["trace"].dump(), HasSubstr("10.0.0.1"));
}

TEST_F(DeathsTest, AnEventThatEndedTheProcessIsInTheStore) {
  up();
  service.lines({addressLine("10.0.0.1")});
  dies();
  service.start();
  ASSERT_TRUE(service.reaches("running"));
  // The removal had been accepted by the store before the agent died of it.
  EXPECT_THAT(service.answer("dump inputs").dump(), Not(HasSubstr("10.9.9.9")));
}

TEST_F(DeathsTest, ADeathIsReportedOnceAndRememberedLonger) {
  up();
  service.lines({addressLine("10.0.0.1")});
  dies();
  for (int start = 0; start < 2; ++start) {
    service.start();
    ASSERT_TRUE(service.reaches("running"));
    EXPECT_THAT(service.status()["lastDeath"]["text"], HasSubstr("Failed("));
    service.stop(SIGTERM);
  }
  std::string const log = service.log();
  size_t const first = log.find("BFN_MAC_REWRITE_SERVICE_DIED");
  EXPECT_NE(first, std::string::npos);
  EXPECT_EQ(log.find("BFN_MAC_REWRITE_SERVICE_DIED", first + 1), std::string::npos);
}

TEST_F(DeathsTest, ABringUpThatLeavesTheRowsHeldIsNoDeath) {
  service.start();
  auto lines = bringUpLines();
  lines[0] = "host profile vxlan rewrite unsupported table-size 1000";
  service.lines(lines);
  for (int start = 0; start < 5; ++start) {
    ASSERT_TRUE(service.reaches("running")) << start;
    EXPECT_FALSE(service.status()["agent"]["ready"]);
    EXPECT_NE(service.status()["agent"]["because"], "");
    service.stop(SIGTERM);
    service.start();
    EXPECT_NE(service.status()["agent"]["state"], "paused") << start;
  }
}

TEST_F(DeathsTest, ThreeDeathsAtTheSameInputsHoldTheAgent) {
  up();
  service.lines({addressLine("10.0.0.1")});
  service.stop(SIGTERM);
  service.plugin = SERVICE_POISON;
  service.start();
  // The first death may come before the answer does.
  EXPECT_NO_THROW(service.ask("host profile poison rewrite supported table-size 1"));
  service.stop(SIGKILL);
  for (int death = 0; death < 3; ++death) {
    try {
      service.start();
    } catch (std::runtime_error const&) {
      continue;  // it ended before it answered
    }
    int const status = service.wait();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status << service.log();
  }
  service.start();
  ASSERT_TRUE(service.reaches("held")) << service.log();
  EXPECT_THAT(service.status()["agent"]["because"], HasSubstr("The profile is poison"));
  EXPECT_THAT(service.log(), HasSubstr("BFN_MAC_REWRITE_SERVICE_HELD"));
  EXPECT_EQ(service.ask("show chip")["status"], 2);
  // An input that is mended brings it up.
  service.lines({"no host profile poison"});
  EXPECT_TRUE(service.reaches("running")) << service.log();
}

}  // namespace
