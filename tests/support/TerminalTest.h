// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace BfnTest {

inline constexpr char kTab[] = "\t";
inline constexpr char kUp[] = "\x1b[A";
inline constexpr char kEndOfInput[] = "\x04";
inline constexpr char kInterrupt[] = "\x03";
inline constexpr char kSearch[] = "\x12";
inline constexpr char kWordLeft[] = "\x1b[1;5D";

/// A program's prompt as it is typed at: one program at a time on a terminal of its own, without
/// colours, and with a home folder of the test's own.
class TerminalTest : public ::testing::Test {
 protected:
  TerminalTest();
  ~TerminalTest() override;

  /// Starts the program, in place of the last one, and waits for what it shows.
  void run(std::string const& program, std::vector<std::string> const& arguments,
           std::string const& shown);

  /// Types and waits until the terminal shows `shown` after what it showed before. Gives all that
  /// it showed up to there.
  std::string type(std::string_view keys, std::string_view shown);
  /// A line, up to the next prompt.
  std::string enter(std::string const& line, std::string const& prompt);
  /// What is typed without waiting for the editor.
  void send(std::string_view keys) const;
  void resize(unsigned short rows, unsigned short columns) const;

  /// The exit status, once the program has left the terminal; -1 when it does not.
  int exitStatus();
  /// Waits until the terminal shows that, and gives all up to there.
  std::string wait(std::string_view shown);

  std::filesystem::path folder;

 private:
  void leave();
  void waitForEditor() const;
  bool read();

  int terminal_ = -1;
  bool left_ = false;
  pid_t child_ = 0;
  std::string unread_;
};

}  // namespace BfnTest
