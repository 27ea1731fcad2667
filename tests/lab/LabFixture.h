#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>

#include "lab/shell/Shell.h"

namespace LabTest {

/// A shell on a host of its own, with the plug-in of this build.
class LabFixture : public ::testing::Test {
 protected:
  explicit LabFixture(Lab::ShellOptions const& options = {});

  /// Runs the lines as one file called "case".
  Lab::Shell::Status run(std::string const& lines);
  /// What the lines print, which have to pass.
  std::string printed(std::string const& lines);
  /// The agent brought up under a profile with 1,000 rows.
  void bringUp();

  std::ostringstream out;
  std::ostringstream err;
  Lab::LabHost host;
  Lab::Shell shell;
};

}  // namespace LabTest
