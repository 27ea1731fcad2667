// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>

namespace BfnKernel {

/// The kernel refuses, or what it holds is not what was expected. The text is one line.
class KernelError : public std::runtime_error {
 public:
  explicit KernelError(std::string const& what, int error = 0)
      : std::runtime_error(what), error_(error) {}

  /// The errno that the kernel gave, 0 when it gave none.
  int error() const { return error_; }

 private:
  int error_;
};

/// This machine or process lacks what the kernel's table needs: a right or a feature, which the
/// text names. Programs end with kUnavailableStatus.
class Unavailable final : public KernelError {
 public:
  using KernelError::KernelError;
};

inline constexpr int kUnavailableStatus = 3;

/// Throws KernelError "<what>: <text of the error>".
[[noreturn]] void fail(std::string const& what, int error = errno);

}  // namespace BfnKernel
