// SPDX-License-Identifier: Apache-2.0
// macrewrite-lab as it is started by people and by other programs: options, streams, exit statuses.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace {

using nlohmann::json;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

std::string contents(std::filesystem::path const& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// A folder of its own, in which the program runs.
class ProgramTest : public ::testing::Test {
 protected:
  ProgramTest() {
    std::string name = (std::filesystem::temp_directory_path() / "lab-program-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot create " + name);
    folder = name;
  }
  ~ProgramTest() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }

  void fileIs(std::string const& name, std::string const& text) {
    std::ofstream(folder / name) << text;
  }

  /// Runs the program with what a shell makes of `arguments`; fills in out and err. Gives its exit
  /// status, or 128 and its signal.
  int run(std::string const& arguments, std::string const& input = "") {
    fileIs("in", input);
    std::string const command = "cd '" + folder.string() + "' && exec '" LAB_PROGRAM "' " +
                                arguments + " < in > out 2> err";
    int const status = std::system(command.c_str());
    out = contents(folder / "out");
    err = contents(folder / "err");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  std::filesystem::path folder;
  std::string out;
  std::string err;
};

constexpr char kBringUp[] =
    "host profile routing rewrite supported table-size 1000\n"
    "host use profile routing\n"
    "host agent create\n"
    "host init-tables true\n";

TEST_F(ProgramTest, WithoutFilesItRunsStandardInput) {
  EXPECT_EQ(run("", "print one\nprint two\n"), 0);
  EXPECT_EQ(out, "one\ntwo\n");
  EXPECT_EQ(run("", "print one\nshutdown\n"), 2);
  EXPECT_EQ(out, "one\n");
  EXPECT_THAT(err, StartsWith("stdin:2: error: expected "));
}

TEST_F(ProgramTest, DemoIsTheFirstExampleUnlessThereIsAFileOfThatName) {
  EXPECT_EQ(run("demo -c 'print after it'"), 0);
  EXPECT_THAT(out, StartsWith("What is written is in "));
  EXPECT_THAT(out, HasSubstr("55 frames: 55 forwarded"));
  EXPECT_THAT(out, EndsWith("after it\n"));
  std::string const written = out.substr(22, out.find('\n') - 22);
  EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(written) / "build/leaf1.pcap"));
  std::filesystem::remove_all(written);
  fileIs("demo", "print mine\n");
  EXPECT_EQ(run("demo"), 0);
  EXPECT_EQ(out, "mine\n");
}

TEST_F(ProgramTest, FilesRunOneAfterAnotherOnOneHostUpToTheFirstThatFails) {
  fileIs("a.lab", "host vrf red id 7\n");
  fileIs("b.lab", "expect dump config == 1\n");
  fileIs("c.lab", "print never\n");
  EXPECT_EQ(run("a.lab a.lab", "print not read\n"), 0);
  EXPECT_THAT(out, IsEmpty());
  EXPECT_EQ(run("a.lab b.lab c.lab"), 1);
  EXPECT_THAT(out, IsEmpty());
  EXPECT_EQ(err,
            "b.lab:1: expectation failed\n"
            "  expected: 1\n"
            "  found:    {\"agentConfig\":{},\"localVrfNameToId\":null}\n");
}

TEST_F(ProgramTest, ExitEndsTheRunWithoutTheFilesAfterIt) {
  fileIs("a.lab", "load b.lab\nprint never\n");
  fileIs("b.lab", "print one\nexit\n");
  EXPECT_EQ(run("a.lab a.lab"), 0);
  EXPECT_EQ(out, "one\nb.lab: 2 lines accepted\n");
}

TEST_F(ProgramTest, AFileThatCannotBeReadIsBadInput) {
  EXPECT_EQ(run("no-such.lab"), 2);
  EXPECT_EQ(err, "no-such.lab: error: expected a file of commands that can be read\n");
}

TEST_F(ProgramTest, AnUnknownOptionIsBadInput) {
  EXPECT_EQ(run("--fast"), 2);
  EXPECT_THAT(err, HasSubstr("--fast"));
  EXPECT_EQ(run("--trace 31"), 2);
  EXPECT_EQ(run("--hash-seed many"), 2);
}

TEST_F(ProgramTest, AnUnknownTableIsBadInput) {
  for (char const* table : {"other", "kernel:", "models"}) {
    EXPECT_EQ(run(std::string("--table ") + table), 2) << table;
    EXPECT_THAT(err, HasSubstr("expected model, kernel or kernel:DIR"));
  }
}

TEST_F(ProgramTest, OverTheModelTheReconcilerIsOnWhenAskedFor) {
  EXPECT_EQ(run("", "dump reconciler"), 2);
  EXPECT_EQ(run("--no-reconcile --table model", "dump reconciler"), 2);
  EXPECT_EQ(run("--reconcile", "dump reconciler"), 0);
  EXPECT_THAT(out, HasSubstr("there is no agent"));
}

// Without the rights, or in a build without it.
TEST_F(ProgramTest, WhatTheKernelsTableLacksIsOneLineAndStatusThree) {
  std::string const lab = "'" LAB_PROGRAM "' --table kernel:" + (folder / "table").string();
  std::string const drop = "setpriv --bounding-set=-all ";
  std::string const without =
      std::system((drop + "true 2> /dev/null").c_str()) == 0 ? drop : std::string();
  fileIs("in", "");
  int const status = std::system(
      ("cd '" + folder.string() + "' && exec " + without + lab + " < in > out 2> err").c_str());
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_EQ(contents(folder / "out"), "");
  EXPECT_THAT(contents(folder / "err"), MatchesRegex("macrewrite-lab: [^\n]+\n"));
}

TEST_F(ProgramTest, ACaptureMayComeFromStandardInput) {
  std::string const capture = SOURCE_DIR "/examples/leaf1/hosts.pcap";
  EXPECT_EQ(run("-c 'packets " + capture + " file.pcap'"), 0);
  EXPECT_EQ(run("-c 'packets --from - input.pcap' -c 'trace packet 1'", contents(capture)), 0);
  EXPECT_THAT(out, HasSubstr("\nframe 1, "));
  EXPECT_EQ(contents(folder / "input.pcap"), contents(folder / "file.pcap"));
  EXPECT_EQ(run("-c 'packets --from - input.pcap'", "no capture"), 2);
  EXPECT_THAT(err, StartsWith("prompt:1: error: standard input: expected a capture file"));
}

TEST_F(ProgramTest, HelpHasEveryOptionAndExamples) {
  EXPECT_EQ(run("--help"), 0);
  for (char const* const option :
       {"--plugin", "--hash-seed", "--table", "--reconcile", "--json", "--trace", "--echo"}) {
    EXPECT_THAT(out, HasSubstr(option));
  }
  EXPECT_THAT(out, HasSubstr("Examples:"));
}

TEST_F(ProgramTest, EchoShowsEachLineBeforeItsAnswer) {
  EXPECT_EQ(run("--echo", "# nothing\nprint one # two\n"), 0);
  EXPECT_EQ(out, "> print one # two\none\n");
}

TEST_F(ProgramTest, WithJsonEverythingOnStandardOutputIsAJsonLine) {
  fileIs("a.lab", std::string(kBringUp) +
                      "host start true\n"
                      "show running-config\n"
                      "show vxlan forwarding src-mac rewrite\n"
                      "chip capacity 0\n"
                      "host vrf red id 7\n"
                      "host routing-status port Ethernet1 key-vlan 0 vlan 1001 vrf-id 7\n"
                      "host address 10.0.0.1 vrf-id 7 interface Ethernet1\n"
                      "shutdown\n");
  EXPECT_EQ(run("--json --echo a.lab"), 2);
  std::istringstream lines(out);
  std::vector<json> answers;
  for (std::string line; std::getline(lines, line);) answers.push_back(json::parse(line));
  ASSERT_EQ(answers.size(), 13u);
  EXPECT_EQ(answers[2], json({{"answer", "agent created"},
                              {"command", "host agent create"},
                              {"file", "a.lab"},
                              {"line", 3}}));
  EXPECT_EQ(answers[5]["answer"], json::array());
  EXPECT_THAT(answers[6]["answer"].get<std::string>(), HasSubstr("VRF name"));
  EXPECT_TRUE(answers[7]["answer"].is_null());
  EXPECT_THAT(answers[10]["log"].get<std::string>(), HasSubstr("TABLE_FULL"));
  EXPECT_EQ(answers[11]["line"], 11);
  EXPECT_THAT(answers[12]["error"].get<std::string>(), StartsWith("a.lab:12: error: expected "));
  EXPECT_THAT(err, StartsWith("a.lab:12: error: expected "));
}

TEST_F(ProgramTest, TracesUpToTheLevelGoToStandardError) {
  EXPECT_EQ(run("", kBringUp), 0);
  EXPECT_THAT(err, IsEmpty());
  EXPECT_EQ(run("--trace 9", kBringUp), 0);
  EXPECT_THAT(err, HasSubstr("::updateTableList(): overlaySrcMacRewriteTableSize: 1000\n"));
  EXPECT_THAT(out, Not(HasSubstr("overlaySrcMacRewriteTableSize")));
  EXPECT_EQ(run("--trace 8", kBringUp), 0);
  EXPECT_THAT(err, Not(HasSubstr("overlaySrcMacRewriteTableSize")));
}

TEST_F(ProgramTest, TheTraceRingIsDecodedWhateverTheLevel) {
  EXPECT_EQ(run("", std::string(kBringUp) + "show trace last 2\n"), 0);
  EXPECT_THAT(out, MatchesRegex("(.|\n)*initialised, capacity 1000\n"
                                "[^\n]*Initializing table: overlaySrcMacRewrite pipeId: [^\n]*\n"
                                "[^\n]*Table remaining: 0\n"));
  EXPECT_EQ(run("--json", std::string(kBringUp) + "show trace last 0\nshow trace last 1\n"), 0);
  EXPECT_THAT(out, HasSubstr("{\"answer\":[],\"command\":\"show trace last 0\""));
  EXPECT_THAT(out, HasSubstr("Table remaining: 0\"],\"command\":\"show trace last 1\""));
}

TEST_F(ProgramTest, AHashSeedMakesTheOrderOfAWalkRepeat) {
  std::string lines = "host vrf red id 7\n";
  lines += "host routing-status port Ethernet1 key-vlan 0 vlan 1001 vrf-id 7\n";
  for (int i = 1; i <= 50; ++i) {
    lines += "host address 10.0.0." + std::to_string(i) + " vrf-id 7 interface Ethernet1\n";
  }
  lines += std::string(kBringUp) + "host start true\ndump journal\n";
  EXPECT_EQ(run("--hash-seed 1", lines), 0);
  std::string const first = out;
  EXPECT_EQ(run("--hash-seed 1", lines), 0);
  EXPECT_EQ(out, first);
  EXPECT_EQ(run("--hash-seed 2", lines), 0);
  EXPECT_NE(out, first);
}

TEST_F(ProgramTest, AnotherBuildOfThePluginIsOpenedFromItsPath) {
  std::filesystem::copy_file(LAB_PLUGIN, folder / "other.so");
  EXPECT_EQ(run("--plugin ./other.so", kBringUp), 0) << err;
  EXPECT_THAT(out, HasSubstr("stage 1: table manager made, 1 table initialised"));
  EXPECT_EQ(run("--plugin ./no-such.so", kBringUp), 2);
  EXPECT_THAT(err, StartsWith("macrewrite-lab: error: cannot open the plug-in: ./no-such.so"));
  fileIs("text.so", "no library\n");
  EXPECT_EQ(run("--plugin ./text.so", kBringUp), 2);
  EXPECT_THAT(err, StartsWith("macrewrite-lab: error: cannot open the plug-in: ./text.so"));
  EXPECT_EQ(run("--plugin libc.so.6", kBringUp), 2);
  EXPECT_EQ(err, "macrewrite-lab: error: libc.so.6 has no BfnMacRewrite::agentSmFactory\n");
}

TEST_F(ProgramTest, AFatalCheckEndsTheProcessAfterWhatWasPrinted) {
  EXPECT_EQ(run("", std::string(kBringUp) + "print before the check\n"
                                            "chip initialize-table other\n"
                                            "print after the check\n"),
            128 + SIGABRT);
  EXPECT_THAT(out, HasSubstr("before the check\n"));
  EXPECT_THAT(out, Not(HasSubstr("after the check")));
  EXPECT_THAT(err, StartsWith("Failed(tableKey.tableName() == \"overlaySrcMacRewrite\") "
                              "Unknown table name: other"));
}

TEST_F(ProgramTest, OutputThatCannotBeWrittenIsStatusTwo) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  fileIs("a.lab", "print one\nprint two\nhost agent create\n");
  std::string const command =
      "cd '" + folder.string() + "' && exec '" LAB_PROGRAM "' a.lab > /dev/full 2> err";
  EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 2);
  EXPECT_THAT(contents(folder / "err"), HasSubstr("cannot be written"));
}

TEST_F(ProgramTest, CommandsOfTheCommandLineFollowTheFiles) {
  fileIs("a.lab", "host vrf red id 7\n");
  EXPECT_EQ(run("a.lab -c 'd inp | json' -c 'sh version'"), 0) << err;
  EXPECT_THAT(out, HasSubstr("\"nameToId\":{\"red\":7}"));
  EXPECT_THAT(out, HasSubstr("}\nBfnMacRewrite "));
  EXPECT_EQ(run("-c shutdown -c 'print two'"), 2);
  EXPECT_THAT(out, IsEmpty());
}

TEST_F(ProgramTest, ADashIsStandardInput) {
  fileIs("a.lab", "print one\n");
  EXPECT_EQ(run("a.lab - a.lab", "print two\n"), 0);
  EXPECT_EQ(out, "one\ntwo\none\n");
}

TEST_F(ProgramTest, KeepGoingCarriesOutTheLinesAfterOneThatFails) {
  fileIs("a.lab", "shutdown\nprint one\nload b.lab\nprint two\n");
  fileIs("b.lab", "expect dump config == 1\nprint three\n");
  EXPECT_EQ(run("--keep-going a.lab"), 2);
  EXPECT_EQ(out, "one\nthree\nb.lab: 1 line accepted\ntwo\n");
  EXPECT_THAT(err, HasSubstr("a.lab:1: error: "));
  EXPECT_THAT(err, HasSubstr("b.lab:1: expectation failed"));
  EXPECT_EQ(run("--keep-going b.lab a.lab"), 1);
}

TEST_F(ProgramTest, TheVersionIsThatOfTheBuild) {
  EXPECT_EQ(run("--version"), 0);
  EXPECT_THAT(out, MatchesRegex("BfnMacRewrite [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace
