// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Clock.h"

#include <chrono>

namespace Kiv {

Clock::~Clock() = default;

double SteadyClock::now() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace Kiv
