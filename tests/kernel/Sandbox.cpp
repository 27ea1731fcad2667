// SPDX-License-Identifier: Apache-2.0
#include "tests/kernel/Sandbox.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "kernel/KernelError.h"
#include "kernel/KernelProgram.h"
#include "kernel/Rights.h"

namespace BfnTest {

namespace {

constexpr char kScratch[] = "/mnt";

void check(bool ok, std::string const& what) {
  if (!ok) throw std::runtime_error(what + ": " + std::strerror(errno));
}

// Exit status 0 when a process of its own can do all that the tests do.
bool attempt(std::string& why) {
  int ends[2];
  check(pipe(ends) == 0, "pipe");
  pid_t const child = fork();
  check(child >= 0, "fork");
  if (child == 0) {
    std::string text;
    try {
      BfnKernel::KernelProgram const program({enterSandbox() / "bpf", 1});
      if (shell("ip link add v0 type vxlan id 1 dstport 4789 && ip link del v0") != 0) {
        text = "the kernel has no VXLAN devices, or iproute2 is missing";
      }
    } catch (BfnKernel::Unavailable const& error) {
      text = error.what();
    } catch (BfnKernel::KernelError const&) {
      // For example a program that the verifier refuses: the tests are to show it.
    } catch (std::exception const& error) {
      text = error.what();
    }
    [[maybe_unused]] ssize_t const written = write(ends[1], text.data(), text.size());
    _exit(text.empty() ? 0 : 1);
  }
  close(ends[1]);
  std::array<char, 512> buffer{};
  ssize_t const bytes = read(ends[0], buffer.data(), buffer.size());
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  why.assign(buffer.data(), bytes > 0 ? static_cast<size_t>(bytes) : 0);
  return status == 0;
}

}  // namespace

std::optional<std::string> const& whyNot() {
  static std::optional<std::string> const why = []() -> std::optional<std::string> {
    if (auto missing = BfnKernel::whatIsMissing()) return missing;
    std::string text;
    if (attempt(text)) return std::nullopt;
    return text;
  }();
  return why;
}

std::filesystem::path enterSandbox() {
  // The one before, with what is mounted in it.
  static bool entered = false;
  if (entered) check(umount2(kScratch, MNT_DETACH) == 0, kScratch);
  entered = true;
  check(unshare(CLONE_NEWNET | CLONE_NEWNS) == 0, "no namespaces");
  check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mounts are not private");
  check(mount("tmpfs", kScratch, "tmpfs", 0, "size=64m") == 0, "no tmpfs");
  check(shell("ip link set lo up") == 0, "ip");
  return kScratch;
}

int shell(std::string const& line) {
  int const status = std::system(line.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string outputOf(std::string const& line) {
  struct Close {
    void operator()(std::FILE* file) const { pclose(file); }
  };
  std::unique_ptr<std::FILE, Close> const pipe(popen(line.c_str(), "r"));
  check(pipe != nullptr, line);
  std::string output;
  std::array<char, 4096> buffer{};
  while (size_t const bytes = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) {
    output.append(buffer.data(), bytes);
  }
  return output;
}

OtherHost::OtherHost() : pid_(-1) {
  int ends[2];
  check(pipe(ends) == 0, "pipe");
  pid_ = fork();
  check(pid_ >= 0, "fork");
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    bool const ready = unshare(CLONE_NEWNET) == 0 && BfnTest::shell("ip link set lo up") == 0;
    [[maybe_unused]] ssize_t const written = write(ends[1], ready ? "y" : "n", 1);
    while (true) pause();
  }
  char ready = 'n';
  check(read(ends[0], &ready, 1) == 1 && ready == 'y', "no host");
  close(ends[0]);
  close(ends[1]);
}

OtherHost::~OtherHost() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

std::string OtherHost::inside(std::string const& line) const {
  return "nsenter --net=/proc/" + std::to_string(pid_) + "/ns/net sh -c '" + line + "'";
}

int OtherHost::shell(std::string const& line) const {
  return BfnTest::shell(inside(line));
}

std::string OtherHost::outputOf(std::string const& line) const {
  return BfnTest::outputOf(inside(line));
}

Running OtherHost::start(std::string const& line) const {
  std::FILE* const pipe = popen(inside(line).c_str(), "r");
  check(pipe != nullptr, line);
  return Running(pipe);
}

int Running::wait() {
  if (pipe_ == nullptr) return 0;
  int const status = pclose(std::exchange(pipe_, nullptr));
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace BfnTest
