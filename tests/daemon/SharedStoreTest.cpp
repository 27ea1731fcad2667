// SPDX-License-Identifier: Apache-2.0
// Services and the client on one Redis server.
#include <atomic>
#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <thread>
#include <unistd.h>

#include "host/store/RedisConnection.h"
#include "tests/daemon/ServiceProcess.h"
#include "tests/host/store/RedisServer.h"
#include "tests/support/InChild.h"

namespace {

using BfnTest::addressLine;
using BfnTest::bringUpLines;
using BfnTest::rewriteLine;
using BfnTest::ServiceProcess;
using ::testing::HasSubstr;

constexpr char kMac[] = "02:00:00:00:00:01";

class SharedStoreTest : public ::testing::Test {
 protected:
  std::unique_ptr<BfnTest::RedisServer> const server =
      BfnTest::RedisServer::isThere() ? std::make_unique<BfnTest::RedisServer>() : nullptr;
  ServiceProcess one;
  ServiceProcess two;

  void SetUp() override {
    if (!server) GTEST_SKIP() << "there is no redis-server";
    one.options() = {"--database", server->url()};
    two.options() = {"--database", server->url()};
  }
  void up(ServiceProcess& service, std::string const& name) {
    service.switchName = name;
    service.start();
    service.lines(bringUpLines());
    service.lines({addressLine("10.0.0.1")});
    ASSERT_TRUE(service.reaches("running")) << service.log();
  }
  // One line to the database, without a service.
  BfnTest::ChildEnd edit(std::string const& line) const {
    return BfnTest::inChild(STDERR_FILENO, [&] {
      ::execl(SERVICE_CLIENT, SERVICE_CLIENT, "--database", server->url().c_str(), line.c_str(),
              static_cast<char*>(nullptr));
      return 127;
    });
  }
  static bool shows(ServiceProcess& service, std::string const& mac) {
    for (int i = 0; i < 1000; ++i) {
      if (service.answer("dump chip").dump().find(mac) != std::string::npos) return true;
      ::usleep(5000);
    }
    return false;
  }
};

TEST_F(SharedStoreTest, ALineEnteredOnceReachesEverySwitchAndFactsOnlyTheirOwn) {
  up(one, "leaf1");
  up(two, "leaf2");
  one.lines({addressLine("10.0.0.2")});
  EXPECT_TRUE(edit(rewriteLine("10.0.0.1", kMac)).exitedWith(0));
  EXPECT_TRUE(shows(one, kMac));
  EXPECT_TRUE(shows(two, kMac));
  EXPECT_EQ(one.answer("dump chip").size(), 2u);
  EXPECT_EQ(two.answer("dump chip").size(), 1u);
}

TEST_F(SharedStoreTest, ASecondServiceOfOneNameWaitsAndChangesNothing) {
  up(one, "leaf1");
  two.switchName = "leaf1";
  two.start();
  ASSERT_TRUE(two.reaches("waiting")) << two.log();
  EXPECT_THAT(two.status()["agent"]["because"], HasSubstr("leaf1 is held by"));
  EXPECT_THAT(two.ask("host vrf blue id 8")["error"], HasSubstr("is held by"));
  EXPECT_TRUE(one.status()["agent"]["ready"]);
}

TEST_F(SharedStoreTest, WithoutItsDatabaseItRunsRefusesChangesAndComesBack) {
  up(one, "leaf1");
  server->stop();
  for (int i = 0; i < 1000 && one.status()["store"]["state"] != "away"; ++i) ::usleep(5000);
  EXPECT_EQ(one.status()["agent"]["state"], "running");
  EXPECT_FALSE(one.status()["agent"]["ready"]);
  EXPECT_EQ(one.ask(addressLine("10.0.0.2"))["status"], 1);
  EXPECT_EQ(one.answer("dump chip").size(), 1u);
  server->start();
  for (int i = 0; i < 4000 && !one.status()["agent"]["ready"]; ++i) ::usleep(5000);
  EXPECT_TRUE(one.status()["agent"]["ready"]);
  one.lines({addressLine("10.0.0.2")});
  EXPECT_EQ(one.answer("dump chip").size(), 2u);
}

TEST_F(SharedStoreTest, ChangesOfOthersAreFollowedAtOnceAlsoAfterALossOfTheDatabase) {
  up(one, "leaf1");
  for (int loss = 0; loss < 3; ++loss) {
    server->stop();
    for (int i = 0; i < 1000 && one.status()["store"]["state"] != "away"; ++i) ::usleep(5000);
    server->start();
    for (int i = 0; i < 4000 && !one.status()["agent"]["ready"]; ++i) ::usleep(5000);
    std::string const mac = "02:00:00:00:00:1" + std::to_string(loss);
    auto const version = one.status()["store"]["version"];
    ASSERT_TRUE(edit(rewriteLine("10.0.0.1", mac)).exitedWith(0));
    // Requests would wake it, too.
    ::usleep(500'000);
    EXPECT_NE(one.status()["store"]["version"], version) << loss;
  }
}

TEST_F(SharedStoreTest, ADatabaseThatWentBackIsAppliedOnceItIsAccepted) {
  up(one, "leaf1");
  Host::RedisConnection connection(Host::StoreUrl(server->url()), {});
  connection.add({"FLUSHALL"});
  connection.need();
  server->stop();
  server->start();
  for (int i = 0; i < 4000 && one.status()["store"]["state"] != "went back"; ++i) ::usleep(5000);
  ASSERT_EQ(one.status()["store"]["state"], "went back") << one.log();
  EXPECT_THAT(one.log(), HasSubstr("BFN_MAC_REWRITE_STORE_WENT_BACK"));
  EXPECT_EQ(one.answer("dump chip").size(), 1u);
  EXPECT_EQ(one.ask(addressLine("10.0.0.2"))["status"], 1);
  one.lines({"store accept"});
  for (int i = 0; i < 4000 && one.status()["store"]["state"] != "current"; ++i) ::usleep(5000);
  EXPECT_EQ(one.answer("dump chip").size(), 0u);
}

TEST_F(SharedStoreTest, OfAFileThatTheClientLoadsWithoutAServiceAllLinesAreThereOrNone) {
  constexpr int kLines = 20'000;
  std::ofstream lines(one.file("lines"));
  for (int i = 0; i < kLines; ++i) {
    lines << rewriteLine("10.0." + std::to_string(i / 256) + '.' + std::to_string(i % 256), kMac)
          << '\n';
  }
  lines.close();
  std::atomic<bool> loaded = false;
  std::thread load([&] {
    EXPECT_TRUE(edit("load " + one.file("lines")).exitedWith(0));
    loaded = true;
  });
  Host::RedisConnection connection(Host::StoreUrl(server->url()), {});
  std::set<long long> seen;
  for (bool ends = false; !ends;) {
    ends = loaded;
    connection.add(
        {"HLEN", "macrewrite:data:vxlan/hardware/srcMacRewrite/config:overlaySrcMacRewriteEntry"});
    seen.insert(connection.need().number());
  }
  load.join();
  EXPECT_THAT(seen, ::testing::ElementsAre(0, kLines));
}

TEST_F(SharedStoreTest, TheClientSaysWhyTheDatabaseDoesNotTakeALine) {
  auto const wrong = edit("vxlan forwarding match vrf red src-ip 10.0.0 action rewrite src-mac x");
  EXPECT_TRUE(wrong.exitedWith(2));
  EXPECT_THAT(wrong.text, HasSubstr("error: "));
  server->stop();
  EXPECT_TRUE(edit("show running-config").exitedWith(4));
}

}  // namespace
