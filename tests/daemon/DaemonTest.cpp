// SPDX-License-Identifier: Apache-2.0
#include "tests/daemon/DaemonTest.h"

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <random>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "framework/l3/L3Status.h"
#include "host/service/ControlProtocol.h"
#include "tests/support/InChild.h"
#include "tests/support/Seed.h"

namespace {

using BfnTest::addressLine;
using BfnTest::bringUpLines;
using BfnTest::DaemonTest;
using BfnTest::kMac1;
using BfnTest::rewriteLine;
using BfnTest::row;
using BfnTest::ServiceProcess;
using nlohmann::json;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

// Of the service so far, hundredths of a second.
long processorTicks(ServiceProcess const& service) {
  std::ifstream in("/proc/" + std::to_string(service.process()) + "/stat");
  std::string word;
  long ticks = 0;
  for (int field = 1; field <= 15 && in >> word; ++field) {
    if (field >= 14) ticks += std::stol(word);
  }
  return ticks;
}

TEST_F(DaemonTest, WaitsForProfileAndMarker) {
  service.start();
  EXPECT_EQ(service.status()["agent"]["because"], "there is no active profile");
  auto const lines = bringUpLines();
  service.lines({lines.begin(), lines.end() - 1});
  EXPECT_EQ(service.status()["agent"]["because"], "the inputs are not complete yet");
  EXPECT_EQ(service.ask("show chip")["status"], 2);
  EXPECT_FALSE(service.status()["agent"]["ready"]);
  service.lines({lines.back()});
  EXPECT_TRUE(service.reaches("running"));
  EXPECT_TRUE(service.status()["agent"]["ready"]);
}

TEST_F(DaemonTest, LinesAndFactsBecomeRowsAtOnce) {
  up();
  service.lines({addressLine("10.0.0.1"), rewriteLine("10.0.0.1", kMac1)});
  EXPECT_EQ(service.answer("show chip"), json::array({row("10.0.0.1")}));
  EXPECT_THAT(service.text("show vxlan forwarding src-mac rewrite"),
              AllOf(HasSubstr("red"), HasSubstr(kMac1)));
  EXPECT_EQ(service.ask("no vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac "
                        "02:00:00:00:00:02")["error"],
            "expected the MAC address that is configured, 02:00:00:00:00:01");
  service.lines({"no host address 10.0.0.1 vrf-id 7"});
  EXPECT_EQ(service.answer("show chip"), json::array());
  service.lines({"no vxlan forwarding match vrf red src-ip 10.0.0.1",
                 "no vxlan forwarding match vrf red src-ip 10.0.0.1"});
  EXPECT_EQ(service.text("show running-config"), "");
}

TEST_F(DaemonTest, AcceptedLinesOutliveAKill) {
  up();
  service.lines({addressLine("10.0.0.1"), rewriteLine("10.0.0.1", kMac1)});
  service.stop(SIGKILL);
  service.start();
  ASSERT_TRUE(service.reaches("running"));
  EXPECT_EQ(service.answer("show chip"), json::array({row("10.0.0.1")}));
  EXPECT_THAT(service.text("show running-config"), HasSubstr("10.0.0.1"));
}

TEST_F(DaemonTest, ATerminatedServiceEndsWithStatusZero) {
  up();
  int const status = service.stop(SIGTERM);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(DaemonTest, AnErrorSaysWhatIsWrongAndChangesNothing) {
  up();
  EXPECT_THAT(service.ask("vxlan forwarding match vrf red src-ip 10.0.0.300 action rewrite src-mac "
                          "02:00:00:00:00:01")["error"],
              HasSubstr("10.0.0.300"));
  EXPECT_EQ(service.text("show running-config"), "");
  json const refused = service.ask("host agent create");
  EXPECT_THAT(refused["error"], HasSubstr("host agent create"));
  EXPECT_EQ(refused["status"], 2);
  EXPECT_THAT(service.ask("show chip | save x")["error"], HasSubstr("client's"));
}

TEST_F(DaemonTest, EveryFormOfTheLaboratoryIsTakenOrRefusedByName) {
  // Those of the client and of its prompt.
  std::set<std::string> const others{"load <FILE>",
                                     "expect <COMMAND> contains <JSON>",
                                     "expect <COMMAND> one of <JSON>",
                                     "expect <COMMAND> == <JSON>",
                                     "set <NAME> = <VALUE>",
                                     "set <NAME> from <COMMAND>",
                                     "show variables",
                                     "exit"};
  auto const lab = BfnTest::inChild(STDOUT_FILENO, [] {
    ::execl(SERVICE_LABORATORY, SERVICE_LABORATORY, "-c", "dump language",
            static_cast<char*>(nullptr));
    return 127;
  });
  up();
  size_t refused = 0;
  for (json const& group : json::parse(lab.text)) {
    for (json const& command : group["commands"]) {
      if (others.contains(command["form"])) continue;
      std::string const error = service.ask(command["example"]).value("error", "");
      if (error.find("one of the laboratory's") != std::string::npos) ++refused;
      EXPECT_THAT(error, Not(HasSubstr(", found "))) << command["form"];
    }
  }
  EXPECT_GT(refused, 40u);
}

TEST_F(DaemonTest, WhatIsNoRequestIsAnsweredAsSuch) {
  up();
  Connection connection = service.connect();
  EXPECT_EQ(connection.greeting()["switch"], "leaf1");
  EXPECT_EQ(connection.ask(json::array({1}))["status"], 2);
  EXPECT_EQ(connection.ask({{"id", 7}})["id"], 7);
  EXPECT_EQ(connection.ask({{"line", 5}, {"id", "a"}})["id"], "a");
  EXPECT_EQ(connection.ask({{"await", -1}})["status"], 2);
  EXPECT_EQ(connection.ask({{"line", ""}})["answer"], nullptr);
  connection.send({{"line", std::string(100'000, 'x')}});
  EXPECT_EQ(connection.receive()["error"], "the request is too long");
  EXPECT_THROW(connection.ask({{"line", "status"}}), NoService);
  EXPECT_TRUE(service.status()["agent"]["ready"]);
}

TEST_F(DaemonTest, AfterALineThatFailedTheOthersOfItsRunAreSkipped) {
  up();
  Connection connection = service.connect();
  for (char const* const line : {"host vrf a id 1", "host bogus", "host vrf b id 2"}) {
    connection.send({{"line", line}, {"run", 1}});
  }
  connection.send({{"line", "host vrf c id 3"}, {"run", 2}});
  EXPECT_TRUE(connection.receive().contains("answer"));
  EXPECT_FALSE(connection.receive().contains("skipped"));
  EXPECT_EQ(connection.receive()["skipped"], true);
  EXPECT_TRUE(connection.receive().contains("answer"));
  EXPECT_THAT(service.answer("dump inputs").dump(),
              AllOf(HasSubstr("\"a\""), HasSubstr("\"c\""), Not(HasSubstr("\"b\""))));
}

TEST_F(DaemonTest, AnswersOfSeveralClientsAreTheirOwn) {
  up();
  Connection one = service.connect();
  Connection two = service.connect();
  for (int i = 0; i < 20; ++i) {
    one.send({{"line", "show chip"}, {"id", i}});
    two.send({{"line", "status"}, {"id", 100 + i}});
  }
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(two.receive()["id"], 100 + i);
    EXPECT_EQ(one.receive()["id"], i);
  }
}

TEST_F(DaemonTest, AClientLearnsOfAChange) {
  up();
  Connection connection = service.connect();
  json const first = connection.ask({{"await", 0}});
  connection.send({{"await", first["changes"]}});
  connection.flush();
  service.lines({addressLine("10.0.0.1")});
  EXPECT_GT(connection.receive()["changes"], first["changes"]);
}

TEST_F(DaemonTest, AClientThatDoesNotReadHoldsNobodyUp) {
  up();
  Connection slow = service.connect();
  for (int i = 0; i < 200; ++i) slow.send({{"line", "help"}});
  slow.flush();
  EXPECT_TRUE(service.status()["agent"]["ready"]);
  service.lines({addressLine("10.0.0.1")});
  EXPECT_EQ(service.answer("show chip").size(), 1u);
}

TEST_F(DaemonTest, AClientThatWaitsAndGoesIsForgotten) {
  up();
  {
    Connection connection = service.connect();
    json const changes = connection.ask({{"await", 0}})["changes"];
    connection.send({{"await", changes}});
    connection.send({{"line", "status"}});
    connection.flush();
  }
  long const before = processorTicks(service);
  ::usleep(500'000);
  EXPECT_LT(processorTicks(service) - before, 20);
  EXPECT_TRUE(service.status()["agent"]["ready"]);
}

TEST_F(DaemonTest, AClientThatWaitsWithClosedOutputIsAnsweredAndTakesNoTime) {
  up();
  int const socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un const address = Host::controlAddress(service.socket());
  ASSERT_EQ(::connect(socket, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
  json const changes = service.connect().ask({{"await", 0}})["changes"];
  std::string const requests =
      json({{"await", changes}}).dump() + "\n" + json({{"line", "show version"}}).dump() + "\n";
  ASSERT_EQ(::send(socket, requests.data(), requests.size(), 0),
            static_cast<ssize_t>(requests.size()));
  ::shutdown(socket, SHUT_WR);
  long const before = processorTicks(service);
  ::usleep(500'000);
  EXPECT_LT(processorTicks(service) - before, 20);
  service.lines({addressLine("10.0.0.1")});
  std::string answers;
  char part[4096];
  for (ssize_t size = 0; (size = ::recv(socket, part, sizeof part, 0)) > 0;) {
    answers.append(part, static_cast<size_t>(size));
  }
  ::close(socket);
  EXPECT_THAT(answers, AllOf(HasSubstr("\"changes\""), HasSubstr("\"version\"")));
}

TEST_F(DaemonTest, AnotherUserMayLookAndChangeNothing) {
  passwd const* const nobody = ::getpwnam("nobody");
  if (::geteuid() != 0 || nobody == nullptr) GTEST_SKIP() << "needs another user";
  up();
  ASSERT_EQ(::chmod(service.file(".").c_str(), 0755), 0);
  ASSERT_EQ(::chmod(service.socket().c_str(), 0666), 0);
  auto const asNobody = [&](char const* line) {
    return BfnTest::inChild(
               STDOUT_FILENO,
               [&] {
                 if (::setgid(nobody->pw_gid) != 0 || ::setuid(nobody->pw_uid) != 0) return 1;
                 std::string const text = Connection(service.socket()).ask({{"line", line}}).dump();
                 return ::write(STDOUT_FILENO, text.data(), text.size()) > 0 ? 0 : 1;
               })
        .text;
  };
  EXPECT_THAT(asNobody("status"), HasSubstr("running"));
  EXPECT_THAT(asNobody("host vrf blue id 8"), HasSubstr("this user may look"));
  EXPECT_THAT(service.answer("dump inputs").dump(), Not(HasSubstr("blue")));
  // A user of the configuration may.
  service.stop(SIGTERM);
  std::ofstream(service.file("toml")) << "writers = [\"nobody\"]\n";
  service.options() = {"--config", service.file("toml")};
  service.start();
  ASSERT_EQ(::chmod(service.socket().c_str(), 0666), 0);
  EXPECT_THAT(asNobody("host vrf blue id 8"), Not(HasSubstr("error")));
  EXPECT_THAT(service.log(),
              HasSubstr("uid " + std::to_string(nobody->pw_uid) + ": host vrf blue id 8"));
}

TEST_F(DaemonTest, APromptIsGivenFormsNamesAndDoubts) {
  service.start();
  Connection client = service.connect();
  // Names are known before there is an agent.
  service.lines({"host vrf red id 7", "host vrf \"a b\" id 8"});
  EXPECT_EQ(client.ask({{"known", "vrf"}, {"begins", "r"}, {"id", 5}}),
            (json{{"known", {"red"}}, {"id", 5}}));
  EXPECT_EQ(client.ask({{"known", "vrf"}, {"begins", "\"a"}})["known"], json::array({"a b"}));
  EXPECT_EQ(client.ask({{"known", "vrf-id"}})["known"], (json{"7", "8"}));
  EXPECT_EQ(client.ask({{"known", "nothing"}})["known"], json::array());
  EXPECT_EQ(client.ask({{"known", 7}})["status"], 2);
  EXPECT_EQ(client.ask({{"known", "vrf"}, {"begins", 7}})["status"], 2);
  json const groups = client.ask({{"known", "commands"}})["known"];
  json forms;
  for (json const& group : groups) {
    forms.push_back(group["commands"]);
  }
  EXPECT_THAT(forms.dump(), AllOf(HasSubstr("\"form\":\"chip port <DEVICE> vlan <N:1-4094>\""),
                                  Not(HasSubstr("host agent create"))));
  service.lines(bringUpLines());
  ASSERT_TRUE(service.reaches("running"));
  json const warned = client.ask({{"line", "no host vrf rde"}, {"warn", true}});
  EXPECT_EQ(warned["warnings"],
            json::array({{{"text", "there is no VRF rde; did you mean red?"}, {"word", 3}}}));
  EXPECT_FALSE(client.ask({{"line", "no host vrf rde"}}).contains("warnings"));
  EXPECT_EQ(client.ask({{"line", "host vrf red id x"}})["word"], 4);
}

TEST_F(DaemonTest, LinesOfVrfsDoWhatTheyDoToTheRecordItself) {
  up();
  unsigned const seed = BfnTest::testSeed();
  SCOPED_TRACE("BFN_TEST_SEED=" + std::to_string(seed));
  std::mt19937 random(seed);
  auto const model = Kiv::make<Pex::L3Status>();
  model->vrfIs(L3::VrfName("red"), Pex::VrfId(7));
  for (int round = 0; round < 40; ++round) {
    std::vector<std::string> lines;
    for (int i = 0; i < 20; ++i) {
      std::string const name(1, static_cast<char>('a' + random() % 4));
      auto const number = static_cast<unsigned>(random() % 3);
      std::string const id = std::to_string(number);
      L3::VrfName const vrf(name);
      Pex::VrfId const vrfId(number);
      switch (random() % 7) {
        case 0:
        case 1:
          lines.push_back("host vrf " + name + " id " + id);
          model->vrfIs(vrf, vrfId);
          break;
        case 2:
          if (model->vrfNameToId(vrf) == nullptr) continue;
          lines.push_back("no host vrf " + name);
          model->vrfDel(vrf);
          break;
        case 3:
          lines.push_back("host vrf-id " + id + " name " + name);
          model->vrfNameIs(vrfId, vrf);
          break;
        case 4:
          lines.push_back("no host vrf-id " + id);
          model->vrfNameDel(vrfId);
          break;
        case 5:
          lines.push_back("host vrf-name " + name + " id " + id);
          model->vrfNameToIdIs(vrf, vrfId);
          break;
        default:
          lines.push_back("no host vrf-name " + name);
          model->vrfNameToIdDel(vrf);
      }
    }
    service.lines(lines);
    json expected{{"nameToId", json::object()}, {"idToName", json::object()}};
    for (auto const& entry : model->vrfNameToId()) {
      expected["nameToId"][entry.key.stdString()] = entry.value.value();
    }
    for (auto const& entry : model->vrfName()) {
      expected["idToName"][std::to_string(entry.key.value())] = entry.value.stdString();
    }
    ASSERT_EQ(service.answer("dump inputs")["l3Status"], expected) << json(lines).dump();
  }
}

TEST_F(DaemonTest, OfManyNamesTheFirstAndTheLastAreGiven) {
  service.start();
  std::vector<std::string> lines;
  for (int i = 0; i < 1000; ++i) {
    lines.push_back("host vrf v" + std::to_string(i) + " id " + std::to_string(i));
  }
  service.lines(lines);
  json const answer = service.connect().ask({{"known", "vrf"}});
  EXPECT_EQ(answer["more"], true);
  EXPECT_EQ(answer["known"].size(), 200U);
  EXPECT_EQ(answer["known"].front(), "v0");
  EXPECT_EQ(answer["known"].back(), "v999");
}

TEST_F(DaemonTest, TheTraceLevelHoldsForWhatHasTracedAndForOneFacility) {
  up();
  service.lines({addressLine("10.0.0.1"), "trace level 9 facility BfnMacRewriteTableMgr",
                 addressLine("10.0.0.2"), "trace level off", addressLine("10.0.0.3")});
  EXPECT_THAT(service.log(),
              AllOf(Not(HasSubstr("overlaySip: 10.0.0.1")), HasSubstr("overlaySip: 10.0.0.2"),
                    Not(HasSubstr("overlaySip: 10.0.0.3"))));
  json const levels = service.answer("show trace facilities");
  EXPECT_EQ(levels["BfnMacRewriteTableMgr"], json::array());
}

TEST_F(DaemonTest, MetricsAreWrittenWholeAndFollow) {
  service.options() = {"--config", service.file("toml")};
  std::ofstream(service.file("toml"))
      << "metrics = \"" << service.file("m.prom") << "\"\nmetrics-interval = 0.1\n";
  up();
  service.lines({addressLine("10.0.0.1")});
  std::string text;
  for (int i = 0; i < 100 && text.find("macrewrite_rows_wanted 1\n") == std::string::npos; ++i) {
    ::usleep(50'000);
    std::ostringstream all;
    all << std::ifstream(service.file("m.prom")).rdbuf();
    text = all.str();
  }
  EXPECT_THAT(text,
              AllOf(HasSubstr("macrewrite_rows_wanted 1\n"), HasSubstr("macrewrite_ready 1\n"),
                    HasSubstr("macrewrite_state{state=\"running\"} 1\n"),
                    HasSubstr("macrewrite_event_to_table_seconds_bucket{le=\"+Inf\"}")));
}

TEST_F(DaemonTest, MetricsCountTheAnswersThatAreForkedAndTheirTime) {
  up();
  auto const metric = [&](std::string const& name) {
    std::string const text = service.text("show metrics");
    size_t const at = text.find("\nmacrewrite_" + name + ' ');
    return at == std::string::npos ? -1 : std::stod(text.substr(text.find(' ', at + 1)));
  };
  EXPECT_EQ(metric("forks_total"), 0);
  EXPECT_EQ(metric("fork_seconds_total"), 0);
  service.lines({"show chip", "show running-config"});
  EXPECT_EQ(metric("forks_total"), 2);
  double const seconds = metric("fork_seconds_total");
  EXPECT_GT(seconds, 1e-6);
  EXPECT_LT(seconds, 60);
}

TEST_F(DaemonTest, ASupportCaseIsOneFileWithoutSecrets) {
  std::ofstream(service.file("secret")) << "not for others";
  std::ofstream(service.file("toml")) << "metrics-interval = 7.5\nwriters = [\"root\"]\n[store]\n"
                                      << "secret-file = \"" << service.file("secret") << "\"\n";
  service.options() = {"--config", service.file("toml")};
  up();
  service.lines({addressLine("10.0.0.1"), rewriteLine("10.0.0.1", kMac1)});
  dies();
  service.start();
  ASSERT_TRUE(service.reaches("running"));
  std::string const file = service.file("case.txt");
  auto const written = BfnTest::inChild(STDOUT_FILENO, [&] {
    ::execl(SERVICE_CLIENT, SERVICE_CLIENT, "--socket", service.socket().c_str(), "status",
            "--support", file.c_str(), static_cast<char*>(nullptr));
    return 127;
  });
  EXPECT_TRUE(written.exitedWith(0));
  EXPECT_EQ(written.text, file + " has been written\n");
  std::ostringstream all;
  all << std::ifstream(file).rdbuf();
  std::string const text = all.str();
  EXPECT_THAT(text, AllOf(HasSubstr("kernel   Linux "), HasSubstr("by macrewrite 1."),
                          HasSubstr("\"build\":"), HasSubstr("metrics-interval = 7.5\n"),
                          HasSubstr("store.secret-file = \"" + service.file("secret") + '"'),
                          HasSubstr("writers = [\"root\"]")));
  EXPECT_THAT(text, Not(HasSubstr("not for others")));
  // How the last process ended, with the end of its trace.
  EXPECT_THAT(text, AllOf(HasSubstr("1 deaths before"), HasSubstr("\"lastDeath\":{\"event\":"),
                          HasSubstr("\"trace\":[\"")));
  EXPECT_THAT(text,
              AllOf(HasSubstr("### show metrics\n# HELP macrewrite_"),
                    HasSubstr("macrewrite_ready 1\n"), HasSubstr(rewriteLine("10.0.0.1", kMac1)),
                    HasSubstr("### show log\n"), HasSubstr("### show trace\n")));
  EXPECT_THAT(text, Not(::testing::ContainsRegex("### [^\n]*\nerror: [a-z]")));
}

TEST_F(DaemonTest, ADirectoryBelongsToOneService) {
  up();
  ServiceProcess other({"--state", service.file("state"), "--control", service.file("other")});
  EXPECT_THROW(other.start(), std::runtime_error);
  EXPECT_TRUE(service.status()["agent"]["ready"]);
}

}  // namespace
