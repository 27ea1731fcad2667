// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/model/Event.h"
#include "tests/model/Runner.h"

// The tests of the comparison itself; the long runs are the program model_run.
namespace {

using namespace BfnTest;
using ::testing::HasSubstr;
using ::testing::Optional;

TEST(ModelComparison, FindsNoDifferenceInAFewRandomSequences) {
  Tally tally;
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    Options options;
    options.compareEvery = 1;
    auto const difference = runSequence(randomSequence(seed, 300), options, tally);
    ASSERT_FALSE(difference) << "seed " << seed << ": " << difference->what;
  }
  EXPECT_GT(tally.events, 2000u);
  EXPECT_GT(tally.chipCalls, 500u);
  EXPECT_GT(tally.thrown, 0u);
  EXPECT_GT(tally.logs, 0u);
}

TEST(ModelComparison, FindsAndShrinksThePlantedFaultOfTheModel) {
  Options options;
  options.plantedFault = true;
  std::vector<Event> events;
  for (std::uint64_t seed = 1; seed <= 50 && events.empty(); ++seed) {
    auto candidate = randomSequence(seed, 300);
    if (differsInChild(candidate, options)) events = std::move(candidate);
  }
  ASSERT_FALSE(events.empty());
  std::vector<Event> const small = shrink(events, options);
  // Bring-up, an address, and a status that is replaced: nothing else is needed.
  EXPECT_LE(small.size(), 7u) << toCode(small);
  EXPECT_TRUE(std::ranges::any_of(
      small, [](Event const& e) { return std::holds_alternative<event::Routing>(e); }));
  options.compareEvery = 1;
  EXPECT_THAT(differsInChild(small, options), Optional(HasSubstr("chip calls: plug-in")));
  options.plantedFault = false;
  EXPECT_EQ(differsInChild(small, options), std::nullopt);
}

TEST(ModelComparison, TriesOutPredictedDeaths) {
  // The same VRF under another id, an address that moves, a row that was never written.
  std::vector<Event> const events{
      event::Create{},
      event::Stage1{},
      event::Stage2{},
      event::Vrf{0, 1, 1},
      event::Vrf{0, 1, 2},
      event::Routing{0, 1, 0, 0, 1},
      event::Address{false, 1, 0, 1, false},
      event::Address{false, 1, 0, 2, false},
      event::Capacity{5},
      event::Address{false, 1, 1, 1, false},
      event::AddressDel{false, 1, 1},
      event::Line{0, 1, 1, 1},
  };
  Options options;
  options.compareEvery = 1;
  options.deathsToTry = 10;
  Tally tally;
  auto const difference = runSequence(events, options, tally);
  EXPECT_FALSE(difference) << difference->what;
  EXPECT_EQ(tally.deathsTried, 4u);
}

}  // namespace
