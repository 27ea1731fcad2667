// SPDX-License-Identifier: Apache-2.0
// The example with namespaces as `./dev run live` starts it: what it prints, and what it leaves.
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "tests/kernel/Sandbox.h"

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char kCommand[] = "exec " EXAMPLE "/run.sh " LAB_PROGRAM " 2>&1";
// In the environment of all that the example starts.
constexpr char kMark[] = "LIVE_EXAMPLE_TEST";

std::string contents(std::filesystem::path const& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

class LiveExampleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (BfnTest::whyNot()) GTEST_SKIP() << *BfnTest::whyNot();
    if (BfnTest::shell("which ping tcpdump unshare nsenter > /dev/null") != 0) {
      GTEST_SKIP() << "ping, tcpdump or util-linux is missing";
    }
    mark_ = std::to_string(::getpid());
    setenv(kMark, mark_.c_str(), 1);
    mounts_ = contents("/proc/self/mounts");
  }
  ~LiveExampleTest() override { unsetenv(kMark); }

  // Processes of the example; with the last one, its namespaces and what is mounted in them go.
  std::vector<std::string> left() const {
    std::vector<std::string> commands;
    std::string const mark = std::string(kMark) + '=' + mark_;
    for (auto const& each : std::filesystem::directory_iterator("/proc")) {
      if (each.path().filename() == mark_) continue;
      if (contents(each.path() / "environ").find(mark) == std::string::npos) continue;
      commands.push_back(contents(each.path() / "cmdline"));
    }
    return commands;
  }
  void expectNothingLeft() const {
    // The kernel ends the processes of a namespace after its first one.
    for (int i = 0; i < 500 && !left().empty(); ++i) BfnTest::shell("sleep 0.01");
    EXPECT_THAT(left(), IsEmpty());
    EXPECT_EQ(contents("/proc/self/mounts"), mounts_);
  }

  std::string mark_;
  std::string mounts_;
};

TEST_F(LiveExampleTest, ShowsTheRowsMacAtTheFarHostAndLeavesNothing) {
  EXPECT_EQ(BfnTest::outputOf(kCommand), contents(EXAMPLE "/expected.txt"));
  expectNothingLeft();
}

#ifdef FABRIC_EXAMPLE
using FabricExampleTest = LiveExampleTest;

TEST_F(FabricExampleTest, LosesNoPingOverAnyDeathAndLeavesNothing) {
  if (BfnTest::shell("which redis-server python3 > /dev/null") != 0) {
    GTEST_SKIP() << "redis-server or python3 is missing";
  }
  EXPECT_EQ(BfnTest::outputOf("exec " FABRIC_EXAMPLE "/run.sh " FABRIC_PROGRAMS " 2>&1"),
            contents(FABRIC_EXAMPLE "/expected.txt"));
  expectNothingLeft();
}
#endif

// Ctrl-C on a terminal, as soon as the text is shown.
class InterruptedLiveExampleTest : public LiveExampleTest,
                                   public ::testing::WithParamInterface<char const*> {};

TEST_P(InterruptedLiveExampleTest, LeavesNothing) {
  int terminal = -1;
  winsize const size{50, 200, 0, 0};
  pid_t const child = forkpty(&terminal, nullptr, nullptr, &size);
  ASSERT_GE(child, 0);
  if (child == 0) {
    execl("/bin/sh", "sh", "-c", kCommand, nullptr);
    _exit(127);
  }
  std::string shown;
  std::array<char, 4096> buffer{};
  bool interrupted = false;
  pollfd ready{terminal, POLLIN, 0};
  while (poll(&ready, 1, 60'000) == 1) {
    ssize_t const bytes = read(terminal, buffer.data(), buffer.size());
    if (bytes <= 0) break;
    shown.append(buffer.data(), static_cast<size_t>(bytes));
    if (interrupted || shown.find(GetParam()) == std::string::npos) continue;
    interrupted = true;
    EXPECT_EQ(write(terminal, "\x03", 1), 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  close(terminal);
  EXPECT_TRUE(interrupted) << shown;
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 130);
  EXPECT_THAT(shown, Not(HasSubstr("audit")));
  expectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(Places, InterruptedLiveExampleTest,
                         ::testing::Values("Network", "a1: 3 packets", "Ping after"));

}  // namespace
