// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>

namespace BfnTest {

/// Why tests of the kernel's table cannot run here; nothing when they can. Asks once.
std::optional<std::string> const& whyNot();

/// Puts this process into network and mount namespaces of its own, with an empty directory for its
/// files. All of it goes with the process, however it ends; entering again leaves what was before.
/// Throws std::runtime_error.
std::filesystem::path enterSandbox();

/// Runs a line of the shell in the namespaces of this process; its exit status.
int shell(std::string const& line);
/// What the line prints.
std::string outputOf(std::string const& line);

/// A line of the shell that runs beside the test.
class Running {
 public:
  explicit Running(std::FILE* pipe) : pipe_(pipe) {}
  Running(Running const&) = delete;
  Running& operator=(Running const&) = delete;
  ~Running() { wait(); }

  /// Its exit status, once it has ended.
  int wait();

 private:
  std::FILE* pipe_;
};

/// A process in a network namespace of its own, as another host; it dies with the object, or with
/// this process. Shares this process's mounts.
class OtherHost {
 public:
  OtherHost();
  OtherHost(OtherHost const&) = delete;
  OtherHost& operator=(OtherHost const&) = delete;
  ~OtherHost();

  pid_t pid() const { return pid_; }
  /// Runs a line of the shell on the host.
  int shell(std::string const& line) const;
  std::string outputOf(std::string const& line) const;
  Running start(std::string const& line) const;

 private:
  std::string inside(std::string const& line) const;

  pid_t pid_;
};

}  // namespace BfnTest
