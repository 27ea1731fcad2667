// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include "kernel/FileDescriptor.h"

namespace BfnKernel {

/// A directory of a bpf file system, held by one process at a time.
///
/// It is made when it is missing. When it is on no bpf file system, one is mounted on it, which
/// takes CAP_SYS_ADMIN. The hold ends with the object or the process; what is pinned stays.
class PinDirectory {
 public:
  /// Throws Unavailable when there is no bpf file system to be had, KernelError when another
  /// process holds the directory or it cannot be made.
  explicit PinDirectory(std::filesystem::path directory);

  std::filesystem::path const& path() const { return path_; }
  std::string of(std::string const& name) const { return (path_ / name).string(); }
  /// Whether the file system was mounted by this object.
  bool mounted() const { return mounted_; }

  /// Removes the directory, which must be empty, and the file system that is mounted on it when
  /// `unmount` says so. What cannot be removed stays.
  void remove(bool unmount);

 private:
  std::filesystem::path path_;
  FileDescriptor lock_;
  bool mounted_ = false;
};

}  // namespace BfnKernel
