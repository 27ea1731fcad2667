// SPDX-License-Identifier: Apache-2.0
#include "tablemgr/MatchSpecAndRefCount.h"

#include "framework/generic/Describe.h"

namespace BfnMacRewrite {

Kiv::Type const& MatchSpecAndRefCount::_kivType() {
  using T = MatchSpecAndRefCount;
  static Kiv::Type const type("BfnMacRewrite::MatchSpecAndRefCount", &Kiv::Entity::_kivType(),
                              {Kiv::describeConstant<&T::ipAndIntfId>("ipAndIntfId", 258),
                               Kiv::describeConstant<&T::overlaySrcMacRewriteMatchSpec>(
                                   "overlaySrcMacRewriteMatchSpec", 259),
                               Kiv::describeConstant<&T::refCount>("refCount", 260)});
  return type;
}

}  // namespace BfnMacRewrite
