// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>

#include "framework/core/Types.h"

namespace Host {

/// A progress bar for work that takes long: shown only after some time. Erases itself at the end.
class Progress {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  /// `total`: the work in any unit; 0: not known, nothing is shown. `terminal`: null: nothing is
  /// shown; it must outlive the bar.
  Progress(Kiv::U64 total, std::ostream* terminal, Clock clock = std::chrono::steady_clock::now);
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;
  ~Progress();

  /// Standard error when it is a terminal, else null.
  static std::ostream* terminal();

  void add(Kiv::U64 work) {
    done_ += work;
    // The clock is read only now and then.
    if (total_ != 0 && (++calls_ & 0xff) == 0) show();
  }

 private:
  void show();

  Kiv::U64 const total_;
  std::ostream* const terminal_;
  Clock const clock_;
  Kiv::U64 done_ = 0;
  Kiv::U64 calls_ = 0;
  std::chrono::steady_clock::time_point shown_;
  bool visible_ = false;
};

}  // namespace Host
