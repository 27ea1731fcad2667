#include "lab/shell/Progress.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace Lab {

namespace {
constexpr unsigned kWidth = 40;
constexpr std::chrono::milliseconds kInterval{250};
}  // namespace

Progress::Progress(Kiv::U64 total)
    : total_(::isatty(STDERR_FILENO) == 1 ? total : 0), shown_(std::chrono::steady_clock::now()) {}

Progress::~Progress() {
  if (visible_) std::fputs("\r\x1b[K", stderr);
}

void Progress::show() {
  auto const now = std::chrono::steady_clock::now();
  if (now - shown_ < kInterval) return;
  shown_ = now;
  visible_ = true;
  auto const part = static_cast<unsigned>(std::min(done_, total_) * 100 / total_);
  std::string const bar(part * kWidth / 100, '#');
  std::fprintf(stderr, "\r[%-*s] %3u %%", static_cast<int>(kWidth), bar.c_str(), part);
}

}  // namespace Lab
