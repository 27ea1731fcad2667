// SPDX-License-Identifier: Apache-2.0
#include "framework/command/AgentAsyncCommandRequestSm.h"

#include <algorithm>
#include <utility>

#include "framework/core/Exceptions.h"
#include "framework/core/Fatal.h"
#include "framework/generic/Describe.h"

namespace Agent {

AgentAsyncCommandRequestSm::AgentAsyncCommandRequestSm(
    Kiv::String name, Kiv::Ptr<AgentCommandRequest const> const& request, double maxRunTime,
    Kiv::Ptr<Kiv::Clock const> const& clock)
    : AgentCommandRequestBaseSm(std::move(name), request),
      clock_(clock ? clock : Kiv::make<Kiv::SteadyClock const>()),
      maxRunTime_(maxRunTime) {
  initializeSm();
}

AgentAsyncCommandRequestSm::~AgentAsyncCommandRequestSm() = default;

void AgentAsyncCommandRequestSm::initializeSm() {
  startTimeIs(clock_->now());
  endTime_ = nextSliceTime_ = noProgressStartTime_ = 0;
  retryDelay_ = originalRetryDelay_;
  yieldCount_ = timeYieldCount_ = bufferYieldCount_ = bufferFullCount_ = 0;
  executionCompleted_ = continuation_ = falseStart_ = false;
  isTimeQuantaExpired_ = isBufferFull_ = noProgress_ = aborted_ = drained_ = false;
}

void AgentAsyncCommandRequestSm::maxRunTimeIs(double seconds) {
  maxRunTime_ = seconds;
  startTimeIs(startTime());
}

void AgentAsyncCommandRequestSm::maxBufferSizeIs(U64 bytes) {
  if (bytes == 0)
    Kiv::throwRangeException("AgentAsyncCommandRequestSm::maxBufferSize < 1 not allowed");
  maxBufferSize_ = bytes;
  if (prettyoutPrinter_) prettyoutPrinter_->buffer().limitIs(bytes);
}

void AgentAsyncCommandRequestSm::prettyoutPrinterIs(Kiv::Ptr<prettyout::Printer> const& printer) {
  prettyoutPrinter_ = printer;
  producedAtLastLook_ = 0;
}

void AgentAsyncCommandRequestSm::createPrinter() {
  prettyoutPrinterIs(Kiv::make<prettyout::Printer>(
      static_cast<prettyout::Format>(request()->format()), maxBufferSize_, request()->sink()));
}

bool AgentAsyncCommandRequestSm::shouldYield() {
  bool printed = false;
  isBufferFull_ = false;
  if (prettyoutPrinter_) {
    prettyout::OutputBuffer const& buffer = prettyoutPrinter_->buffer();
    U64 const produced = buffer.taken() + buffer.waiting();
    printed = produced != producedAtLastLook_;
    producedAtLastLook_ = produced;
    isBufferFull_ = buffer.full();
    if (isBufferFull_) ++bufferFullCount_;
  }
  isTimeQuantaExpired_ = quantum_.expired(*clock_, printed);
  return isTimeQuantaExpired_ || isBufferFull_;
}

void AgentAsyncCommandRequestSm::abort() {
  if (drained_) return;
  aborted_ = true;
  wake();
}

SliceResult AgentAsyncCommandRequestSm::runSlice() {
  KIV_CHECK_AS(!running_, "!running()", "a slice of ", name(), " is run within a slice");
  if (aborted_) return SliceResult::Aborted;
  if (drained_) return SliceResult::Completed;
  if (clock_->now() < nextSliceTime_) return SliceResult::Wait;
  Kiv::Ptr<AgentAsyncCommandRequestSm> const self(this);
  running_ = true;
  SliceResult result = SliceResult::Aborted;
  try {
    result = runDueSlice();
  } catch (...) {
    running_ = false;
    abort();
    throw;
  }
  running_ = false;
  return aborted_ ? SliceResult::Aborted : result;
}

SliceResult AgentAsyncCommandRequestSm::runDueSlice() {
  if (!prettyoutPrinter_) createPrinter();
  bool const moved = drain();
  if (aborted_) return SliceResult::Aborted;
  if (executionCompleted_) return afterLastSlice(moved);
  isBufferFull_ = prettyoutPrinter_->buffer().full();
  if (isBufferFull_) {
    ++bufferFullCount_;
    return putOff(moved);
  }

  startTimeIs(clock_->now());
  isTimeQuantaExpired_ = falseStart_ = false;
  handleAsyncCommand(request()->socket(), request()->format());
  endTime_ = clock_->now();
  if (aborted_) return SliceResult::Aborted;
  if (falseStart_) return putOff(moved);

  continuation_ = true;
  if (!executionCompleted_) {
    ++yieldCount_;
    timeYieldCount_ += isTimeQuantaExpired_ ? 1 : 0;
    bufferYieldCount_ += isBufferFull_ ? 1 : 0;
  }
  drain();
  if (executionCompleted_) return afterLastSlice(true);
  if (prettyoutPrinter_->buffer().full()) return putOff(true);
  madeProgress();
  nextSliceTime_ = 0;
  return SliceResult::Again;
}

// The command has printed everything; the output has still to be taken by the sink.
SliceResult AgentAsyncCommandRequestSm::afterLastSlice(bool moved) {
  if (prettyoutPrinter_->buffer().waiting() > 0) return putOff(moved);
  madeProgress();
  drained_ = true;
  return SliceResult::Completed;
}

SliceResult AgentAsyncCommandRequestSm::putOff(bool progress) {
  double const now = clock_->now();
  if (progress) {
    madeProgress();
    nextSliceTime_ = now + retryDelay_;
    return SliceResult::Wait;
  }
  if (!noProgress_) {
    noProgress_ = true;
    noProgressStartTime_ = now;
  } else if (now - noProgressStartTime_ >= noProgressAbortTimeout_) {
    abort();
    return SliceResult::Aborted;
  }
  nextSliceTime_ = std::min(now + retryDelay_, noProgressStartTime_ + noProgressAbortTimeout_);
  retryDelay_ = std::max(originalRetryDelay_, std::min(2 * retryDelay_, kMaxRetryDelay));
  return SliceResult::Wait;
}

void AgentAsyncCommandRequestSm::madeProgress() {
  noProgress_ = false;
  retryDelay_ = originalRetryDelay_;
}

bool AgentAsyncCommandRequestSm::drain() {
  prettyout::OutputBuffer& buffer = prettyoutPrinter_->buffer();
  U64 const before = buffer.taken();
  buffer.drain();
  return buffer.taken() != before;
}

Kiv::Type const& AgentAsyncCommandRequestSm::fwkType() const {
  return _kivType();
}

Kiv::Type const& AgentAsyncCommandRequestSm::_kivType() {
  using Sm = AgentAsyncCommandRequestSm;
  static Kiv::Type const type(
      "Agent::AgentAsyncCommandRequestSm", &AgentCommandRequestBaseSm::_kivType(),
      {Kiv::describeScalar<&Sm::maxRunTime, &Sm::maxRunTimeIs>("maxRunTime", 132),
       Kiv::describeConstant<&Sm::clock>("clock", 133),
       Kiv::describeScalar<&Sm::executionCompleted, &Sm::executionCompletedIs>("executionCompleted",
                                                                               134),
       Kiv::describeScalar<&Sm::continuation, &Sm::continuationIs>("continuation", 135),
       Kiv::describeConstant<&Sm::prettyoutPrinter>("prettyoutPrinter", 136),
       Kiv::describeScalar<&Sm::retryDelay, &Sm::retryDelayIs>("retryDelay", 137),
       Kiv::describeScalar<&Sm::originalRetryDelay, &Sm::originalRetryDelayIs>("originalRetryDelay",
                                                                               138),
       Kiv::describeScalar<&Sm::startTime, &Sm::startTimeIs>("startTime", 139),
       Kiv::describeScalar<&Sm::endTime, &Sm::endTimeIs>("endTime", 140),
       Kiv::describeScalar<&Sm::yieldCount, &Sm::yieldCountIs>("yieldCount", 141),
       Kiv::describeScalar<&Sm::timeYieldCount, &Sm::timeYieldCountIs>("timeYieldCount", 142),
       Kiv::describeScalar<&Sm::bufferYieldCount, &Sm::bufferYieldCountIs>("bufferYieldCount", 143),
       Kiv::describeScalar<&Sm::noProgress, &Sm::noProgressIs>("noProgress", 144),
       Kiv::describeScalar<&Sm::noProgressStartTime, &Sm::noProgressStartTimeIs>(
           "noProgressStartTime", 145),
       Kiv::describeScalar<&Sm::noProgressAbortTimeout, &Sm::noProgressAbortTimeoutIs>(
           "noProgressAbortTimeout", 146),
       Kiv::describeScalar<&Sm::maxBufferSize, &Sm::maxBufferSizeIs>("maxBufferSize", 147),
       Kiv::describeScalar<&Sm::isTimeQuantaExpired, &Sm::isTimeQuantaExpiredIs>(
           "isTimeQuantaExpired", 148),
       Kiv::describeScalar<&Sm::isBufferFull, &Sm::isBufferFullIs>("isBufferFull", 149),
       Kiv::describeScalar<&Sm::bufferFullCount, &Sm::bufferFullCountIs>("bufferFullCount", 150),
       Kiv::describeScalar<&Sm::falseStart, &Sm::falseStartIs>("falseStart", 151)});
  return type;
}

}  // namespace Agent
