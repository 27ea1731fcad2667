// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "kernel/BpfMap.h"
#include "kernel/Counters.h"
#include "kernel/FileDescriptor.h"
#include "kernel/PinDirectory.h"

namespace BfnKernel {

struct KernelOptions {
  static constexpr size_t kDefaultRows = 65'536;

  /// Where maps and program are pinned: a directory of a bpf file system, or one on which a bpf
  /// file system can be mounted. Mind that `ip netns exec` mounts /sys again, so that what is below
  /// /sys/fs/bpf is not seen there.
  std::filesystem::path directory;
  /// The rows of a table that is made. One that is there keeps its own number.
  size_t rows = kDefaultRows;
};

/// The program that looks frames up and its maps, pinned in a directory.
///
/// Opens what is pinned there, and makes what is not. All of it outlives the object and the
/// process: frames are looked up whether or not there is a process, and the next one opens the same
/// rows, program, counters and devices. An older layout is migrated, and a program of an older
/// build replaced; on each device the new filter takes the old one's place in one step. A directory
/// belongs to one process at a time and to one network namespace, that of the calling thread.
class KernelProgram {
 public:
  /// Throws Unavailable when the machine lacks what is needed, KernelError when the directory is in
  /// use, holds a newer layout, or the kernel refuses.
  explicit KernelProgram(KernelOptions const& options);
  KernelProgram(KernelProgram const&) = delete;
  KernelProgram& operator=(KernelProgram const&) = delete;
  ~KernelProgram();

  /// False for a new table of 0 rows, which needs neither maps nor program: nothing below is there
  /// then.
  bool exists() const { return static_cast<bool>(program_); }
  std::filesystem::path const& directory() const { return directory_.path(); }
  /// The differences from what was requested; lines for people to read.
  std::vector<std::string> const& notices() const { return notices_; }

  /// Rows by the chip's key; hits by the same key, one number for each CPU.
  BpfMap const& rows() const { return map(kRows); }
  BpfMap const& hits() const { return map(kHits); }
  /// mac_rewrite_device by the index of the device.
  BpfMap const& devices() const { return map(kDevices); }
  /// VLAN by VNI.
  BpfMap const& vnis() const { return map(kVnis); }
  /// What counters() reads.
  BpfMap const& counterMap() const { return map(kCounters); }
  int fd() const { return program_.get(); }
  /// The kernel's number of the program.
  Kiv::U32 id() const;

  /// The verdicts on the frames since the table was made or the counters were last cleared.
  FrameCounters counters() const;
  void countersClear();

  /// Removes maps and program from the directory, and the directory. Devices must have been
  /// detached; one that is not keeps program and maps alive. The object can do nothing after it.
  void remove();

 private:
  enum MapName : size_t { kRows, kHits, kDevices, kVnis, kCounters, kMaps };
  static constexpr std::array<char const*, kMaps> kMapNames{"rows", "hits", "devices", "vnis",
                                                            "counters"};
  struct Skeleton;

  BpfMap const& map(MapName name) const { return maps_[name]; }
  std::string newPin(char const* name) const;
  mac_rewrite_layout pinnedLayout() const;
  void load(Kiv::U32 layout, size_t rows);
  void convertDevices();
  void pinNew();
  void install();
  void finishInterrupted();
  void replaceFilters();
  void movePin(char const* name);

  PinDirectory directory_;
  std::array<BpfMap, kMaps> maps_;
  FileDescriptor program_;
  bool mounted_ = false;
  std::vector<std::string> notices_;
};

}  // namespace BfnKernel
