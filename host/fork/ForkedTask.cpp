// SPDX-License-Identifier: Apache-2.0
#include "host/fork/ForkedTask.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace Host {

namespace {

[[noreturn]] void fail(char const* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) fail("pipe of a forked task");
    reading = OwnedDescriptor(ends[0]);
    writing = OwnedDescriptor(ends[1]);
    if (::fcntl(ends[0], F_SETFL, O_NONBLOCK) != 0) fail("pipe of a forked task");
  }

  OwnedDescriptor reading;
  OwnedDescriptor writing;
};

/// Blocks all signals while it lives, so that no handler of the parent runs in the child.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, &before_);
  }
  SignalsBlocked(SignalsBlocked const&) = delete;
  SignalsBlocked& operator=(SignalsBlocked const&) = delete;
  ~SignalsBlocked() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

ForkedTask::Forks allForks;

constexpr int kFirstOwn = STDERR_FILENO + 1;

/// Leaves the two pipes, and what is kept, as the only descriptors. Gives the output's; -1 when
/// that fails.
int keepOnly(int output, int errors, std::span<int const> kept) {
  // Copies first, since either may have the number of a standard stream.
  int const outputCopy = ::fcntl(output, F_DUPFD, kFirstOwn);
  int const errorsCopy = ::fcntl(errors, F_DUPFD, kFirstOwn);
  if (outputCopy < 0 || errorsCopy < 0) return -1;
  if (::dup2(errorsCopy, STDERR_FILENO) < 0) return -1;
  ::close(STDIN_FILENO);
  ::close(STDOUT_FILENO);
  std::vector<int> all(kept.begin(), kept.end());
  all.push_back(outputCopy);
  std::ranges::sort(all);
  int next = kFirstOwn;
  for (int const each : all) {
    if (each < next) continue;
    if (each > next &&
        ::close_range(static_cast<unsigned>(next), static_cast<unsigned>(each) - 1, 0) != 0) {
      return -1;
    }
    next = each + 1;
  }
  return ::close_range(static_cast<unsigned>(next), ~0U, 0) == 0 ? outputCopy : -1;
}

void signalsAtTheirDefaults() {
  struct sigaction byDefault {};
  byDefault.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) ::sigaction(signal, &byDefault, nullptr);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

void noCore() {
  rlimit const none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  // The limit does not bind a program that the kernel gives cores to; this does.
  ::prctl(PR_SET_DUMPABLE, 0);
}

void writeError(std::string_view text) {
  try {
    writeAll(STDERR_FILENO, text);
  } catch (std::system_error const&) {  // there is nowhere left to say it
  }
}

int statusOf(ForkedTask::Task const& task, int output) {
  try {
    return task(output);
  } catch (std::exception const& error) {
    writeError(error.what());
  } catch (...) {
    writeError("an exception of no known type");
  }
  return ForkedTask::kThrownStatus;
}

[[noreturn]] void runChild(ForkedTask::Task const& task, pid_t parent, int output, int errors,
                           std::span<int const> kept) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  signalsAtTheirDefaults();
  noCore();
  int const left = ::getppid() == parent ? keepOnly(output, errors, kept) : -1;
  ::_exit(left < 0 ? ForkedTask::kThrownStatus : statusOf(task, left));
}

void killAndReap(pid_t child) {
  ::kill(child, SIGKILL);
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

void writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    ssize_t const written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) fail("what a forked task has found cannot be written");
    text.remove_prefix(static_cast<size_t>(written));
  }
}

OwnedDescriptor::~OwnedDescriptor() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

ForkedTask::ForkedTask(pid_t pid, OwnedDescriptor output, OwnedDescriptor errors,
                       OwnedDescriptor process, size_t outputLimit)
    : child_(pid),
      output_(std::move(output)),
      errors_(std::move(errors)),
      process_(std::move(process)),
      outputLimit_(outputLimit) {}

ForkedTask::Forks const& ForkedTask::forks() {
  return allForks;
}

ForkedTask ForkedTask::start(Task const& task, size_t outputLimit, std::span<int const> kept) {
  Pipe output;
  Pipe errors;
  pid_t const parent = ::getpid();
  pid_t child = 0;
  std::chrono::duration<double> took{};
  {
    SignalsBlocked const blocked;
    auto const begun = std::chrono::steady_clock::now();
    child = ::fork();
    if (child == 0) runChild(task, parent, output.writing.get(), errors.writing.get(), kept);
    took = std::chrono::steady_clock::now() - begun;
  }
  if (child < 0) fail("fork");
  ++allForks.count;
  allForks.seconds += took.count();
  // Debian 12's <sys/pidfd.h> declares it for C alone.
  OwnedDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  if (process.get() < 0) {
    int const why = errno;
    killAndReap(child);
    errno = why;
    fail("descriptor of a forked task");
  }
  return {child, std::move(output.reading), std::move(errors.reading), std::move(process),
          outputLimit};
}

ForkedTask& ForkedTask::operator=(ForkedTask&& other) noexcept {
  ForkedTask taken(std::move(other));
  std::swap(child_, taken.child_);
  std::swap(output_, taken.output_);
  std::swap(errors_, taken.errors_);
  std::swap(process_, taken.process_);
  std::swap(outputLimit_, taken.outputLimit_);
  std::swap(outputSize_, taken.outputSize_);
  std::swap(end_, taken.end_);
  return *this;
}

ForkedTask::~ForkedTask() {
  if (!child_.running) return;
  kill();
  reap(true);
}

void ForkedTask::kill() const {
  if (child_.running) ::kill(child_.pid, SIGKILL);
}

bool ForkedTask::read(std::string& text, size_t atMost) {
  readErrors();
  readOutput(text, atMost);
  reap(false);
  return ended();
}

void ForkedTask::readOutput(std::string& text, size_t atMost) {
  std::array<char, 65536> piece;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled by read
  while (output_.get() >= 0 && atMost > 0) {
    ssize_t const got = ::read(output_.get(), piece.data(), std::min(piece.size(), atMost));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN) return;
    if (got <= 0) {
      output_ = OwnedDescriptor();
      return;
    }
    size_t const size = std::min(static_cast<size_t>(got), outputLimit_ - outputSize_);
    text.append(piece.data(), size);
    outputSize_ += size;
    atMost -= size;
    if (size == static_cast<size_t>(got)) continue;
    end_.tooMuchOutput = true;
    kill();
    output_ = OwnedDescriptor();
  }
}

void ForkedTask::readErrors() {
  std::array<char, 4096> piece;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled by read
  std::string& text = end_.errorText;
  while (errors_.get() >= 0) {
    ssize_t const got = ::read(errors_.get(), piece.data(), piece.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN) return;
    if (got <= 0) {
      errors_ = OwnedDescriptor();
      return;
    }
    text.append(piece.data(), static_cast<size_t>(got));
    if (text.size() > kErrorTextLimit) text.erase(0, text.size() - kErrorTextLimit);
  }
}

void ForkedTask::reap(bool wait) {
  if (!child_.running) return;
  int status = 0;
  pid_t reaped = 0;
  do {
    reaped = ::waitpid(child_.pid, &status, wait ? 0 : WNOHANG);
  } while (reaped < 0 && errno == EINTR);
  if (reaped == 0) return;
  child_.running = false;
  process_ = OwnedDescriptor();
  if (reaped < 0) return;
  if (WIFEXITED(status)) end_.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) end_.signal = WTERMSIG(status);
}

void ForkedTask::waitUntil(std::chrono::steady_clock::time_point deadline) const {
  auto const left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  std::array<pollfd, 3> waiting{
      {{output_.get(), POLLIN, 0}, {errors_.get(), POLLIN, 0}, {process_.get(), POLLIN, 0}}};
  constexpr std::chrono::milliseconds kLongest = std::chrono::hours(1);
  ::poll(waiting.data(), waiting.size(),
         static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), kLongest).count()));
}

ForkedEnd ForkedTask::finish(std::chrono::milliseconds timeout, std::string& text) {
  auto const deadline = std::chrono::steady_clock::now() + timeout;
  while (!read(text)) {
    if (std::chrono::steady_clock::now() < deadline) {
      waitUntil(deadline);
      continue;
    }
    end_.tooLate = true;
    kill();
    reap(true);
    read(text);
    // A process that the child has started may still hold the other ends.
    output_ = OwnedDescriptor();
    errors_ = OwnedDescriptor();
  }
  return end_;
}

std::string fatalSentence(std::string_view errorText) {
  while (errorText.ends_with('\n')) errorText.remove_suffix(1);
  size_t const failed = errorText.rfind("Failed(");
  if (failed == std::string_view::npos) {
    return std::string(errorText.substr(errorText.rfind('\n') + 1));
  }
  std::string_view const sentence = errorText.substr(failed);
  std::string const program = std::string(program_invocation_short_name) + ": ";
  std::string text(sentence.substr(0, sentence.find(program)));
  while (text.ends_with(' ')) text.pop_back();
  return text;
}

}  // namespace Host
