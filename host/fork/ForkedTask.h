// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>

namespace Host {

/// Owns a file descriptor; -1 for none.
class OwnedDescriptor {
 public:
  OwnedDescriptor() = default;
  explicit OwnedDescriptor(int descriptor) : descriptor_(descriptor) {}
  OwnedDescriptor(OwnedDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~OwnedDescriptor();

  int get() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

/// How a forked task has ended.
struct ForkedEnd {
  /// What exit status, or which signal, unless the status was taken by another part of the process.
  std::optional<int> exitStatus;
  std::optional<int> signal;
  /// It was killed because it wrote more than it may.
  bool tooMuchOutput = false;
  /// finish() killed it because its time was over.
  bool tooLate = false;
  /// What it wrote on standard error, the last of it when that was much.
  std::string errorText;

  /// Whether the function returned 0 and all of its output is there.
  bool isSuccess() const { return exitStatus == 0; }
};

/// A function that runs in a forked child, on a copy of the whole process as it is at the call, and
/// writes what it finds into a pipe that the parent reads. What it changes, and also how it dies,
/// concerns the copy only: a failed check there ends the child, and its text is what the parent
/// reads from it.
///
/// The child has its end of the pipe and standard error, which is a second pipe, and no other
/// descriptor but those that it is to keep: no other file, socket or terminal of the parent is
/// reachable, and it holds none of them open. Its signals have their default meaning and none is
/// blocked. It dumps no core, dies when the thread that started it ends, and leaves by one _exit():
/// no destructor and no exit handler of the parent's objects runs there, and nothing that the
/// parent has buffered is written twice.
///
/// There is no event loop inside. A caller that has one waits until one of the three descriptors
/// can be read, calls read() whenever one can, and is done once ended() says so; any other caller
/// calls finish(). The process must have one thread, and nothing in it may wait for just any child.
///
///   auto task = ForkedTask::start([&](int out) { return show(records, out) ? 0 : 1; });
///   std::string text;
///   ForkedEnd const end = task.finish(std::chrono::seconds(10), text);
class ForkedTask {
 public:
  /// Writes to `out`; gives the exit status. What it throws is written to standard error, and the
  /// exit status is then kThrownStatus.
  using Task = std::function<int(int out)>;
  static constexpr int kThrownStatus = 125;
  static constexpr size_t kOutputLimit = size_t{256} << 20;
  /// So much of the error text is kept.
  static constexpr size_t kErrorTextLimit = size_t{64} << 10;

  /// Throws std::system_error when there is no room for another process or its pipes; no child is
  /// left then.
  /// `kept`: descriptors that the task needs, too.
  static ForkedTask start(Task const& task, size_t outputLimit = kOutputLimit,
                          std::span<int const> kept = {});
  /// The children that this process has started, and the seconds that it waited for fork().
  struct Forks {
    size_t count = 0;
    double seconds = 0;
  };
  static Forks const& forks();

  ForkedTask(ForkedTask&&) noexcept = default;
  ForkedTask& operator=(ForkedTask&& other) noexcept;
  /// Kills a child that still runs, and waits for its end.
  ~ForkedTask();

  pid_t pid() const { return child_.pid; }
  /// Can be read when there is output, and at its end; -1 once that has been read.
  int descriptor() const { return output_.get(); }
  /// The same of the error text.
  int errorDescriptor() const { return errors_.get(); }
  /// Can be read when the child has ended; -1 once it has been waited for.
  int processDescriptor() const { return process_.get(); }

  /// Takes what there is, without waiting, and adds the output to `text`: at most `atMost` bytes of
  /// it, for a caller whose own reader is slow. Returns ended().
  bool read(std::string& text, size_t atMost = std::string::npos);
  /// Whether all output has been taken and the child has been waited for.
  bool ended() const { return !child_.running && output_.get() < 0 && errors_.get() < 0; }
  /// How it has ended. Complete once ended().
  ForkedEnd const& end() const { return end_; }

  /// Ends the child at once. What it has written can still be read.
  void kill() const;
  /// Waits for the end, adding the output to `text`; kills the child when it is not there by then.
  ForkedEnd finish(std::chrono::milliseconds timeout, std::string& text);

 private:
  /// What a child is to its parent; after a move it is that of the new owner.
  struct Child {
    explicit Child(pid_t id) : pid(id), running(true) {}
    Child(Child&& other) noexcept : pid(other.pid), running(std::exchange(other.running, false)) {}
    Child& operator=(Child&& other) noexcept {
      std::swap(pid, other.pid);
      std::swap(running, other.running);
      return *this;
    }
    ~Child() = default;

    pid_t pid;
    /// It has not been waited for.
    bool running;
  };

  ForkedTask(pid_t pid, OwnedDescriptor output, OwnedDescriptor errors, OwnedDescriptor process,
             size_t outputLimit);
  void readOutput(std::string& text, size_t atMost);
  void readErrors();
  /// Takes the child's status when it has ended, or waits for that.
  void reap(bool wait);
  void waitUntil(std::chrono::steady_clock::time_point deadline) const;

  Child child_;
  OwnedDescriptor output_;
  OwnedDescriptor errors_;
  OwnedDescriptor process_;
  size_t outputLimit_;
  size_t outputSize_ = 0;
  ForkedEnd end_;
};

/// What a task does with its output: writes all of the text. Throws std::system_error when that
/// fails.
void writeAll(int descriptor, std::string_view text);

/// The sentence of a failed check, "Failed(...) ...", within the error text of the process that it
/// ended: without the text of the assertion, which follows it in the same line. The last line
/// when no check has failed; empty when there is none.
std::string fatalSentence(std::string_view errorText);

}  // namespace Host
