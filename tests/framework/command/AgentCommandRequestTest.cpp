// SPDX-License-Identifier: Apache-2.0
#include "framework/command/AgentCommandRequest.h"

#include <gtest/gtest.h>

#include "framework/core/Exceptions.h"
#include "tests/framework/command/ListCommandSm.h"

namespace {

using namespace Agent;

TEST(AgentCommandRequest, KnowsTextAndJsonOnly) {
  EXPECT_EQ(Kiv::make<AgentCommandRequest>(3u, 1u, nullptr)->format(), 1u);
  EXPECT_EQ(Kiv::make<AgentCommandRequest>(3u, 0u, nullptr)->socket(), 3u);
  EXPECT_THROW((void)Kiv::make<AgentCommandRequest>(3u, 2u, nullptr), Kiv::RangeException);
}

TEST(AgentCommandRequest, WithoutASinkTheOutputIsDiscarded) {
  auto const request = Kiv::make<AgentCommandRequest const>(3u, 0u, nullptr);
  auto const command = Kiv::make<BfnTest::ListCommandSm>("list", request, 1.0, nullptr, 100000u);
  while (command->runSlice() != SliceResult::Completed) {
  }
  EXPECT_EQ(command->prettyoutPrinter()->buffer().taken(), 900000u);
}

}  // namespace
