// SPDX-License-Identifier: Apache-2.0
#include "tests/support/TerminalTest.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace BfnTest {

namespace {

constexpr int kPatience = 60'000;  // milliseconds

}  // namespace

TerminalTest::TerminalTest() {
  std::string name = (std::filesystem::temp_directory_path() / "terminal-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot create " + name);
  folder = name;
  setenv("XDG_STATE_HOME", name.c_str(), 1);
  setenv("HOME", name.c_str(), 1);
  setenv("TERM", "xterm", 1);
  setenv("NO_COLOR", "1", 1);
  unsetenv("LC_ALL");
  // The line editor's library never frees the names of the functions that it was given.
  setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
}

TerminalTest::~TerminalTest() {
  leave();
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

void TerminalTest::run(std::string const& program, std::vector<std::string> const& arguments,
                       std::string const& shown) {
  leave();
  unread_.clear();
  // Wide enough for every line: nothing is wrapped.
  winsize const size{50, 500, 0, 0};
  child_ = forkpty(&terminal_, nullptr, nullptr, &size);
  if (child_ == 0) {
    std::vector<char*> words{const_cast<char*>(program.c_str())};
    for (auto const& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    execv(program.c_str(), words.data());
    _exit(127);
  }
  ASSERT_GT(child_, 0);
  wait(shown);
}

std::string TerminalTest::type(std::string_view keys, std::string_view shown) {
  waitForEditor();
  send(keys);
  return wait(shown);
}

std::string TerminalTest::enter(std::string const& line, std::string const& prompt) {
  type(line, "");
  return type("\r", '\n' + prompt);
}

void TerminalTest::send(std::string_view keys) const {
  EXPECT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

void TerminalTest::resize(unsigned short rows, unsigned short columns) const {
  winsize const size{rows, columns, 0, 0};
  EXPECT_EQ(ioctl(terminal_, TIOCSWINSZ, &size), 0);
}

int TerminalTest::exitStatus() {
  while (read()) {
  }
  if (!left_) return -1;
  int status = 0;
  EXPECT_EQ(waitpid(child_, &status, 0), child_);
  child_ = 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string TerminalTest::wait(std::string_view shown) {
  size_t found = 0;
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

void TerminalTest::leave() {
  if (child_ <= 0) return;
  close(terminal_);
  kill(child_, SIGKILL);
  waitpid(child_, nullptr, 0);
  child_ = 0;
}

// The line editor takes the terminal over after it has shown the prompt; what is typed before that
// would be the terminal's own to interpret.
void TerminalTest::waitForEditor() const {
  termios mode{};
  for (int i = 0; i < kPatience && tcgetattr(terminal_, &mode) == 0; ++i) {
    if ((mode.c_lflag & ICANON) == 0) return;
    poll(nullptr, 0, 1);
  }
  ADD_FAILURE() << "the line editor does not start";
}

// False at the end, and when nothing comes for long.
bool TerminalTest::read() {
  pollfd wanted{terminal_, POLLIN, 0};
  if (poll(&wanted, 1, kPatience) != 1) return false;
  std::array<char, 4096> piece;
  ssize_t const size = ::read(terminal_, piece.data(), piece.size());
  left_ = size <= 0;
  if (left_) return false;
  unread_.append(piece.data(), static_cast<size_t>(size));
  return true;
}

}  // namespace BfnTest
