// SPDX-License-Identifier: Apache-2.0
#include "tablemgr/MatchSpecAndRefCount.h"

#include <gtest/gtest.h>

namespace {

using BfnMacRewrite::MatchSpecAndRefCount;

TEST(MatchSpecAndRefCount, CountsModulo65536) {
  auto const record = Kiv::make<MatchSpecAndRefCount>(BfnMacRewrite::Agent::IpAndIntfId{});
  EXPECT_EQ(record->refCountDec(1), 65535);
  EXPECT_EQ(record->refCountInc(1), 0);
  EXPECT_EQ(record->refCountInc(65535), 65535);
  EXPECT_EQ(record->refCountInc(3), 2);
  EXPECT_EQ(record->refCountDec(5), 65533);
  record->refCountIs(7);
  EXPECT_EQ(record->refCount(), 7);
}

TEST(MatchSpecAndRefCount, TheMatchSpecItHoldsAlreadyIsNotCountedTwice) {
  auto const record = Kiv::make<MatchSpecAndRefCount>(BfnMacRewrite::Agent::IpAndIntfId{});
  auto const spec = Kiv::makeActive<MatchSpecAndRefCount::MatchSpec>();
  record->overlaySrcMacRewriteMatchSpecIs(spec);
  Kiv::U32 const count = spec->kivRefCount();
  record->overlaySrcMacRewriteMatchSpecIs(spec);
  EXPECT_EQ(record->overlaySrcMacRewriteMatchSpec(), spec);
  EXPECT_EQ(spec->kivRefCount(), count);
}

}  // namespace
