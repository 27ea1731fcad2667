// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "framework/core/AddressSanitizer.h"
#include "tests/support/Seed.h"

namespace BfnTest {

/// What the environment asks of the sweeps, in BFN_FAULTS.
inline bool faultsAsked(std::string_view what) {
  char const* const asked = std::getenv("BFN_FAULTS");
  return asked != nullptr && asked == what;
}
/// Every case, instead of a share of them.
inline bool longRun() {
  return faultsAsked("long");
}
/// Whether a short run takes a case, by the case's number. A process whose every access is checked
/// takes tens of milliseconds to fork, so that it takes each sixteenth one, beginning at the seed.
inline bool takesCase(size_t number) {
#ifdef KIV_ADDRESS_SANITIZER
  constexpr size_t kStep = 16;
#else
  constexpr size_t kStep = 1;
#endif
  return (number + testSeed()) % kStep == 0;
}
/// Outcomes are written down instead of compared.
inline bool writesOutcomes() {
  return faultsAsked("write");
}

}  // namespace BfnTest
