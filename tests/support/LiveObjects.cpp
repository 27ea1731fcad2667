// SPDX-License-Identifier: Apache-2.0
// Linked into every suite: a test begins and ends with no live framework object.
#include <gtest/gtest.h>
#include <sstream>
#include <string>

#include "framework/core/AllocTrack.h"

namespace {

std::string liveTypes() {
  std::ostringstream text;
  for (Kiv::AllocTrackTypeInfo const& type : Kiv::AllocTrackTypeInfo::snapshot()) {
    if (type.live() != 0) text << "\n  " << type.live() << " of " << type.typeName;
  }
  return text.str();
}

class LiveObjects : public ::testing::EmptyTestEventListener {
  void OnTestStart(::testing::TestInfo const&) override {
    EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), 0u) << "live before the test:" << liveTypes();
  }
  void OnTestEnd(::testing::TestInfo const&) override {
    EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), 0u) << "live after the test:" << liveTypes();
  }
};

// The listeners own it.
[[maybe_unused]] bool const listening = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new LiveObjects);
  return true;
}();

}  // namespace
