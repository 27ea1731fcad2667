// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "framework/core/AllocTrack.h"
#include "tests/support/PluginHost.h"
#include "tests/support/TraceCapture.h"

namespace BfnTest {

/// A test with a host of its own. Ends with no framework object alive that was not there before.
class PluginTest : public ::testing::Test {
 protected:
  Kiv::U64 liveBefore = Kiv::AllocTrackTypeInfo::liveObjects();
  std::unique_ptr<PluginHost> owned = std::make_unique<PluginHost>();
  PluginHost& host = *owned;

  void TearDown() override {
    owned.reset();
    EXPECT_EQ(Kiv::AllocTrackTypeInfo::liveObjects(), liveBefore);
  }

  /// The traces since the last call, each as "<function>: <message>" without parameter types.
  static std::vector<std::string> traces() {
    std::vector<std::string> texts;
    for (Ringlog::Record const& record : TraceCapture::records()) {
      std::string const& text = record.text;
      size_t const open = text.find('(');
      size_t const name = text.rfind(' ', open) + 1;
      size_t const close = text.find("): ", open);
      texts.push_back(text.substr(name, open - name).erase(0, text.substr(name).find("::") + 2) +
                      text.substr(close + 1));
    }
    TraceCapture::clear();
    return texts;
  }
};

}  // namespace BfnTest
