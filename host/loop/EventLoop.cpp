// SPDX-License-Identifier: Apache-2.0
#include "host/loop/EventLoop.h"

#include <cmath>
#include <csignal>
#include <ctime>
#include <system_error>
#include <systemd/sd-event.h>
#include <utility>

namespace Host {

namespace {

void check(int result, char const* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

}  // namespace

EventLoop::EventLoop() {
  check(::sd_event_new(&event_), "the event loop cannot be made");
  // Without a service manager there is no watchdog, and this does nothing.
  ::sd_event_set_watchdog(event_, 1);
}

EventLoop::~EventLoop() {
  ::sd_event_unref(event_);
}

EventLoop::Source::~Source() {
  if (source_ == nullptr) return;
  ::sd_event_source_set_enabled(source_, SD_EVENT_OFF);
  ::sd_event_source_unref(source_);
}

void EventLoop::Source::eventsAre(std::uint32_t events) {
  check(::sd_event_source_set_io_events(source_, events), "the event loop");
}

void EventLoop::Source::timeIs(double seconds) {
  if (std::isinf(seconds)) {
    check(::sd_event_source_set_enabled(source_, SD_EVENT_OFF), "the event loop");
    return;
  }
  auto const microseconds = static_cast<std::uint64_t>(std::ceil(std::max(seconds, 0.0) * 1e6));
  check(::sd_event_source_set_time(source_, microseconds), "the event loop");
  check(::sd_event_source_set_enabled(source_, SD_EVENT_ONESHOT), "the event loop");
}

void EventLoop::dispatch(void* data, std::uint32_t events) noexcept {
  auto* const source = static_cast<Source*>(data);
  woken_ = now();
  auto const call = source->call_;  // the source may go in the call
  try {
    (*call)(events);
  } catch (...) {
    if (!thrown_) thrown_ = std::current_exception();
  }
}

int EventLoop::handleDescriptor(sd_event_source*, int, std::uint32_t events, void* data) {
  static_cast<Source*>(data)->loop_->dispatch(data, events);
  return 0;
}
int EventLoop::handleTime(sd_event_source*, std::uint64_t, void* data) {
  static_cast<Source*>(data)->loop_->dispatch(data, 0);
  return 0;
}
int EventLoop::handleSignal(sd_event_source*, ::signalfd_siginfo const*, void* data) {
  static_cast<Source*>(data)->loop_->dispatch(data, 0);
  return 0;
}

EventLoop::SourcePtr EventLoop::descriptor(int fd, std::uint32_t events,
                                           std::function<void(std::uint32_t)> call) {
  SourcePtr source(new Source);
  source->loop_ = this;
  source->call_ = std::make_shared<std::function<void(std::uint32_t)>>(std::move(call));
  check(::sd_event_add_io(event_, &source->source_, fd, events, handleDescriptor, source.get()),
        "a descriptor cannot be waited for");
  return source;
}

EventLoop::SourcePtr EventLoop::timer(std::function<void()> call) {
  SourcePtr source(new Source);
  source->loop_ = this;
  source->call_ = std::make_shared<std::function<void(std::uint32_t)>>(
      [call = std::move(call)](std::uint32_t) { call(); });
  constexpr std::uint64_t kAccuracy = 1000;  // microseconds
  check(::sd_event_add_time(event_, &source->source_, CLOCK_MONOTONIC, UINT64_MAX, kAccuracy,
                            handleTime, source.get()),
        "a time cannot be waited for");
  source->timeIs(INFINITY);
  return source;
}

EventLoop::SourcePtr EventLoop::signal(int number, std::function<void()> call) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, number);
  check(-::pthread_sigmask(SIG_BLOCK, &set, nullptr), "a signal cannot be blocked");
  SourcePtr source(new Source);
  source->loop_ = this;
  source->call_ = std::make_shared<std::function<void(std::uint32_t)>>(
      [call = std::move(call)](std::uint32_t) { call(); });
  check(::sd_event_add_signal(event_, &source->source_, number, handleSignal, source.get()),
        "a signal cannot be waited for");
  return source;
}

bool EventLoop::step() {
  if (stopped_) return false;
  check(::sd_event_run(event_, UINT64_MAX), "the event loop");
  if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
  return !stopped_;
}

double EventLoop::now() {
  timespec time;
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

}  // namespace Host
