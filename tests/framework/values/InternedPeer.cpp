// SPDX-License-Identifier: Apache-2.0
#include "tests/framework/values/InternedPeer.h"

namespace BfnTest {

Ovra::IntfId intfId(char const* text) {
  return Ovra::IntfId(text);
}

std::string textOf(Ovra::IntfId id) {
  return id.stdString();
}

}  // namespace BfnTest
