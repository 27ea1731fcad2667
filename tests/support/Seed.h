// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <string>

#include "framework/core/Types.h"

namespace BfnTest {

/// The seed of a randomised test: the number in BFN_TEST_SEED, else `otherwise`. A test prints the
/// seed with each failure, so that the run can be repeated.
inline Kiv::U32 testSeed(Kiv::U32 otherwise = 1) {
  char const* const given = std::getenv("BFN_TEST_SEED");
  return given == nullptr ? otherwise : static_cast<Kiv::U32>(std::stoul(given));
}

}  // namespace BfnTest
