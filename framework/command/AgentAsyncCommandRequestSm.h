// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/command/AgentCommandRequestBaseSm.h"
#include "framework/command/TimeQuantum.h"
#include "framework/core/Clock.h"
#include "framework/core/Types.h"
#include "framework/prettyout/Printer.h"

namespace Agent {

/// The result of one call of runSlice().
enum class SliceResult : Kiv::U8 {
  Again,      ///< there is more to do at once, after the other commands' slices
  Wait,       ///< nothing to do before nextSliceTime(), or before wake()
  Completed,  ///< all output has been taken by the sink
  Aborted,    ///< ended before that; what was not taken is lost
};

/// Base of commands that work and print in slices, so that a long listing does not block the
/// agent's one thread.
///
/// A derived class overrides handleAsyncCommand(), which is called once a slice. It prints through
/// prettyoutPrinter(), asks shouldYield() after each step of its work, returns when that is true
/// and continues from there in the next slice; it calls executionCompletedIs(true) when all is
/// printed. On the first slice continuation() is false. A command that is not ready to begin calls
/// falseStartIs(true) and returns; it is asked again later, and that next slice is still the first.
///
/// The sink is offered the output after every slice, and when the buffer runs full within one.
/// While the buffer is full, and after a false start, no slice runs: runSlice() says Wait, at first
/// for originalRetryDelay, twice as long after each further try that moved nothing, up to
/// kMaxRetryDelay. When nothing has moved for noProgressAbortTimeout the command is aborted. A
/// command that works without printing makes progress.
///
/// All times are in seconds of clock(). Attributes are the machine's own book-keeping: setting one
/// does not notify.
///
/// Lifetime: the driver of the machine (CommandDispatcher) holds a Ptr to it and releases it after
/// Completed or Aborted. runSlice() holds one during its call, so a handler or a sink may abort the
/// command or release it.
class AgentAsyncCommandRequestSm : public AgentCommandRequestBaseSm {
 public:
  /// Attributes of a derived class are numbered from here on.
  static constexpr Kiv::AttributeId kFirstDerivedAttribute = 152;

  static constexpr double kDefaultRetryDelay = 0.010;
  static constexpr double kMaxRetryDelay = 1.0;
  static constexpr double kDefaultNoProgressAbortTimeout = 60.0;
  static constexpr U64 kDefaultMaxBufferSize = 65536;

  // Driving.

  /// Does one slice, if it is time, and gives the sink its output. Not to be called from within a
  /// slice. After Completed or Aborted it does nothing and says the same again. An exception from
  /// handleAsyncCommand() or from the sink aborts the command and is rethrown.
  SliceResult runSlice();
  /// Before this time runSlice() does nothing; 0 when it is due.
  double nextSliceTime() const { return nextSliceTime_; }
  /// Something has changed, for example the socket can be written again: the next runSlice() is
  /// due.
  void wake() { nextSliceTime_ = 0; }
  /// Ends the command, for example because its client has gone; within a slice, when that slice
  /// returns. Nothing once it has ended.
  void abort();
  bool aborted() const { return aborted_; }

  // For the derived class.

  /// One slice of the command's work.
  virtual void handleAsyncCommand(U32 socket, U32 format) = 0;
  /// Whether this slice should end: its time is used up, or the output buffer is full. Cheap: see
  /// TimeQuantum for when the clock is read. It is read at every call that follows output, so only
  /// a walk that prints nothing may run over, by kMaxSkipped of its steps at most.
  virtual bool shouldYield();
  /// Resets everything but the configured values to the state before the first slice.
  void initializeSm();

  // Configured values.

  /// Longest time that a slice should take. 0: shouldYield() is always true.
  double maxRunTime() const { return maxRunTime_; }
  void maxRunTimeIs(double seconds);
  /// Never null: a machine made without a clock uses the steady clock.
  Kiv::Ptr<Kiv::Clock const> const& clock() const { return clock_; }
  double originalRetryDelay() const { return originalRetryDelay_; }
  void originalRetryDelayIs(double seconds) { originalRetryDelay_ = seconds; }
  double noProgressAbortTimeout() const { return noProgressAbortTimeout_; }
  void noProgressAbortTimeoutIs(double seconds) { noProgressAbortTimeout_ = seconds; }
  /// Bytes that may wait for the sink before the command has to yield. Soft: see
  /// prettyout::OutputBuffer. Throws RangeException for 0.
  U64 maxBufferSize() const { return maxBufferSize_; }
  void maxBufferSizeIs(U64 bytes);

  // State of the command.

  bool executionCompleted() const { return executionCompleted_; }
  void executionCompletedIs(bool completed) { executionCompleted_ = completed; }
  /// False on the first slice.
  bool continuation() const { return continuation_; }
  void continuationIs(bool continuation) { continuation_ = continuation; }
  bool falseStart() const { return falseStart_; }
  void falseStartIs(bool falseStart) { falseStart_ = falseStart; }
  /// Made for the request's form before the first slice, unless one has been set.
  Kiv::Ptr<prettyout::Printer> const& prettyoutPrinter() const { return prettyoutPrinter_; }
  void prettyoutPrinterIs(Kiv::Ptr<prettyout::Printer> const& printer);

  // State of the slicing.

  /// When the current slice, or the last one, began: what its time counts from.
  double startTime() const { return quantum_.start(); }
  void startTimeIs(double time) { quantum_.begin(time, maxRunTime_); }
  /// When the last slice ended.
  double endTime() const { return endTime_; }
  void endTimeIs(double time) { endTime_ = time; }
  /// What the last shouldYield() found.
  bool isTimeQuantaExpired() const { return isTimeQuantaExpired_; }
  void isTimeQuantaExpiredIs(bool expired) { isTimeQuantaExpired_ = expired; }
  bool isBufferFull() const { return isBufferFull_; }
  void isBufferFullIs(bool full) { isBufferFull_ = full; }
  /// Slices that returned with work left, for any reason; of them, those whose last call found the
  /// time used up, and those whose last call found the buffer full (a slice may count in both).
  U64 yieldCount() const { return yieldCount_; }
  void yieldCountIs(U64 count) { yieldCount_ = count; }
  U64 timeYieldCount() const { return timeYieldCount_; }
  void timeYieldCountIs(U64 count) { timeYieldCount_ = count; }
  U64 bufferYieldCount() const { return bufferYieldCount_; }
  void bufferYieldCountIs(U64 count) { bufferYieldCount_ = count; }
  /// How often the buffer was found full: by shouldYield(), and before a slice that was postponed.
  U64 bufferFullCount() const { return bufferFullCount_; }
  void bufferFullCountIs(U64 count) { bufferFullCount_ = count; }
  /// The wait after the next try that moves nothing.
  double retryDelay() const { return retryDelay_; }
  void retryDelayIs(double seconds) { retryDelay_ = seconds; }
  /// Whether the last try moved nothing, and since when that has been so.
  bool noProgress() const { return noProgress_; }
  void noProgressIs(bool noProgress) { noProgress_ = noProgress; }
  double noProgressStartTime() const { return noProgressStartTime_; }
  void noProgressStartTimeIs(double time) { noProgressStartTime_ = time; }

  Kiv::Type const& fwkType() const override;
  static Kiv::Type const& _kivType();

 protected:
  AgentAsyncCommandRequestSm(Kiv::String name, Kiv::Ptr<AgentCommandRequest const> const& request,
                             double maxRunTime, Kiv::Ptr<Kiv::Clock const> const& clock);
  ~AgentAsyncCommandRequestSm() override;

 private:
  SliceResult runDueSlice();
  SliceResult afterLastSlice(bool moved);
  /// The next slice has to wait; whether this one achieved anything.
  SliceResult putOff(bool progress);
  void madeProgress();
  /// Offers the output to the sink; whether it took any.
  bool drain();
  void createPrinter();

  Kiv::Ptr<Kiv::Clock const> clock_;
  double maxRunTime_;
  double originalRetryDelay_ = kDefaultRetryDelay;
  double noProgressAbortTimeout_ = kDefaultNoProgressAbortTimeout;
  U64 maxBufferSize_ = kDefaultMaxBufferSize;

  Kiv::Ptr<prettyout::Printer> prettyoutPrinter_;
  TimeQuantum quantum_;
  double endTime_ = 0;
  double nextSliceTime_ = 0;
  double retryDelay_ = kDefaultRetryDelay;
  double noProgressStartTime_ = 0;
  U64 yieldCount_ = 0;
  U64 timeYieldCount_ = 0;
  U64 bufferYieldCount_ = 0;
  U64 bufferFullCount_ = 0;
  U64 producedAtLastLook_ = 0;
  bool executionCompleted_ = false;
  bool continuation_ = false;
  bool falseStart_ = false;
  bool isTimeQuantaExpired_ = false;
  bool isBufferFull_ = false;
  bool noProgress_ = false;
  bool running_ = false;
  bool aborted_ = false;
  bool drained_ = false;  // completed, and the sink has taken everything
};

}  // namespace Agent
