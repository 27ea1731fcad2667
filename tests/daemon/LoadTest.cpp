// SPDX-License-Identifier: Apache-2.0
// Files that the client loads: one of operator's lines alone is carried out as a whole or not.
#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include "framework/core/AddressSanitizer.h"
#include "host/service/ControlServer.h"
#include "tests/daemon/ServiceProcess.h"
#ifdef BFN_STORE_REDIS
#include "tests/host/store/RedisServer.h"
#endif
#include "tests/support/InChild.h"
#include "tests/support/Seed.h"

namespace {

using BfnTest::bringUpLines;
using BfnTest::rewriteLine;
using BfnTest::ServiceProcess;
using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::string ip(unsigned i) {
  return "10.0." + std::to_string(i / 256) + '.' + std::to_string(i % 256);
}
constexpr char kMac[] = "02:00:00:00:00:01";
constexpr char kOther[] = "02:00:00:00:00:02";

class LoadTest : public ::testing::Test {
 protected:
  ServiceProcess service;

  void SetUp() override { up(); }
  void up() {
    service.start();
    service.lines(bringUpLines());
    ASSERT_TRUE(service.reaches("running")) << service.log();
  }
  std::string write(std::vector<std::string> const& lines) const {
    std::ofstream out(service.file("lines"));
    for (std::string const& line : lines) out << line << '\n';
    return service.file("lines");
  }
  // What the client writes to that descriptor.
  BfnTest::ChildEnd load(std::vector<std::string> const& lines, char const* option = nullptr,
                         int watched = STDERR_FILENO) const {
    std::string const file = write(lines);
    std::string const socket = service.socket();
    return BfnTest::inChild(watched, [&] {
      if (option == nullptr) {
        ::execl(SERVICE_CLIENT, SERVICE_CLIENT, "--socket", socket.c_str(), "load", file.c_str(),
                static_cast<char*>(nullptr));
      } else {
        ::execl(SERVICE_CLIENT, SERVICE_CLIENT, "--socket", socket.c_str(), option, "load",
                file.c_str(), static_cast<char*>(nullptr));
      }
      return 127;
    });
  }
  size_t configured() {
    std::string const text = service.text("show running-config");
    return text.empty() ? 0 : static_cast<size_t>(std::ranges::count(text, '\n')) + 1;
  }

  // Loads 2,000 lines several times; something happens within `most` microseconds, and is mended.
  // Either all lines are there then or, where they were not accepted, none.
  template <class Interrupt, class Mend>
  void loadInterrupted(int rounds, unsigned most, Interrupt const& interrupt, Mend const& mend) {
    Kiv::U32 const seed = BfnTest::testSeed();
    SCOPED_TRACE("BFN_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    std::vector<std::string> lines;
    std::vector<std::string> removals;
    for (unsigned i = 0; i < 2000; ++i) {
      lines.push_back(rewriteLine(ip(i), kMac));
      removals.push_back("no vxlan forwarding match vrf red src-ip " + ip(i));
    }
    for (int round = 0; round < rounds; ++round) {
      std::thread other([&, pause = random() % most] {
        std::this_thread::sleep_for(std::chrono::microseconds(pause));
        interrupt();
      });
      bool const accepted = load(lines).exitedWith(0);
      other.join();
      mend();
      ASSERT_TRUE(service.becomesReady()) << service.log();
      size_t const there = configured();
      EXPECT_TRUE(there == lines.size() || (there == 0 && !accepted)) << there;
      if (there > 0) {
        EXPECT_TRUE(load(removals).exitedWith(0));
      }
    }
  }
};

TEST_F(LoadTest, OperatorsLinesAloneAreCarriedOutTogether) {
  std::vector<std::string> lines{"# MACs of the leaf", ""};
  for (unsigned i = 0; i < 700; ++i) lines.push_back(rewriteLine(ip(i), kMac));
  lines.push_back("no vxlan forwarding match vrf red src-ip " + ip(5));
  auto const end = load(lines);
  EXPECT_TRUE(end.exitedWith(0)) << end.text;
  EXPECT_EQ(end.text, "");
  EXPECT_EQ(configured(), 699u);
}

TEST_F(LoadTest, AWrongLineIsNamedAndNoLineIsCarriedOut) {
  std::vector<std::string> lines;
  for (unsigned i = 0; i < 300; ++i) lines.push_back(rewriteLine(ip(i), kMac));
  for (std::string const& wrong :
       {rewriteLine("10.0.0.300", kMac), std::string("vxlan forwarding \"open"),
        "no vxlan forwarding match vrf red src-ip " + ip(1) + " action rewrite src-mac " +
            kOther}) {
    lines[250] = wrong;
    auto const end = load(lines);
    EXPECT_TRUE(end.exitedWith(2)) << end.text;
    EXPECT_THAT(end.text, HasSubstr("lines:251: error: "));
    EXPECT_EQ(configured(), 0u) << wrong;
  }
  // The client and its connection are of use afterwards.
  lines.pop_back();
  lines[250] = rewriteLine(ip(250), kMac);
  EXPECT_TRUE(load(lines).exitedWith(0));
  EXPECT_EQ(configured(), 299u);
}

TEST_F(LoadTest, OtherFilesAreCarriedOutInOrderUpToTheLineThatFails) {
  auto const end = load({rewriteLine(ip(1), kMac), "host vrf blue id 8",
                         rewriteLine("10.0.0.300", kMac), rewriteLine(ip(2), kMac)});
  EXPECT_TRUE(end.exitedWith(2));
  EXPECT_THAT(end.text, HasSubstr("lines:3: error: "));
  EXPECT_EQ(configured(), 1u);
  EXPECT_THAT(service.answer("dump inputs").dump(), HasSubstr("blue"));
}

TEST_F(LoadTest, ThatGoesOnCarriesOutTheLinesAfterOneThatFails) {
  auto const end =
      load({rewriteLine(ip(1), kMac), rewriteLine("10.0.0.300", kMac), rewriteLine(ip(2), kMac)},
           "--keep-going");
  EXPECT_TRUE(end.exitedWith(2));
  EXPECT_EQ(configured(), 2u);
}

TEST_F(LoadTest, AnswersAsJsonAreThoseOfEachLine) {
  auto const end =
      load({rewriteLine(ip(1), kMac), "", rewriteLine(ip(2), kMac)}, "--json", STDOUT_FILENO);
  EXPECT_TRUE(end.exitedWith(0));
  std::string expected;
  for (unsigned i = 1; i <= 2; ++i) {
    json const answer{{"answer", nullptr}, {"command", rewriteLine(ip(i), kMac)}};
    expected += answer.dump() + '\n';
  }
  EXPECT_EQ(end.text, expected);
}

TEST_F(LoadTest, WithoutRoomNoLineIsCarriedOut) {
  service.stop(SIGTERM);
  auto* const signal = std::signal(SIGXFSZ, SIG_IGN);  // the service inherits it
  up();
  std::signal(SIGXFSZ, signal);
  std::vector<std::string> lines;
  for (unsigned i = 0; i < 2000; ++i) lines.push_back(rewriteLine(ip(i), kMac));
  rlimit before{};
  // Room for a part of them.
  rlimit const some{rlim_t{200} << 10, RLIM_INFINITY};
  ASSERT_EQ(::prlimit(service.process(), RLIMIT_FSIZE, &some, &before), 0);
  auto const end = load(lines);
  EXPECT_TRUE(end.exitedWith(1)) << end.text;
  EXPECT_THAT(end.text, HasSubstr("lines: error: sqlite:"));
  EXPECT_EQ(configured(), 0u);
  ASSERT_EQ(::prlimit(service.process(), RLIMIT_FSIZE, &before, nullptr), 0);
  EXPECT_TRUE(load(lines).exitedWith(0));
  EXPECT_EQ(configured(), 2000u);
  service.stop(SIGKILL);
  up();
  EXPECT_EQ(configured(), 2000u);
}

TEST_F(LoadTest, AfterAKillAllLinesAreThereOrNone) {
  loadInterrupted(
      10, 40'000, [&] { ::kill(service.process(), SIGKILL); },
      [&] {
        service.wait();
        service.start();
      });
}

TEST_F(LoadTest, LinesThatAreKeptChangeNothingBeforeTheirCommit) {
  {
    Connection connection = service.connect();
    EXPECT_EQ(connection.ask({{"keep", {rewriteLine(ip(1), kMac)}}, {"id", 4}}),
              (json{{"kept", 1}, {"id", 4}}));
    EXPECT_EQ(configured(), 0u);
  }
  Connection connection = service.connect();
  EXPECT_EQ(connection.ask({{"commit", true}})["answer"], 0);
  EXPECT_EQ(configured(), 0u);
  connection.send({{"line", rewriteLine(ip(1), kMac)}});
  connection.send({{"keep", {rewriteLine(ip(2), kMac)}}});
  connection.send({{"keep", {rewriteLine(ip(3), kMac)}}});
  connection.send({{"commit", true}});
  connection.send({{"line", rewriteLine(ip(4), kMac)}});
  EXPECT_EQ(connection.receive()["answer"], nullptr);
  EXPECT_EQ(connection.receive()["kept"], 1);
  EXPECT_EQ(connection.receive()["kept"], 2);
  EXPECT_EQ(connection.receive()["answer"], 2);
  EXPECT_EQ(connection.receive()["answer"], nullptr);
  EXPECT_EQ(configured(), 4u);
}

TEST_F(LoadTest, WhatIsNoListOfOperatorsLinesIsNotKept) {
  Connection connection = service.connect();
  for (json const& wrong :
       {json("vxlan"), json::array({1}), json::array({""}), json::array({"host vrf blue id 8"}),
        json::array({rewriteLine(ip(1), kMac) + " | count"})}) {
    json const answer = connection.ask({{"keep", wrong}});
    EXPECT_EQ(answer["status"], 2) << wrong;
    EXPECT_EQ(answer["at"], 0) << wrong;
    EXPECT_EQ(connection.ask({{"keep", {rewriteLine(ip(1), kMac)}}})["skipped"], true);
    EXPECT_EQ(connection.ask({{"commit", true}})["skipped"], true);
  }
  EXPECT_EQ(configured(), 0u);
  EXPECT_THAT(service.answer("dump inputs").dump(), Not(HasSubstr("blue")));
}

// Of lines that change nothing, which cost the least.
TEST_F(LoadTest, ATransactionHasNoMoreLinesThanTheLimit) {
#ifdef KIV_ADDRESS_SANITIZER
  GTEST_SKIP() << "so many lines take half a minute where each access is checked";
#endif
  constexpr size_t kMost = Host::ControlServer::kMaxKept;
  constexpr size_t kARequest = 1'000;
  std::string const line = "no vxlan forwarding match vrf a src-ip 1.1.1.1";
  Connection connection = service.connect();
  json const many(std::vector<std::string>(kARequest, line));
  for (size_t kept = kARequest; kept <= kMost; kept += kARequest) {
    ASSERT_EQ(connection.ask({{"keep", many}})["kept"], kept);
  }
  json const refused = connection.ask({{"keep", {rewriteLine(ip(1), kMac)}}});
  EXPECT_EQ(refused["error"], "a transaction has 200000 lines at most");
  EXPECT_EQ(refused["at"], kMost);
  EXPECT_EQ(connection.ask({{"commit", true}})["skipped"], true);
  EXPECT_EQ(configured(), 0u);
}

TEST_F(LoadTest, AFileWithMoreLinesThanATransactionIsRefusedWithWhatToDo) {
  auto const end = load(std::vector<std::string>(Host::ControlServer::kMaxKept + 1, "vxlan"));
  EXPECT_TRUE(end.exitedWith(2));
  EXPECT_EQ(end.text, service.file("lines") +
                          ": error: these are 200001 lines, and one transaction has 200000 at "
                          "most: split the file, or give it as standard input, of which each line "
                          "is carried out by itself\n");
}

TEST_F(LoadTest, LinesAreCheckedAgainWhenAnotherChangeCameBeforeTheirCommit) {
  service.lines({rewriteLine(ip(1), kMac)});
  Connection connection = service.connect();
  json const lines{rewriteLine(ip(2), kMac), "no vxlan forwarding match vrf red src-ip " + ip(1) +
                                                 " action rewrite src-mac " + kMac};
  EXPECT_EQ(connection.ask({{"keep", lines}})["kept"], 2);
  service.lines({rewriteLine(ip(1), kOther)});
  json const refused = connection.ask({{"commit", true}});
  EXPECT_THAT(refused["error"], StartsWith("expected the MAC address that is configured"));
  EXPECT_EQ(refused["at"], 1);
  EXPECT_EQ(configured(), 1u);
  service.lines({rewriteLine(ip(1), kMac)});
  EXPECT_EQ(connection.ask({{"keep", lines}})["kept"], 2);
  service.lines({rewriteLine(ip(3), kMac)});
  EXPECT_EQ(connection.ask({{"commit", true}})["answer"], 2);
  EXPECT_EQ(configured(), 2u);
}

#ifdef BFN_STORE_REDIS
class SharedLoadTest : public LoadTest {
 protected:
  std::unique_ptr<BfnTest::RedisServer> const server =
      BfnTest::RedisServer::isThere() ? std::make_unique<BfnTest::RedisServer>() : nullptr;

  void SetUp() override {
    if (!server) GTEST_SKIP() << "there is no redis-server";
    service.options() = {"--database", server->url()};
    up();
  }
};

TEST_F(SharedLoadTest, WhenTheServerGoesAllLinesAreThereOrNone) {
  loadInterrupted(
      6, 60'000, [&] { server->stop(); }, [&] { server->start(); });
}
#endif

}  // namespace
