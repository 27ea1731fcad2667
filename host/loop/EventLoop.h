// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <sys/epoll.h>

struct sd_event;
struct signalfd_siginfo;
struct sd_event_source;

namespace Host {

/// The event loop of a process: descriptors, times, signals, and the service manager's watchdog.
///
/// What a callback throws ends run(). One thread. Sources are removed with their object, also
/// within a callback; the loop must outlive them.
class EventLoop {
 public:
  /// Something that the loop waits for.
  class Source {
   public:
    Source(Source const&) = delete;
    Source& operator=(Source const&) = delete;
    ~Source();

    /// Of a descriptor: EPOLLIN, EPOLLOUT, both, or 0.
    void eventsAre(std::uint32_t events);
    /// Of a time: seconds of the steady clock; infinity: never.
    void timeIs(double seconds);

   private:
    friend class EventLoop;
    Source() = default;

    sd_event_source* source_ = nullptr;
    EventLoop* loop_ = nullptr;
    std::shared_ptr<std::function<void(std::uint32_t)>> call_;
  };
  using SourcePtr = std::unique_ptr<Source>;

  /// Throws std::system_error.
  EventLoop();
  EventLoop(EventLoop const&) = delete;
  EventLoop& operator=(EventLoop const&) = delete;
  ~EventLoop();

  /// Calls with the events that are there. The descriptor stays the caller's, and is open as long
  /// as the source.
  SourcePtr descriptor(int fd, std::uint32_t events, std::function<void(std::uint32_t)> call);
  /// Calls once when the time has come that timeIs() says.
  SourcePtr timer(std::function<void()> call);
  /// Blocks the signal and calls when it comes.
  SourcePtr signal(int number, std::function<void()> call);

  /// Waits for one event and handles it. False once stop() was called.
  bool step();
  void stop() { stopped_ = true; }
  /// When the event came that is being handled, by the steady clock.
  double woken() const { return woken_; }
  /// Seconds of the steady clock.
  static double now();

 private:
  static int handleDescriptor(sd_event_source* source, int fd, std::uint32_t events, void* data);
  static int handleTime(sd_event_source* source, std::uint64_t microseconds, void* data);
  static int handleSignal(sd_event_source* source, ::signalfd_siginfo const* info, void* data);
  void dispatch(void* data, std::uint32_t events) noexcept;

  sd_event* event_ = nullptr;
  bool stopped_ = false;
  double woken_ = now();
  std::exception_ptr thrown_;
};

}  // namespace Host
