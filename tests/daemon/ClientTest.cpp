// SPDX-License-Identifier: Apache-2.0
// Single commands, files and standard input of the client: over a service's socket, and over a
// store without a service, they answer the same.
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

#include "tests/daemon/ServiceProcess.h"
#include "tests/support/InChild.h"

namespace {

using BfnTest::rewriteLine;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char kMac[] = "02:00:00:00:00:01";
constexpr char kOther[] = "02:00:00:00:00:02";

std::string ip(size_t i) {
  return "10.0." + std::to_string(i / 256) + '.' + std::to_string(i % 256);
}
std::string removal(size_t i) {
  return "no vxlan forwarding match vrf red src-ip " + ip(i);
}
std::vector<std::string> rewriteLines(size_t count) {
  std::vector<std::string> all;
  for (size_t i = 0; i < count; ++i) all.push_back(rewriteLine(ip(i), kMac));
  return all;
}

enum class Over { Socket, Database };

class ClientTest : public ::testing::TestWithParam<Over> {
 protected:
  void SetUp() override {
    if (GetParam() == Over::Socket) {
      service.start();
      service.lines(BfnTest::bringUpLines());
      ASSERT_TRUE(service.reaches("running")) << service.log();
    }
  }

  std::string path(std::string const& name) const { return folder.file(name); }
  std::string write(std::string const& name, std::vector<std::string> const& lines) const {
    std::ofstream out(path(name));
    for (std::string const& line : lines) out << line << '\n';
    return path(name);
  }
  // What the client prints on either stream.
  BfnTest::ChildEnd run(std::vector<std::string> const& words, std::string const& input) const {
    bool const socket = GetParam() == Over::Socket;
    std::vector<std::string> all{SERVICE_CLIENT, socket ? "--socket" : "--database",
                                 socket ? service.socket() : "sqlite:" + path("db")};
    all.insert(all.end(), words.begin(), words.end());
    std::vector<char*> arguments;
    for (std::string& word : all) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    return BfnTest::inChild(STDOUT_FILENO, [&] {
      ::dup2(STDOUT_FILENO, STDERR_FILENO);
      ::dup2(::open(input.c_str(), O_RDONLY), STDIN_FILENO);
      ::execv(SERVICE_CLIENT, arguments.data());
      return 127;
    });
  }
  BfnTest::ChildEnd run(std::vector<std::string> const& words) const {
    return run(words, "/dev/null");
  }
  std::string text(std::vector<std::string> const& words) const {
    auto const end = run(words);
    EXPECT_TRUE(end.exitedWith(0)) << end.text;
    return end.text;
  }
  BfnTest::ChildEnd input(std::vector<std::string> const& lines) const {
    return run({}, write("input", lines));
  }
  std::string configured() const { return text({"show running-config | count"}); }

  BfnTest::ServiceProcess service;
  BfnTest::TemporaryDirectory const folder;
};
INSTANTIATE_TEST_SUITE_P(All, ClientTest, ::testing::Values(Over::Socket, Over::Database),
                         [](auto const& each) {
                           return each.param == Over::Socket ? "OverASocket" : "OverAStore";
                         });

TEST_P(ClientTest, FiltersFollowACommand) {
  EXPECT_TRUE(input(rewriteLines(12)).exitedWith(0));
  EXPECT_EQ(configured(), "12\n");
  EXPECT_EQ(text({"show", "running-config", "|", "include", "10.0.0.1 ", "|", "count"}), "1\n");
  EXPECT_EQ(text({"show running-config | exclude 10.0.0.9 | count"}), "11\n");
  EXPECT_EQ(text({"show running-config | begin 10.0.0.8 | include red | count"}), "4\n");
  EXPECT_EQ(text({"show running-config | include 10.0.0.7 | json"}),
            "[\"" + rewriteLine(ip(7), kMac) + "\"]\n");
  EXPECT_EQ(text({"--json", "show running-config | count"}),
            "{\"answer\":12,\"command\":\"show running-config | count\"}\n");
  EXPECT_TRUE(run({"show running-config | cuont"}).exitedWith(2));
}

TEST_P(ClientTest, AnAnswerIsSavedInAFileWhoseFolderIsMade) {
  std::string const file = path("made/saved");
  EXPECT_EQ(text({"show running-config | save " + file}), file + ": 0 lines saved\n");
  EXPECT_EQ(std::filesystem::file_size(file), 0U);
  input(rewriteLines(3));
  EXPECT_EQ(text({"show running-config | exclude 10.0.0.1 | save " + file}),
            file + ": 2 lines saved\n");
  std::ifstream in(file);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}),
            rewriteLine(ip(0), kMac) + '\n' + rewriteLine(ip(2), kMac) + '\n');
  auto const refused = run({"show running-config | save " + folder.file("")});
  EXPECT_TRUE(refused.exitedWith(2));
  EXPECT_THAT(refused.text, HasSubstr("cannot be written"));
}

TEST_P(ClientTest, AFileOfOperatorsLinesIsCarriedOutAsAWholeOrNot) {
  std::vector<std::string> lines = rewriteLines(700);
  lines.insert(lines.begin(), {"# MACs of the leaf", ""});
  lines.push_back(removal(5));
  for (std::string const& wrong :
       {rewriteLine("10.0.0.300", kMac), std::string("vxlan forwarding \"open"),
        removal(1) + " action rewrite src-mac " + kOther}) {
    lines[500] = wrong;
    auto const end = run({"load", write("lines", lines)});
    EXPECT_TRUE(end.exitedWith(2)) << end.text;
    EXPECT_THAT(end.text, StartsWith(path("lines") + ":501: error: "));
    EXPECT_EQ(configured(), "0\n") << wrong;
  }
  lines[500] = "";
  EXPECT_EQ(text({"load", write("lines", lines)}), "");
  EXPECT_EQ(configured(), "698\n");
}

TEST_P(ClientTest, StandardInputIsCarriedOutUpToTheLineThatFails) {
  std::vector<std::string> lines = rewriteLines(2'000);
  lines[1'500] = removal(1) + " action rewrite src-mac " + kOther;
  auto const end = input(lines);
  EXPECT_TRUE(end.exitedWith(2));
  EXPECT_EQ(end.text, "stdin:1501: error: expected the MAC address that is configured, " +
                          std::string(kMac) + '\n');
  EXPECT_EQ(configured(), "1500\n");
}

TEST_P(ClientTest, ThatGoesOnCarriesOutTheLinesAfterOneThatFails) {
  auto const end = run({"--keep-going"},
                       write("input", {rewriteLine(ip(1), kMac), rewriteLine("10.0.0.300", kMac),
                                       rewriteLine(ip(2), kMac), "show running-config | count"}));
  EXPECT_TRUE(end.exitedWith(2));
  EXPECT_THAT(end.text, AllOf(HasSubstr("stdin:2: error: "), ::testing::EndsWith("\n2\n")));
}

TEST_P(ClientTest, OfFormsThatOthersHaveTooItSaysWhichOneItHas) {
  auto const end = run({"expect show running-config | count contains 1"});
  EXPECT_TRUE(end.exitedWith(2));
  EXPECT_EQ(end.text, "error: expected expect <COMMAND> == <JSON>, the only form of it here\n");
  bool const socket = GetParam() == Over::Socket;
  EXPECT_THAT(run({"load", "--check", "x"}).text,
              HasSubstr(socket ? "one of the laboratory's: load --check <FILE>"
                               : "expected help, no, show or vxlan, found load"));
}

TEST_P(ClientTest, FilesMayHaveExpectationsAndLoadOthers) {
  write("inner", rewriteLines(2));
  auto const end =
      run({"load", write("outer", {"load inner", "expect show running-config | count == 2",
                                   "expect show running-config | count == 3"})});
  EXPECT_TRUE(end.exitedWith(1));
  EXPECT_EQ(end.text,
            path("outer") + ":3: error: expectation failed\n  expected: 3\n  found:    2\n");
}

}  // namespace
