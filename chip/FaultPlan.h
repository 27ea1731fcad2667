// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <exception>
#include <map>
#include <optional>

#include "framework/core/Types.h"

namespace BfnChip {

/// One way in which a call is made to fail. Erases and reads know no TableFull and NoSysResources;
/// to them, these are an Error.
struct Fault {
  enum class Kind : Kiv::U8 { TableFull, NoSysResources, Error, Exception };

  Kind kind = Kind::Error;
  /// What an Exception fault throws; none means a std::runtime_error that says it was injected.
  std::exception_ptr exception;
};

/// Which of the coming calls of one operation fail, and how.
///
/// Calls are counted from the last call of `clear`, over all tables of the chip and whatever their
/// outcome. A fault planned for a certain call takes precedence over a run of faults, and does not
/// shorten it.
class FaultPlan {
 public:
  /// The next `count` calls fail; several runs follow one another.
  void failNext(Kiv::U64 count, Fault fault);
  /// The n-th call from now fails, 1 being the next one. A later plan for the same call replaces
  /// the earlier one; n of 0 plans nothing.
  void failNth(Kiv::U64 n, Fault fault);
  void clear();

  Kiv::U64 calls() const { return calls_; }
  bool empty() const { return nth_.empty() && runs_.empty(); }

  /// Counts a call and says how it fails, if it does.
  std::optional<Fault> onCall() {
    if (passes()) [[likely]] {
      return std::nullopt;
    }
    return onPlannedCall();
  }
  /// The two halves of onCall(), for fast paths: counts a call; false when there is a plan, which
  /// onPlannedCall() then looks into.
  bool passes() {
    ++calls_;
    return empty();
  }
  std::optional<Fault> onPlannedCall();

 private:
  struct Run {
    Kiv::U64 left;
    Fault fault;
  };

  Kiv::U64 calls_ = 0;
  std::map<Kiv::U64, Fault> nth_;
  std::deque<Run> runs_;
};

/// Throws the exception of an Exception fault.
[[noreturn]] void throwFault(Fault const& fault);

}  // namespace BfnChip
