// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>

#include "host/shell/Shell.h"

namespace BfnTest {

/// A shell on a host of its own, with the plug-in of this build.
class ShellFixture : public ::testing::Test {
 protected:
  explicit ShellFixture(Host::ShellOptions const& options = {}, bool reconcile = false);

  /// Runs the lines as one file called "case".
  Host::Shell::Status run(std::string const& lines);
  /// What the lines print, which have to pass.
  std::string printed(std::string const& lines);
  /// The agent brought up under a profile with 1,000 rows.
  void bringUp();

  std::ostringstream out;
  std::ostringstream err;
  Host::Switch host;
  Host::Shell shell;
};

}  // namespace BfnTest
