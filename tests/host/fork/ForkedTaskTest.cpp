// SPDX-License-Identifier: Apache-2.0
#include "host/fork/ForkedTask.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>

#include "framework/core/AddressSanitizer.h"
#include "framework/core/Fatal.h"

namespace {

using Host::ForkedEnd;
using Host::ForkedTask;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

static_assert(!std::is_copy_constructible_v<ForkedTask>);
static_assert(std::is_nothrow_move_constructible_v<ForkedTask>);

constexpr seconds kEnough{60};

void say(int out, std::string_view text) {
  while (!text.empty()) {
    ssize_t const written = ::write(out, text.data(), text.size());
    if (written <= 0) ::_exit(99);
    text.remove_prefix(static_cast<size_t>(written));
  }
}

struct Finished {
  std::string output;
  ForkedEnd end;
};

Finished finished(ForkedTask::Task const& body, size_t limit = ForkedTask::kOutputLimit) {
  Finished result;
  ForkedTask task = ForkedTask::start(body, limit);
  result.end = task.finish(kEnough, result.output);
  EXPECT_TRUE(task.ended());
  return result;
}

/// The child neither runs nor waits to be waited for.
bool isGone(pid_t child) {
  return ::waitpid(child, nullptr, WNOHANG) < 0 && errno == ECHILD && ::kill(child, 0) != 0;
}

int forever(int /*out*/) {
  while (true) ::pause();
}

TEST(ForkedTask, TheParentReadsWhatTheChildWritesAndItsExitStatus) {
  auto const [output, end] = finished([](int out) {
    say(out, "rows\n");
    say(STDERR_FILENO, "a remark\n");
    return 7;
  });
  EXPECT_EQ("rows\n", output);
  EXPECT_EQ("a remark\n", end.errorText);
  EXPECT_EQ(7, end.exitStatus);
  EXPECT_FALSE(end.signal);
  EXPECT_FALSE(end.isSuccess());
}

TEST(ForkedTask, ItRunsOnACopyOfTheProcess) {
  int value = 1;
  auto const [output, end] = finished([&](int out) {
    ++value;
    say(out, std::to_string(value));
    return 0;
  });
  EXPECT_EQ("2", output);
  EXPECT_EQ(1, value);
  EXPECT_TRUE(end.isSuccess());
}

TEST(ForkedTask, AFatalCheckEndsTheChildAloneAndItsSentenceIsRead) {
  auto const end = finished([](int) {
                     int const rows = 3;
                     KIV_CHECK(rows == 4, "rows: ", rows);
                     return 0;
                   }).end;
  EXPECT_EQ(SIGABRT, end.signal);
  EXPECT_FALSE(end.exitStatus);
  EXPECT_THAT(end.errorText, StartsWith("Failed(rows == 4) rows: 3"));
  EXPECT_THAT(end.errorText, HasSubstr("Assertion"));
  EXPECT_EQ("Failed(rows == 4) rows: 3", Host::fatalSentence(end.errorText));
}

TEST(ForkedTask, TheSentenceIsTheLastLineWhenNoCheckHasFailed) {
  EXPECT_EQ("second", Host::fatalSentence("first\nsecond\n"));
  EXPECT_EQ("", Host::fatalSentence(""));
  EXPECT_EQ("Failed(a)", Host::fatalSentence("a trace\nFailed(a) "));
}

TEST(ForkedTask, ASignalThatEndsTheChildIsReported) {
  auto const [output, end] = finished([](int out) {
    say(out, "half");
    return std::raise(SIGSEGV);
  });
  EXPECT_EQ("half", output);
  EXPECT_EQ(SIGSEGV, end.signal);
}

TEST(ForkedTask, AnExceptionIsTheErrorText) {
  auto const end = finished([](int) -> int { throw std::runtime_error("no such table"); }).end;
  EXPECT_EQ("no such table", end.errorText);
  EXPECT_EQ(ForkedTask::kThrownStatus, end.exitStatus);
}

TEST(ForkedTask, OutputLargerThanAPipeIsReadWhole) {
  std::string const large(3'000'000, 'x');
  auto const [output, end] = finished([&](int out) {
    say(out, large);
    return 0;
  });
  EXPECT_TRUE(end.isSuccess());
  EXPECT_TRUE(output == large);
}

TEST(ForkedTask, AChildThatWritesMoreThanTheLimitIsKilled) {
  auto const [output, end] = finished(
      [](int out) {
        while (true) say(out, "0123456789");
        return 0;
      },
      100'005);
  EXPECT_TRUE(end.tooMuchOutput);
  EXPECT_EQ(100'005u, output.size());
  EXPECT_FALSE(end.isSuccess());
}

TEST(ForkedTask, OutputOfTheLimitIsNotTooMuch) {
  auto const [output, end] = finished(
      [](int out) {
        say(out, "0123456789");
        return 0;
      },
      10);
  EXPECT_TRUE(end.isSuccess());
  EXPECT_FALSE(end.tooMuchOutput);
  EXPECT_EQ("0123456789", output);
}

TEST(ForkedTask, OfMuchErrorTextTheLastIsKept) {
  auto const end = finished([](int) {
                     for (int i = 0; i < 100'000; ++i) say(STDERR_FILENO, "0123456789");
                     say(STDERR_FILENO, "the end");
                     return 0;
                   }).end;
  EXPECT_TRUE(end.isSuccess());
  EXPECT_EQ(ForkedTask::kErrorTextLimit, end.errorText.size());
  EXPECT_THAT(end.errorText, EndsWith("the end"));
}

TEST(ForkedTask, TheChildHasItsTwoPipesAndNoOtherDescriptor) {
  int const held = ::open("/dev/null", O_RDONLY);
  ASSERT_GE(held, 0);
  auto const [output, end] = finished([](int out) {
    for (int fd = 0; fd < 1024; ++fd) {
      if (::fcntl(fd, F_GETFD) >= 0) say(out, std::to_string(fd) + (fd == out ? "=out " : " "));
    }
    return 0;
  });
  ::close(held);
  EXPECT_THAT(output, MatchesRegex("2 [0-9]+=out "));
}

TEST(ForkedTask, WhatIsKeptStaysOpen) {
  int const kept = ::open("/dev/null", O_RDONLY);
  int const other = ::open("/dev/null", O_RDONLY);
  ASSERT_GT(other, kept);
  ForkedTask task = ForkedTask::start(
      [&](int out) {
        say(out, ::fcntl(kept, F_GETFD) >= 0 ? "kept" : "closed");
        say(out, ::fcntl(other, F_GETFD) >= 0 ? " open" : " closed");
        return 0;
      },
      ForkedTask::kOutputLimit, std::array{kept});
  std::string text;
  EXPECT_TRUE(task.finish(kEnough, text).isSuccess());
  EXPECT_EQ(text, "kept closed");
  ::close(kept);
  ::close(other);
}

TEST(ForkedTask, ItWorksInAProcessWhoseStandardDescriptorsAreClosed) {
  auto const [output, end] = finished([](int out) {
    ::close(STDERR_FILENO);
    std::string text;
    ForkedTask inner = ForkedTask::start([](int innerOut) {
      say(innerOut, "out");
      say(STDERR_FILENO, "err");
      return 0;
    });
    ForkedEnd const innerEnd = inner.finish(kEnough, text);
    say(out, text + " " + innerEnd.errorText);
    return 0;
  });
  EXPECT_EQ("out err", output);
}

void ignoreIt(int /*signal*/) {}

TEST(ForkedTask, SignalsHaveTheirDefaultMeaningInTheChildAndNoneIsBlocked) {
  auto const before = std::signal(SIGUSR1, ignoreIt);
  sigset_t usr2;
  sigset_t maskBefore;
  ::sigemptyset(&usr2);
  ::sigaddset(&usr2, SIGUSR2);
  ::sigprocmask(SIG_BLOCK, &usr2, &maskBefore);
  EXPECT_EQ(SIGUSR1, finished([](int) { return std::raise(SIGUSR1); }).end.signal);
  EXPECT_EQ(SIGUSR2, finished([](int) { return std::raise(SIGUSR2); }).end.signal);
  sigset_t mask;
  ::sigprocmask(SIG_SETMASK, &maskBefore, &mask);
  EXPECT_EQ(1, ::sigismember(&mask, SIGUSR2)) << "the parent's mask stays";
  EXPECT_EQ(0, ::sigismember(&mask, SIGTERM));
  EXPECT_EQ(ignoreIt, std::signal(SIGUSR1, before)) << "the parent's handler stays";
}

TEST(ForkedTask, TheChildDumpsNoCore) {
  auto const output =
      finished([](int out) {
        rlimit limit{};
        ::getrlimit(RLIMIT_CORE, &limit);
        say(out, std::to_string(limit.rlim_max) + " " + std::to_string(::prctl(PR_GET_DUMPABLE)));
        return 0;
      }).output;
  EXPECT_EQ("0 0", output);
}

TEST(ForkedTask, WhatTheParentHasBufferedIsWrittenOnceAndNoExitHandlerRuns) {
  static int handlerOut = -1;
  std::atexit([] {
    if (handlerOut >= 0) say(handlerOut, "handler");
  });
  std::FILE* const file = std::tmpfile();
  std::fputs("buffered", file);
  auto const [output, end] = finished([](int out) {
    handlerOut = out;
    return 0;
  });
  std::fflush(file);
  EXPECT_EQ(8, ::lseek(::fileno(file), 0, SEEK_END));
  std::fclose(file);
  EXPECT_EQ("", output);
}

TEST(ForkedTask, DestroyingItKillsTheChildAndLeavesNoZombie) {
  pid_t child = 0;
  {
    ForkedTask const task = ForkedTask::start(forever);
    child = task.pid();
    EXPECT_EQ(0, ::kill(child, 0));
  }
  EXPECT_TRUE(isGone(child));
}

TEST(ForkedTask, AMovedOneOwnsTheChildAndTheOneThatItReplacesIsKilled) {
  ForkedTask first = ForkedTask::start([](int out) {
    say(out, "first");
    return 0;
  });
  pid_t replaced = 0;
  {
    ForkedTask second = ForkedTask::start(forever);
    replaced = second.pid();
    second = std::move(first);
    EXPECT_TRUE(isGone(replaced));
    std::string text;
    EXPECT_TRUE(second.finish(kEnough, text).isSuccess());
    EXPECT_EQ("first", text);
    ForkedTask third = std::move(second);
    EXPECT_TRUE(third.ended());
  }
  // Destroying what has been moved from ends nothing.
  ForkedTask running = ForkedTask::start(forever);
  pid_t const child = running.pid();
  {
    ForkedTask owner = std::move(running);
    { ForkedTask const empty = std::move(running); }  // NOLINT(bugprone-use-after-move): the test
    EXPECT_EQ(0, ::kill(child, 0));
  }
  EXPECT_TRUE(isGone(child));
}

TEST(ForkedTask, AChildThatTakesTooLongIsKilled) {
  std::string text;
  ForkedTask task = ForkedTask::start([](int out) {
    say(out, "begun");
    return forever(out);
  });
  // The time is over at once, but what is there is read.
  pollfd ready{task.descriptor(), POLLIN, 0};
  ASSERT_EQ(1, ::poll(&ready, 1, 60'000));
  ForkedEnd const end = task.finish(milliseconds(0), text);
  EXPECT_TRUE(end.tooLate);
  EXPECT_EQ(SIGKILL, end.signal);
  EXPECT_EQ("begun", text);
  EXPECT_TRUE(isGone(task.pid()));
}

TEST(ForkedTask, AProcessThatTheChildHasLeftBehindDoesNotHoldFinishUp) {
  std::string text;
  ForkedTask task = ForkedTask::start([](int out) {
    pid_t const grandchild = ::fork();
    if (grandchild == 0) forever(out);
    say(out, std::to_string(grandchild));
    return 0;
  });
  ForkedEnd const end = task.finish(milliseconds(300), text);
  EXPECT_TRUE(end.tooLate);
  EXPECT_EQ(0, end.exitStatus);
  EXPECT_TRUE(task.ended());
  ::kill(static_cast<pid_t>(std::stol(text)), SIGKILL);
}

TEST(ForkedTask, ACallerWithAnEventLoopReadsInPiecesOfItsOwn) {
  ForkedTask task = ForkedTask::start([](int out) {
    say(out, "0123456789");
    return 0;
  });
  std::string text;
  size_t most = 0;
  while (!task.ended()) {
    std::array<pollfd, 3> waiting{{{task.descriptor(), POLLIN, 0},
                                   {task.errorDescriptor(), POLLIN, 0},
                                   {task.processDescriptor(), POLLIN, 0}}};
    ASSERT_GT(::poll(waiting.data(), waiting.size(), 60'000), 0);
    size_t const before = text.size();
    task.read(text, 4);
    most = std::max(most, text.size() - before);
  }
  EXPECT_EQ("0123456789", text);
  EXPECT_EQ(4u, most);
  EXPECT_TRUE(task.end().isSuccess());
  EXPECT_EQ(-1, task.descriptor());
  EXPECT_EQ(-1, task.errorDescriptor());
  EXPECT_EQ(-1, task.processDescriptor());
}

TEST(ForkedTask, ReadingDoesNotWait) {
  ForkedTask task = ForkedTask::start(forever);
  std::string text;
  EXPECT_FALSE(task.read(text));
  task.kill();
  EXPECT_EQ(SIGKILL, task.finish(kEnough, text).signal);
}

TEST(ForkedTask, TheChildEndsWithTheProcessThatStartedIt) {
  std::string text;
  ForkedTask outer = ForkedTask::start([](int out) {
    ForkedTask const inner = ForkedTask::start(forever);
    say(out, std::to_string(inner.pid()));
    ::_exit(0);
    return 0;
  });
  ASSERT_TRUE(outer.finish(kEnough, text).isSuccess());
  auto const inner = static_cast<pid_t>(std::stol(text));
  auto const runs = [&] {
    // Dead, but not yet waited for by the process that inherits it, counts as ended.
    std::string const path = "/proc/" + std::to_string(inner) + "/stat";
    std::FILE* const file = std::fopen(path.c_str(), "r");
    if (file == nullptr) return false;
    char state = 'Z';
    bool const read = std::fscanf(file, "%*d %*s %c", &state) == 1;
    std::fclose(file);
    return read && state != 'Z' && state != 'X';
  };
  for (int i = 0; i < 6000 && runs(); ++i) std::this_thread::sleep_for(milliseconds(10));
  EXPECT_FALSE(runs());
}

TEST(ForkedTask, WithoutDescriptorsItThrowsAndNoChildIsLeft) {
#ifdef KIV_ADDRESS_SANITIZER
  GTEST_SKIP() << "the sanitizers need descriptors of their own";
#endif
  auto const [output, end] = finished([](int out) {
    rlimit few{};
    ::getrlimit(RLIMIT_NOFILE, &few);
    // Enough for one pipe after the other, until starting it works.
    for (rlim_t room = 4; room < 20; ++room) {
      few.rlim_cur = room;
      ::setrlimit(RLIMIT_NOFILE, &few);
      try {
        std::string text;
        ForkedTask task = ForkedTask::start([](int inner) {
          say(inner, "in");
          return 0;
        });
        task.finish(kEnough, text);
        if (task.end().isSuccess()) {
          say(out, "started " + text);
          return 0;
        }
      } catch (std::system_error const&) {
        if (::waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD) return 1;
      }
    }
    return 2;
  });
  EXPECT_EQ(0, end.exitStatus) << end.errorText;
  EXPECT_EQ("started in", output);
}

}  // namespace
