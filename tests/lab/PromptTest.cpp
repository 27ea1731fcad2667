// The prompt as it is typed at: the program on a terminal of its own.
#include <array>
#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

using ::testing::HasSubstr;

constexpr char kTab[] = "\t";
constexpr char kUp[] = "\x1b[A";
constexpr char kEndOfInput[] = "\x04";

class PromptTest : public ::testing::Test {
 protected:
  PromptTest() {
    // Wide enough for every line: nothing is wrapped.
    winsize const size{50, 500, 0, 0};
    child_ = forkpty(&terminal_, nullptr, nullptr, &size);
    if (child_ == 0) {
      setenv("TERM", "xterm", 1);
      // The line editor's library never frees the names of the functions that it was given.
      setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
      execl(LAB_PROGRAM, LAB_PROGRAM, static_cast<char*>(nullptr));
      _exit(127);
    }
    EXPECT_GT(child_, 0);
    wait("lab> ");
  }
  ~PromptTest() override {
    close(terminal_);
    if (child_ > 0) {
      kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
    }
  }

  /// Types and waits until the terminal shows `shown` after what it showed before. Gives all that
  /// it showed up to there.
  std::string type(std::string_view keys, std::string_view shown) {
    waitForEditor();
    EXPECT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    return wait(shown);
  }
  /// A line, up to the next prompt.
  std::string enter(std::string const& line) {
    type(line, "");
    return type("\r", "\nlab> ");
  }

  /// The exit status, once the program has left the terminal; -1 when it does not.
  int exitStatus() {
    while (read()) {
    }
    if (!left_) return -1;
    int status = 0;
    EXPECT_EQ(waitpid(child_, &status, 0), child_);
    child_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  std::string wait(std::string_view shown) {
    std::size_t found = 0;
    while ((found = unread_.find(shown)) == std::string::npos) {
      if (!read()) {
        ADD_FAILURE() << "the terminal does not show \"" << shown << "\" but\n" << unread_;
        return unread_;
      }
    }
    std::string const seen = unread_.substr(0, found + shown.size());
    unread_.erase(0, seen.size());
    return seen;
  }

  // The line editor takes the terminal over after it has shown the prompt; what is typed before
  // that would be the terminal's own to interpret.
  void waitForEditor() const {
    termios mode{};
    for (int i = 0; i < kPatience && tcgetattr(terminal_, &mode) == 0; ++i) {
      if ((mode.c_lflag & ICANON) == 0) return;
      poll(nullptr, 0, 1);
    }
    ADD_FAILURE() << "the line editor does not start";
  }

  // False at the end, and when nothing comes for long.
  bool read() {
    pollfd wanted{terminal_, POLLIN, 0};
    if (poll(&wanted, 1, kPatience) != 1) return false;
    std::array<char, 4096> piece;
    ssize_t const size = ::read(terminal_, piece.data(), piece.size());
    left_ = size <= 0;
    if (left_) return false;
    unread_.append(piece.data(), static_cast<std::size_t>(size));
    return true;
  }

  static constexpr int kPatience = 20'000;  // milliseconds

  int terminal_ = -1;
  bool left_ = false;
  pid_t child_ = 0;
  std::string unread_;
};

TEST_F(PromptTest, TheTabKeyCompletesKeywordsVrfsAddressesAndInterfaces) {
  enter("host vrf red id 7");
  enter("host routing-status port Ethernet1 key-vlan 0 vlan 1001 vrf-id 7");
  enter("host addr\t10.0.0.1 vrf-id 7 int\tEth\t");
  enter("vx\tf\tm\tvrf r\tsrc-ip 1\tact\trew\tsrc\t02:00:00:00:00:01");
  std::string const inputs = enter("dump inp\t");
  EXPECT_THAT(inputs, HasSubstr(R"("agentStatus":{"7":{"10.0.0.1":{"interface":"Ethernet1",)"));
  EXPECT_THAT(inputs, HasSubstr(R"([{"ip":"10.0.0.1","mac":"02:00:00:00:00:01","vrf":"red"}])"));
}

TEST_F(PromptTest, WhenMoreThanOneWordFitsTheTabKeyListsThem) {
  EXPECT_THAT(type(std::string("dump c") + kTab, "config  "), HasSubstr("\ncapability  chip  "));
}

TEST_F(PromptTest, AWrongLineIsReportedAndThePromptReturns) {
  EXPECT_THAT(enter("host vrf"),
              HasSubstr("prompt:1: error: expected a VRF name of at most 100 bytes, found the end "
                        "of the line\r\n"));
  EXPECT_THAT(enter("expect dump chip == [1]"), HasSubstr("prompt:2: expectation failed"));
  EXPECT_THAT(enter("print still here"), HasSubstr("\nstill here\r\n"));
  type("exit\r", "");
  EXPECT_EQ(exitStatus(), 0);
}

TEST_F(PromptTest, TheUpArrowBringsTheLastLineBack) {
  enter("print one");
  enter("print two");
  EXPECT_THAT(enter(std::string(kUp) + kUp), HasSubstr("\none\r\n"));
}

TEST_F(PromptTest, TheEndOfInputLeaves) {
  type(kEndOfInput, "");
  EXPECT_EQ(exitStatus(), 0);
}

}  // namespace
