#pragma once

#include <deque>
#include <exception>
#include <map>
#include <optional>

#include "framework/core/Types.h"

namespace BfnChip {

/// One way in which a write is made to fail.
struct Fault {
  enum class Kind : Kiv::U8 { TableFull, NoSysResources, Error, Exception };

  Kind kind = Kind::Error;
  /// What an Exception fault throws; none means a std::runtime_error that says it was injected.
  std::exception_ptr exception;
};

/// Which of the coming writes fail, and how. Erases and reads never fail.
///
/// Writes are counted from the last call of `clear`, over all tables of the chip and whatever
/// their outcome. A fault planned for a certain write goes before a run of faults, and does not
/// shorten it.
class FaultPlan {
 public:
  /// The next `count` writes fail; several runs follow one another.
  void failNext(Kiv::U64 count, Fault fault);
  /// The n-th write from now fails, 1 being the next one. A later plan for the same write replaces
  /// the earlier one; n of 0 plans nothing.
  void failNth(Kiv::U64 n, Fault fault);
  void clear();

  Kiv::U64 writes() const { return writes_; }
  bool empty() const { return nth_.empty() && runs_.empty(); }

  /// Counts a write and says how it fails, if it does.
  std::optional<Fault> onWrite() {
    ++writes_;
    if (empty()) [[likely]] {
      return std::nullopt;
    }
    return planned();
  }

 private:
  struct Run {
    Kiv::U64 left;
    Fault fault;
  };

  std::optional<Fault> planned();

  Kiv::U64 writes_ = 0;
  std::map<Kiv::U64, Fault> nth_;
  std::deque<Run> runs_;
};

/// Throws what an Exception fault stands for.
[[noreturn]] void throwFault(Fault const& fault);

}  // namespace BfnChip
