// SPDX-License-Identifier: Apache-2.0
// Operator's lines that come together go into the store together: what each of them does and is
// answered is what it would be alone.
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <set>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>

#include "framework/core/AddressSanitizer.h"
#include "tests/daemon/ServiceProcess.h"
#ifdef BFN_STORE_REDIS
#include "host/store/RedisConnection.h"
#include "tests/host/store/RedisServer.h"
#endif
#include "tests/support/Seed.h"

namespace {

using BfnTest::addressLine;
using BfnTest::bringUpLines;
using BfnTest::rewriteLine;
using BfnTest::ServiceProcess;
using nlohmann::json;
using ::testing::HasSubstr;

#ifdef KIV_ADDRESS_SANITIZER
constexpr unsigned kRequests = 500;
#else
constexpr unsigned kRequests = 2000;
#endif

std::string ip(unsigned i) {
  return "10.0." + std::to_string(i / 256) + '.' + std::to_string(i % 256);
}
std::string mac(unsigned i) {
  constexpr char kDigits[] = "0123456789abcdef";
  return std::string("02:00:00:00:00:") + kDigits[i / 16 % 16] + kDigits[i % 16];
}
std::string removal(unsigned i) {
  return "no vxlan forwarding match vrf red src-ip " + ip(i);
}

// The answers of lines that are sent together.
std::vector<json> requestsTogether(ServiceProcess& service, std::vector<json> const& requests) {
  Connection connection = service.connect();
  for (json const& request : requests) connection.send(request);
  std::vector<json> answers;
  answers.reserve(requests.size());
  for (size_t i = 0; i < requests.size(); ++i) answers.push_back(connection.receive());
  return answers;
}
std::vector<json> together(ServiceProcess& service, std::vector<std::string> const& lines) {
  std::vector<json> requests;
  for (std::string const& line : lines) requests.push_back({{"line", line}});
  return requestsTogether(service, requests);
}

std::set<std::string> configured(ServiceProcess& service) {
  std::istringstream text(service.text("show running-config"));
  std::set<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.insert(line);
  return lines;
}

class BatchTest : public ::testing::Test {
 protected:
  ServiceProcess service;

  void SetUp() override { up(service); }
  static void up(ServiceProcess& of) {
    of.start();
    of.lines(bringUpLines());
    ASSERT_TRUE(of.reaches("running")) << of.log();
  }
  void upAgain() {
    service.start();
    ASSERT_TRUE(service.reaches("running")) << service.log();
  }
};

TEST_F(BatchTest, ALineThatIsRefusedInTheMiddleLeavesTheOthersAsTheyAre) {
  auto const answers = together(
      service, {rewriteLine(ip(1), mac(1)), removal(1) + " action rewrite src-mac " + mac(9),
                rewriteLine(ip(2), mac(2)), rewriteLine("10.0.0.300", mac(3)), removal(2),
                rewriteLine(ip(3), mac(3)), removal(77)});
  std::vector<bool> refused;
  for (json const& answer : answers) refused.push_back(answer.contains("error"));
  EXPECT_EQ(refused, (std::vector<bool>{false, true, false, true, false, false, false}));
  EXPECT_EQ(answers[1]["error"], "expected the MAC address that is configured, 02:00:00:00:00:01");
  EXPECT_THAT(answers[3]["error"].get<std::string>(), HasSubstr("10.0.0.300"));
  EXPECT_EQ(configured(service),
            (std::set{rewriteLine(ip(1), mac(1)), rewriteLine(ip(3), mac(3))}));
}

TEST_F(BatchTest, ALineSeesWhatTheLinesBeforeItDid) {
  // Within one batch: a removal that names its MAC.
  auto const answers = together(service, {rewriteLine(ip(1), mac(1)), rewriteLine(ip(1), mac(2)),
                                          removal(1) + " action rewrite src-mac " + mac(1),
                                          removal(1) + " action rewrite src-mac " + mac(2),
                                          removal(1) + " action rewrite src-mac " + mac(3)});
  EXPECT_EQ(answers[2]["error"], "expected the MAC address that is configured, 02:00:00:00:00:02");
  EXPECT_FALSE(answers[3].contains("error"));
  EXPECT_FALSE(answers[4].contains("error"));
  EXPECT_TRUE(configured(service).empty());
}

TEST_F(BatchTest, AfterALineThatFailedTheOthersOfItsRunAreSkipped) {
  std::vector<json> requests;
  for (unsigned i = 0; i < 6; ++i) {
    std::string const line =
        i == 2 ? rewriteLine("10.0.0.300", mac(1)) : rewriteLine(ip(i), mac(i));
    requests.push_back({{"line", line}, {"id", i}, {"run", i < 5 ? 1 : 2}});
  }
  auto const answers = requestsTogether(service, requests);
  for (unsigned i = 0; i < 6; ++i) EXPECT_EQ(answers[i]["id"], i);
  EXPECT_FALSE(answers[2].contains("skipped"));
  EXPECT_EQ(answers[3]["skipped"], true);
  EXPECT_EQ(answers[4]["skipped"], true);
  EXPECT_EQ(configured(service), (std::set{rewriteLine(ip(0), mac(0)), rewriteLine(ip(1), mac(1)),
                                           rewriteLine(ip(5), mac(5))}));
}

TEST_F(BatchTest, ARemovedAndAddedLineIsTwoChanges) {
  service.lines({addressLine(ip(1)), rewriteLine(ip(1), mac(1))});
  json const before = service.status()["store"]["applied"];
  service.lines({removal(1), rewriteLine(ip(1), mac(1)), rewriteLine(ip(1), mac(2)), removal(1),
                 rewriteLine(ip(1), mac(3))});
  EXPECT_EQ(service.status()["store"]["applied"].get<int>() - before.get<int>(), 5);
  EXPECT_EQ(service.answer("dump chip")[0]["mac"], mac(3));
}

TEST_F(BatchTest, ADeathIsNotedUnderTheLineThatItCameWith) {
  // A status with a VLAN that no row may have.
  service.lines({"host routing-status port Ethernet2 key-vlan 0 vlan 4095 vrf-id 7"});
  service.ask("host address 10.9.9.9 vrf-id 7 interface Ethernet2");
  std::string const deadly = rewriteLine("10.9.9.9", mac(1));
  Connection connection = service.connect();
  for (unsigned i = 0; i < 20; ++i) {
    connection.send({{"line", i == 11 ? deadly : rewriteLine(ip(i), mac(i))}});
  }
  connection.flush();
  int const status = service.wait();
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
  service.start();
  EXPECT_EQ(service.status()["lastDeath"]["event"], deadly);
}

TEST_F(BatchTest, WithoutRoomNoLineIsAcceptedAndWithRoomAgainAllAre) {
  std::vector<std::string> lines;
  for (unsigned i = 0; i < 100; ++i) lines.push_back(rewriteLine(ip(i), mac(i)));
  service.stop(SIGTERM);
  auto* const signal = std::signal(SIGXFSZ, SIG_IGN);  // the service inherits it
  upAgain();
  std::signal(SIGXFSZ, signal);
  rlimit before{};
  rlimit const none{0, RLIM_INFINITY};
  ASSERT_EQ(::prlimit(service.process(), RLIMIT_FSIZE, &none, &before), 0);
  auto const refused = together(service, lines);
  for (json const& answer : refused) EXPECT_EQ(answer["status"], 1) << answer;
  EXPECT_TRUE(configured(service).empty());
  ASSERT_EQ(::prlimit(service.process(), RLIMIT_FSIZE, &before, nullptr), 0);
  for (json const& answer : together(service, lines)) EXPECT_FALSE(answer.contains("error"));
  EXPECT_EQ(configured(service).size(), lines.size());
}

// Sends lines together and kills something meanwhile. Each address has one line, so that what was
// accepted is known.
class AcceptedLines {
 public:
  explicit AcceptedLines(unsigned first) : first_(first) {}

  void send(Connection& connection, unsigned count) {
    for (unsigned i = 0; i < count; ++i) connection.send({{"line", lineOf(i)}});
    connection.flush();
  }
  // False: the service has gone.
  bool receive(Connection& connection, unsigned count) {
    try {
      for (unsigned i = 0; i < count; ++i) {
        if (!connection.receive().contains("error")) accepted_.insert(lineOf(i));
      }
    } catch (NoService const&) {
      return false;
    }
    return true;
  }
  std::set<std::string> const& accepted() const { return accepted_; }

 private:
  std::string lineOf(unsigned i) const { return rewriteLine(ip(first_ + i), mac(i)); }

  unsigned const first_;
  std::set<std::string> accepted_;
};

// Rounds of lines that are interrupted.
struct Rounds {
  unsigned cut = 0;         // the connection ended before the last answer
  unsigned incomplete = 0;  // not all lines were accepted
};

// Sends lines several times; something happens within `most` microseconds, and is mended. What was
// accepted is there then.
template <class Interrupt, class Mend>
Rounds sendInterrupted(ServiceProcess& service, unsigned count, unsigned most,
                       Interrupt const& interrupt, Mend const& mend) {
  Kiv::U32 const seed = BfnTest::testSeed();
  SCOPED_TRACE("BFN_TEST_SEED=" + std::to_string(seed));
  std::mt19937 random(seed);
  constexpr unsigned kLines = 1500;
  Rounds rounds;
  for (unsigned round = 0; round < count; ++round) {
    AcceptedLines lines(round * kLines);
    Connection connection = service.connect();
    lines.send(connection, kLines);
    std::thread other([&, pause = random() % most] {
      std::this_thread::sleep_for(std::chrono::microseconds(pause));
      interrupt();
    });
    rounds.cut += lines.receive(connection, kLines) ? 0U : 1U;
    other.join();
    mend();
    EXPECT_TRUE(service.becomesReady()) << service.log();
    rounds.incomplete += lines.accepted().size() < kLines ? 1U : 0U;
    auto const there = configured(service);
    for (std::string const& line : lines.accepted()) EXPECT_TRUE(there.contains(line)) << line;
  }
  return rounds;
}

TEST_F(BatchTest, WhatWasAcceptedOutlivesAKillBetweenLineAndAnswer) {
  Rounds const rounds = sendInterrupted(
      service, 8, 12'000, [&] { ::kill(service.process(), SIGKILL); },
      [&] {
        service.wait();
        service.start();
      });
  EXPECT_GT(rounds.cut, 0u);
}

#ifdef BFN_STORE_REDIS
class SharedBatchTest : public BatchTest {
 protected:
  std::unique_ptr<BfnTest::RedisServer> const server =
      BfnTest::RedisServer::isThere() ? std::make_unique<BfnTest::RedisServer>() : nullptr;

  void SetUp() override {
    if (!server) GTEST_SKIP() << "there is no redis-server";
    service.options() = {"--database", server->url()};
    up(service);
  }
};

TEST_F(SharedBatchTest, WhatWasAcceptedIsThereWhenTheServerGoesHalfWay) {
  Rounds const rounds = sendInterrupted(
      service, 5, 20'000, [&] { server->stop(); }, [&] { server->start(); });
  EXPECT_EQ(rounds.cut, 0u);
  EXPECT_GT(rounds.incomplete, 0u);
}

TEST_F(SharedBatchTest, AServerWithoutRoomRefusesEachLineByItself) {
  Host::RedisConnection connection(Host::StoreUrl(server->url()), {});
  auto const roomIs = [&](char const* bytes) {
    connection.add({"CONFIG", "SET", "maxmemory", bytes});
    connection.need();
  };
  std::vector<std::string> lines;
  for (unsigned i = 0; i < 50; ++i) lines.push_back(rewriteLine(ip(i), mac(i)));
  lines[20] = removal(77);  // changes nothing
  roomIs("1");
  auto const answers = together(service, lines);
  for (size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(answers[i].contains("error"), i != 20) << i;
  EXPECT_TRUE(configured(service).empty());
  roomIs("0");
  for (json const& answer : together(service, lines)) EXPECT_FALSE(answer.contains("error"));
  EXPECT_EQ(configured(service).size(), lines.size() - 1);
}
#endif

// Random requests: few addresses, right and wrong lines, lines of other kinds, runs.
class Requests {
 public:
  explicit Requests(Kiv::U32 seed) : random_(seed) {}

  json next() {
    json request{{"line", line()}};
    if (below(3) == 0) request["id"] = number_;
    if (below(3) == 0) request["form"] = "json";
    if (below(3) == 0) run_ += below(4) == 0 ? 1U : 0U;
    if (below(2) == 0) request["run"] = run_;
    ++number_;
    return request;
  }

 private:
  unsigned below(unsigned bound) { return static_cast<unsigned>(random_()) % bound; }
  std::string line() {
    unsigned const at = below(8);
    switch (below(14)) {
      case 0:
        return "host address " + ip(at) + " vrf-id 7 interface Ethernet1";
      case 1:
        return "no host address " + ip(at) + " vrf-id 7";
      case 2:
        return "no vxlan forwarding match vrf red src-ip " + ip(at) + " action rewrite src-mac " +
               mac(below(3));
      case 3:
        return "vxlan forwarding match vrf red src-ip 10.0.0.300 action rewrite src-mac x";
      case 4:
        return "show capability";
      case 5:
        return "vx forw match vrf red src-ip " + ip(at) + " action rewrite src-mac " +
               mac(below(3));
      case 6:
        return "vxlan forwarding match vrf blue src-ip " + ip(at) + " action rewrite src-mac " +
               mac(below(3));
      case 7:
      case 8:
      case 9:
        return removal(at);
      default:
        return rewriteLine(ip(at), mac(below(3)));
    }
  }

  std::mt19937 random_;
  unsigned number_ = 0;
  unsigned run_ = 1;
};

TEST_F(BatchTest, LinesSentTogetherAreAnsweredAndDoneAsOneByOne) {
  Kiv::U32 const seed = BfnTest::testSeed();
  SCOPED_TRACE("BFN_TEST_SEED=" + std::to_string(seed));
  ServiceProcess other;
  up(other);
  Requests requests(seed);
  std::vector<json> all;
  for (unsigned i = 0; i < kRequests; ++i) all.push_back(requests.next());
  auto const answers = requestsTogether(service, all);
  Connection connection = other.connect();
  for (size_t i = 0; i < all.size(); ++i) {
    ASSERT_EQ(answers[i], connection.ask(all[i])) << i << " " << all[i];
  }
  EXPECT_EQ(service.text("show running-config"), other.text("show running-config"));
  for (char const* const what : {"dump inputs", "dump chip", "dump indexes", "dump records"}) {
    EXPECT_EQ(service.answer(what), other.answer(what)) << what;
  }
  EXPECT_EQ(service.status()["store"]["applied"], other.status()["store"]["applied"]);
  EXPECT_EQ(service.status()["store"]["version"], other.status()["store"]["version"]);
}

}  // namespace
