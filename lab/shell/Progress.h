#pragma once

#include <chrono>

#include "framework/core/Types.h"

namespace Lab {

/// A progress bar on standard error for work that takes long: nothing unless that is a terminal,
/// the size is known and some time has passed. Wipes itself out at the end.
class Progress {
 public:
  /// `total`: the work in any unit; 0: not known.
  explicit Progress(Kiv::U64 total);
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;
  ~Progress();

  void add(Kiv::U64 work) {
    done_ += work;
    if (total_ != 0 && (++calls_ & 0xff) == 0) show();
  }

 private:
  void show();

  Kiv::U64 total_;
  Kiv::U64 done_ = 0;
  Kiv::U64 calls_ = 0;
  std::chrono::steady_clock::time_point shown_;
  bool visible_ = false;
};

}  // namespace Lab
