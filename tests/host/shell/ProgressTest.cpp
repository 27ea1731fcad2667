// SPDX-License-Identifier: Apache-2.0
#include "host/shell/Progress.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace {

using std::chrono::milliseconds;

class ProgressTest : public ::testing::Test {
 protected:
  // As much work as makes the bar look at the clock.
  static constexpr int kCalls = 256;
  static void work(Host::Progress& progress) {
    for (int i = 0; i < kCalls; ++i) progress.add(1);
  }

  Host::Progress::Clock clock() {
    return [this] { return now; };
  }

  std::ostringstream terminal;
  std::chrono::steady_clock::time_point now;
};

TEST_F(ProgressTest, AppearsAfterAQuarterOfASecondAndAdvancesByQuarters) {
  Host::Progress progress(4 * kCalls, &terminal, clock());
  work(progress);
  EXPECT_EQ(terminal.str(), "");
  now += milliseconds(250);
  work(progress);
  std::string const half = "\r[####################                    ]  50 %";
  EXPECT_EQ(terminal.str(), half);
  now += milliseconds(249);
  work(progress);
  EXPECT_EQ(terminal.str(), half);
  now += milliseconds(1);
  work(progress);
  EXPECT_EQ(terminal.str(), half + "\r[########################################] 100 %");
}

TEST_F(ProgressTest, WipesItselfOutAtTheEndWhenItHasAppeared) {
  {
    Host::Progress progress(4 * kCalls, &terminal, clock());
    work(progress);
  }
  EXPECT_EQ(terminal.str(), "");
  {
    Host::Progress progress(4 * kCalls, &terminal, clock());
    now += milliseconds(250);
    work(progress);
    terminal.str({});
  }
  EXPECT_EQ(terminal.str(), "\r\x1b[K");
}

TEST_F(ProgressTest, StaysAtAHundredPercentWhenThereIsMoreWorkThanWasSaid) {
  Host::Progress progress(1, &terminal, clock());
  now += milliseconds(250);
  work(progress);
  EXPECT_EQ(terminal.str(), "\r[########################################] 100 %");
}

TEST_F(ProgressTest, ShowsNothingWithoutATerminalOrATotal) {
  Host::Progress without(4 * kCalls, nullptr, clock());
  Host::Progress unknown(0, &terminal, clock());
  now += milliseconds(250);
  work(without);
  work(unknown);
  EXPECT_EQ(terminal.str(), "");
}

}  // namespace
