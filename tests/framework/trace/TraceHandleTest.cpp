// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/TraceHandle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/AllocationCount.h"

namespace {

using Kiv::TraceHandle;
using ::testing::AllOf;
using ::testing::HasSubstr;

TEST(TraceHandle, HasNoLevelOnAtFirst) {
  TraceHandle const handle("Quiet", false);
  EXPECT_EQ(handle.name(), "Quiet");
  for (unsigned level = 0; level < TraceHandle::kLevels; ++level) {
    EXPECT_FALSE(handle.enabled(level));
  }
}

TEST(TraceHandle, HasEveryLevelOnWhenAskedTo) {
  TraceHandle const handle("Loud", true);
  EXPECT_TRUE(handle.enabled(0));
  EXPECT_TRUE(handle.enabled(31));
}

TEST(TraceHandle, HasNoLevelThatDoesNotExist) {
  TraceHandle const loud("LoudOnly", true);
  EXPECT_FALSE(loud.enabled(32));
  EXPECT_FALSE(loud.enabled(33));
  EXPECT_FALSE(loud.enabled(~0U));
}

TEST(TraceHandle, SignsOnLaterWhenItWasMadeWithoutMemory) {
  size_t spared = 0;
  for (bool failed = true; failed; ++spared) {
    std::string const name = "AFacilityWithALongName" + std::to_string(spared);
    TraceHandle::levelsAre(name, 1U << 9);
    BfnTest::NoMemory noMemory(spared);
    TraceHandle handle(name.c_str(), false);
    failed = BfnTest::allocationFailed();
    noMemory.end();
    EXPECT_EQ(TraceHandle::find(name), failed ? nullptr : &handle);
    EXPECT_EQ(handle.enabled(9), !failed);
    handle.signOn();
    EXPECT_EQ(TraceHandle::find(name), &handle);
    EXPECT_TRUE(handle.enabled(9));
    EXPECT_EQ(handle.traceFile().facility(), name);
  }
  EXPECT_GT(spared, 3U);
}

TEST(TraceHandle, SwitchesOneLevel) {
  TraceHandle handle("One", false);
  handle.levelIs(9, true);
  handle.levelIs(4, true);
  EXPECT_TRUE(handle.enabled(9));
  EXPECT_FALSE(handle.enabled(8));
  handle.levelIs(9, false);
  EXPECT_FALSE(handle.enabled(9));
  EXPECT_EQ(handle.levels(), 1U << 4);
}

TEST(TraceHandle, SwitchesAllHandlesOfItsName) {
  TraceHandle first("Shared", false);
  TraceHandle const second("Shared", false);
  first.levelIs(9, true);
  EXPECT_TRUE(second.enabled(9));
  TraceHandle const third("Shared", false);
  EXPECT_TRUE(third.enabled(9));
  TraceHandle::levelsAre("Shared", 0);
  EXPECT_FALSE(first.enabled(9));
  EXPECT_FALSE(third.enabled(9));
}

TEST(TraceHandle, TakesLevelsThatWereSetBeforeItWasMade) {
  TraceHandle::levelsAre("Later", 1U << 4);
  TraceHandle const handle("Later", false);
  EXPECT_TRUE(handle.enabled(4));
  EXPECT_FALSE(handle.enabled(9));
}

TEST(TraceHandle, TakesTheDefaultLevelsUnlessItsNameHasItsOwn) {
  TraceHandle const before("Before", false);
  TraceHandle::levelsAre("Own", 0);
  TraceHandle::defaultLevelsIs(1U << 9);
  TraceHandle const after("After", false);
  TraceHandle const own("Own", false);
  TraceHandle::defaultLevelsIs(0);
  EXPECT_FALSE(before.enabled(9));
  EXPECT_TRUE(after.enabled(9));
  EXPECT_FALSE(own.enabled(9));
}

TEST(TraceHandle, IsFoundByNameWhileItLives) {
  EXPECT_EQ(TraceHandle::find("Brief"), nullptr);
  {
    TraceHandle const handle("Brief", false);
    EXPECT_EQ(TraceHandle::find("Brief"), &handle);
    std::vector<std::string> names;
    TraceHandle::forEach([&](TraceHandle& it) { names.emplace_back(it.name()); });
    EXPECT_THAT(names, ::testing::Contains("Brief"));
  }
  EXPECT_EQ(TraceHandle::find("Brief"), nullptr);
}

TEST(TraceHandleDeathTest, RefusesALevelThatDoesNotExist) {
  TraceHandle handle("Levels", false);
  EXPECT_DEATH(handle.levelIs(32, true), AllOf(HasSubstr("Failed(level < kLevels) trace level 32"),
                                               HasSubstr("\"level < kLevels\" == nullptr")));
}

}  // namespace
