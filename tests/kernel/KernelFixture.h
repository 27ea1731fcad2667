// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "framework/core/Types.h"
#include "kernel/KernelProgram.h"
#include "tests/kernel/Sandbox.h"

namespace BfnTest {

/// A test in namespaces of its own, skipped where it cannot run.
class KernelFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    if (whyNot()) GTEST_SKIP() << *whyNot();
    scratch_ = enterSandbox();
  }

  /// Where programs are pinned; a bpf file system is mounted there by the first one.
  std::filesystem::path directory() const { return scratch_ / "bpf"; }
  BfnKernel::KernelOptions options(size_t rows = 100) const { return {directory(), rows}; }

 private:
  std::filesystem::path scratch_;
};

/// What the program made of a frame.
struct Ran {
  std::vector<Kiv::U8> frame;
  int result = 0;
};

/// Gives the frame to the program as one that leaves by the loopback device, or by `device`;
/// nothing when the kernel does not take it for a test.
std::optional<Ran> run(int program, std::span<Kiv::U8 const> frame, int device = 1);

}  // namespace BfnTest
