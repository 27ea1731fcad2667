// SPDX-License-Identifier: Apache-2.0
#include "kernel/PinDirectory.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

#include "kernel/KernelError.h"

namespace BfnKernel {

namespace {

namespace fs = std::filesystem;

bool onBpfFileSystem(fs::path const& path) {
  struct statfs status {};
  if (statfs(path.c_str(), &status) != 0) fail(path.string());
  return static_cast<unsigned long>(status.f_type) == BPF_FS_MAGIC;
}

FileDescriptor locked(fs::path const& path) {
  FileDescriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) fail(path.string());
  if (flock(directory.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) {
      throw KernelError(path.string() + " is in use by another process", errno);
    }
    fail(path.string());
  }
  return directory;
}

void mountBpf(fs::path const& path) {
  if (mount("bpf", path.c_str(), "bpf", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=0700") == 0) return;
  std::string const text = path.string() + " is on no bpf file system";
  if (errno == EPERM) {
    throw Unavailable(text + ", and the right CAP_SYS_ADMIN to mount one is missing", errno);
  }
  if (errno == ENODEV) throw Unavailable(text + ", and the kernel has none", errno);
  fail(text + ", and none can be mounted");
}

}  // namespace

PinDirectory::PinDirectory(fs::path directory) : path_(std::move(directory)) {
  std::error_code error;
  fs::create_directories(path_, error);
  if (error) fail(path_.string(), error.value());
  if (!onBpfFileSystem(path_)) {
    // Held while mounting, so that two processes do not mount two.
    FileDescriptor const below = locked(path_);
    if (!onBpfFileSystem(path_)) {
      mountBpf(path_);
      mounted_ = true;
    }
  }
  lock_ = locked(path_);
}

void PinDirectory::remove(bool unmount) {
  lock_ = FileDescriptor();
  if (unmount) umount2(path_.c_str(), UMOUNT_NOFOLLOW);
  rmdir(path_.c_str());
}

}  // namespace BfnKernel
