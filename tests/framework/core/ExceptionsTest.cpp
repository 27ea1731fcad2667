// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Exceptions.h"

#include <gtest/gtest.h>

namespace {

template <class E, class F>
std::string thrownBy(F const& f) {
  try {
    f();
  } catch (E const& exception) {
    return exception.what();
  }
  return "nothing was thrown";
}

TEST(RangeException, CarriesExactlyTheMessage) {
  EXPECT_EQ(thrownBy<Kiv::RangeException>(
                [] { Kiv::throwRangeException("VlanId::value < 1 or > 4094 not allowed"); }),
            "VlanId::value < 1 or > 4094 not allowed");
}

TEST(RangeException, ReraisedFromAFieldNamesIt) {
  EXPECT_EQ(thrownBy<Kiv::RangeException>(
                [] { Kiv::rethrowFromDeserializeAttr(Kiv::RangeException("no"), "intfId"); }),
            "intfId: no");
}

TEST(NullPointerException, NamesTypeAndAttribute) {
  EXPECT_EQ(thrownBy<Kiv::NullPointerException>(
                [] { Kiv::throwMutatorArgNullPointerException("Some::Type", 131); }),
            "Some::Type: attribute 131 must not be null");
}

}  // namespace
