#pragma once

#include <cstdlib>
#include <string_view>

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
/// Outcomes are written down instead of compared.
inline bool writesOutcomes() {
  return faultsAsked("write");
}

}  // namespace BfnTest
