// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/resource.h>

// Where stores of tests are, and how they run out of room.
namespace BfnTest {

/// A directory that goes with the object.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "storeXXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) std::abort();
    path_ = name;
  }
  TemporaryDirectory(TemporaryDirectory const&) = delete;
  TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string file(std::string const& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

/// While it lives this process can write no byte to a file.
class NoRoom {
 public:
  NoRoom() : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    rlimit const none{0, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &none);
  }
  NoRoom(NoRoom const&) = delete;
  NoRoom& operator=(NoRoom const&) = delete;
  ~NoRoom() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, signal_);
  }

 private:
  void (*signal_)(int);
  rlimit before_{};
};

}  // namespace BfnTest
