// SPDX-License-Identifier: Apache-2.0
#include "agent/BfnMacRewriteL3Shared.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Watcher.h"

namespace {

using BfnMacRewrite::BfnL3Input;
using BfnMacRewrite::BfnL3Output;
using BfnMacRewrite::BfnMacRewriteL3Shared;
using BfnTest::Watcher;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(BfnMacRewriteL3Shared, IsBornInitializedWithBothHalvesInPlace) {
  auto const shared = Kiv::makeActive<BfnMacRewriteL3Shared>();
  EXPECT_TRUE(shared->initialized());
  EXPECT_FALSE(shared->l3Status());
  EXPECT_FALSE(shared->l3PortAndLagRoutingStatus());
  EXPECT_FALSE(shared->l3SubIntfRoutingStatus());
  EXPECT_FALSE(shared->vlanIntfRoutingStatus());
  ASSERT_TRUE(shared->bfnL3Input());
  EXPECT_FALSE(shared->bfnL3Input()->macRewriteEnabled());
  EXPECT_TRUE(shared->bfnL3Input()->hasNotificationActive());
  ASSERT_TRUE(shared->bfnL3Output());
  EXPECT_TRUE(shared->bfnL3Output()->hasNotificationActive());
  EXPECT_FALSE(shared->bfnL3Output()->initMacRewriteTables());
  EXPECT_FALSE(shared->bfnL3Output()->startMacRewriteSm());
  EXPECT_EQ(shared->bfnL3Output()->profileName(), "");
  EXPECT_FALSE(shared->bfnL3Output()->profileEntry());
}

TEST(BfnMacRewriteL3Shared, EachAttributeNotifiesItsIdOnARealChangeOnly) {
  auto const shared = Kiv::makeActive<BfnMacRewriteL3Shared>();
  auto const watcher = Kiv::makeActive<Watcher>(shared);
  auto const l3Status = Kiv::makeActive<Pex::L3Status>();
  auto const routing = Kiv::makeActive<BfnL3::L3RoutingStatus>();
  for (int twice = 0; twice < 2; ++twice) {
    shared->l3StatusIs(l3Status);
    shared->l3PortAndLagRoutingStatusIs(routing);
    shared->l3SubIntfRoutingStatusIs(routing);
    shared->vlanIntfRoutingStatusIs(routing);
    shared->bfnL3InputIs();
    shared->bfnL3OutputIs();
    shared->initializedIs(true);
  }
  EXPECT_THAT(watcher->changes, ElementsAre(130, 131, 132, 133));
  shared->l3StatusIs(Kiv::makeActive<Pex::L3Status>());
  shared->initializedIs(false);
  EXPECT_THAT(watcher->changes, ElementsAre(130, 131, 132, 133, 130, 136));
}

TEST(BfnMacRewriteL3Shared, TheHalvesAreMadeAndReleasedWithANotificationEach) {
  auto const shared = Kiv::makeActive<BfnMacRewriteL3Shared>();
  auto const watcher = Kiv::makeActive<Watcher>(shared);
  auto const oldInput = shared->bfnL3Input();
  EXPECT_EQ(shared->bfnL3InputIs(), oldInput);
  shared->bfnL3InputDel();
  shared->bfnL3OutputDel();
  shared->bfnL3OutputDel();
  EXPECT_FALSE(shared->bfnL3Input());
  EXPECT_FALSE(shared->bfnL3Output());
  EXPECT_THAT(watcher->changes, ElementsAre(134, 135));
  auto const newInput = shared->bfnL3InputIs();
  EXPECT_NE(newInput, oldInput);
  EXPECT_TRUE(newInput->hasNotificationActive());
  EXPECT_EQ(shared->bfnL3Input(), newInput);
  EXPECT_EQ(shared->bfnL3OutputIs(), shared->bfnL3Output());
  EXPECT_THAT(watcher->changes, ElementsAre(134, 135, 134, 135));
}

TEST(BfnMacRewriteL3Shared, ItsHalvesOutliveItInOtherHands) {
  auto shared = Kiv::makeActive<BfnMacRewriteL3Shared>();
  auto const output = shared->bfnL3Output();
  shared.reset();
  output->startMacRewriteSmIs(true);
  EXPECT_EQ(output->kivRefCount(), 1u);
}

TEST(BfnL3Output, EachAttributeNotifiesItsIdOnARealChangeOnly) {
  auto const output = Kiv::makeActive<BfnL3Output>();
  auto const watcher = Kiv::makeActive<Watcher>(output);
  auto const entry = Kiv::makeActive<BfnAgentLib::BfnProfileDataEntry>("p");
  output->profileNameIs("");
  output->profileEntryIs(nullptr);
  output->initMacRewriteTablesIs(false);
  output->startMacRewriteSmIs(false);
  EXPECT_THAT(watcher->changes, IsEmpty());
  for (int twice = 0; twice < 2; ++twice) {
    output->profileNameIs(Kiv::String(std::string("a long profile name, not shared")));
    output->profileEntryIs(entry);
    output->initMacRewriteTablesIs(true);
    output->startMacRewriteSmIs(true);
  }
  EXPECT_THAT(watcher->changes, ElementsAre(130, 131, 132, 133));
  output->profileEntryIs(Kiv::makeActive<BfnAgentLib::BfnProfileDataEntry>("p"));
  output->startMacRewriteSmIs(false);
  EXPECT_THAT(watcher->changes, ElementsAre(130, 131, 132, 133, 131, 133));
}

TEST(BfnL3Input, TheFlagNotifiesOnARealChangeOnly) {
  auto const input = Kiv::makeActive<BfnL3Input>();
  auto const watcher = Kiv::makeActive<Watcher>(input);
  input->macRewriteEnabledIs(false);
  input->macRewriteEnabledIs(true);
  input->macRewriteEnabledIs(true);
  EXPECT_TRUE(input->macRewriteEnabled());
  EXPECT_THAT(watcher->changes, ElementsAre(130));
}

}  // namespace
