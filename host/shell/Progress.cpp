// SPDX-License-Identifier: Apache-2.0
#include "host/shell/Progress.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <string>
#include <unistd.h>
#include <utility>

namespace Host {

namespace {
constexpr int kWidth = 40;
constexpr std::chrono::milliseconds kInterval{250};
}  // namespace

Progress::Progress(Kiv::U64 total, std::ostream* terminal, Clock clock)
    : total_(terminal == nullptr ? 0 : total),
      terminal_(terminal),
      clock_(std::move(clock)),
      shown_(clock_()) {}

Progress::~Progress() {
  // Back to the start of the line, and clear it.
  if (visible_) *terminal_ << "\r\x1b[K" << std::flush;
}

std::ostream* Progress::terminal() {
  return ::isatty(STDERR_FILENO) == 1 ? &std::cerr : nullptr;
}

void Progress::show() {
  auto const now = clock_();
  if (now - shown_ < kInterval) return;
  shown_ = now;
  visible_ = true;
  auto const percent = static_cast<int>(std::min(done_, total_) * 100 / total_);
  std::string bar(static_cast<size_t>(percent * kWidth / 100), '#');
  bar.resize(kWidth, ' ');
  *terminal_ << "\r[" << bar << "] " << std::setw(3) << percent << " %" << std::flush;
}

}  // namespace Host
