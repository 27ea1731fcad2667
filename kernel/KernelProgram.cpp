// SPDX-License-Identifier: Apache-2.0
#include "kernel/KernelProgram.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mac_rewrite.skel.h>
#include <memory>
#include <net/if.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kernel/KernelError.h"
#include "kernel/Rights.h"
#include "kernel/TcFilter.h"

namespace BfnKernel {

using Kiv::U32;
using Kiv::U64;

namespace {

constexpr char kProgram[] = "program";
constexpr char kLayout[] = "layout";
// Where what shall take the place of the present maps is pinned; complete when it has a layout.
constexpr char kNew[] = "new";
// Layout 1 had this in place of `devices`.
constexpr char kDeviceVlan[] = "device_vlan";
// The key of a map of one entry.
constexpr U32 kOnly = 0;

std::filesystem::path checked(KernelOptions const& options) {
  if (auto const missing = whatIsMissing()) throw Unavailable(*missing);
  return options.directory;
}

/// What libbpf said last; it says on standard error otherwise.
std::string& libraryText() {
  static std::string text;
  return text;
}

__attribute__((format(printf, 2, 0))) int keepText(libbpf_print_level level, char const* format,
                                                   va_list arguments) {
  if (level != LIBBPF_WARN) return 0;
  std::array<char, 256> line{};
  std::vsnprintf(line.data(), line.size(), format, arguments);
  libraryText() = line.data();
  while (!libraryText().empty() && libraryText().back() == '\n') libraryText().pop_back();
  return 0;
}

FileDescriptor copyOf(int fd) {
  int const copy = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) fail("a file descriptor");
  return FileDescriptor(copy);
}

FileDescriptor pinnedProgram(std::string const& path) {
  int const fd = bpf_obj_get(path.c_str());
  if (fd < 0 && fd != -ENOENT) fail(path, -fd);
  return FileDescriptor(fd < 0 ? -1 : fd);
}

bpf_prog_info infoOf(int program) {
  bpf_prog_info info{};
  U32 length = sizeof info;
  if (int const result = bpf_obj_get_info_by_fd(program, &info, &length); result < 0) {
    fail("what is pinned is no program", -result);
  }
  return info;
}

bool sameInstructions(int program, int other) {
  return std::memcmp(infoOf(program).tag, infoOf(other).tag, BPF_TAG_SIZE) == 0;
}

void pin(int fd, std::string const& path) {
  if (int const result = bpf_obj_pin(fd, path.c_str()); result < 0) fail(path, -result);
}

void removePin(std::string const& path) {
  if (unlink(path.c_str()) != 0 && errno != ENOENT) fail(path);
}

[[noreturn]] void failToLoad(int error) {
  std::string const why = libraryText().empty() ? "" : " (" + libraryText() + ")";
  if (error == EPERM) {
    throw Unavailable(
        "the kernel refuses the program: the rights CAP_BPF and CAP_NET_ADMIN of the first user "
        "namespace are missing" +
            why,
        error);
  }
  fail("the kernel refuses the program" + why, error);
}

bool sameShape(BpfMap::Shape const& a, bpf_map const* b) {
  return a.type == static_cast<U32>(bpf_map__type(b)) && a.keyBytes == bpf_map__key_size(b) &&
         a.valueBytes == bpf_map__value_size(b);
}

}  // namespace

// The maps and the program as they were compiled, in the order of MapName.
struct KernelProgram::Skeleton {
  struct Destroy {
    void operator()(mac_rewrite* made) const { mac_rewrite__destroy(made); }
  };

  Skeleton() : skeleton(mac_rewrite__open()) {
    if (!skeleton) failToLoad(errno);
  }
  std::array<bpf_map*, kMaps> maps() const {
    return {skeleton->maps.rows, skeleton->maps.hits, skeleton->maps.devices, skeleton->maps.vnis,
            skeleton->maps.counters};
  }

  std::unique_ptr<mac_rewrite, Destroy> skeleton;
};

KernelProgram::KernelProgram(KernelOptions const& options) : directory_(checked(options)) {
  libbpf_set_print(keepText);
  if (std::filesystem::exists(directory_.of(kNew))) finishInterrupted();
  mac_rewrite_layout const layout = pinnedLayout();
  if (layout.version > MAC_REWRITE_LAYOUT) {
    throw KernelError(directory().string() + " has layout " + std::to_string(layout.version) +
                      ", of a newer build; this one knows layouts up to " +
                      std::to_string(MAC_REWRITE_LAYOUT));
  }
  mounted_ = layout.mounted != 0 || directory_.mounted();
  if (layout.version == 0 && options.rows == 0) return;
  load(layout.version, options.rows);
  if (size_t const rows = this->rows().shape().entries; rows != options.rows) {
    notices_.push_back("the table in " + directory().string() + " has " + std::to_string(rows) +
                       " rows; " + std::to_string(options.rows) + " were asked for");
  }
  FileDescriptor pinned = pinnedProgram(directory_.of(kProgram));
  if (layout.version == MAC_REWRITE_LAYOUT && pinned && sameInstructions(pinned.get(), fd())) {
    program_ = std::move(pinned);
    return;
  }
  if (layout.version == MAC_REWRITE_LAYOUT) {
    notices_.push_back("the program in " + directory().string() + " was replaced");
  } else if (layout.version != 0) {
    notices_.push_back("layout " + std::to_string(layout.version) + " in " + directory().string() +
                       " was migrated to layout " + std::to_string(MAC_REWRITE_LAYOUT));
  }
  pinNew();
  install();
}

KernelProgram::~KernelProgram() = default;

// Version 0 when nothing is pinned; layout 1 had no stamp.
mac_rewrite_layout KernelProgram::pinnedLayout() const {
  mac_rewrite_layout layout{};
  auto const stamp = BpfMap::pinned(directory_.of(kLayout));
  if (!stamp) {
    layout.version = BpfMap::pinned(directory_.of(kMapNames[kRows])) ? 1 : 0;
    return layout;
  }
  if (stamp->shape().keyBytes != sizeof kOnly || stamp->shape().valueBytes < sizeof layout) {
    throw KernelError(directory_.of(kLayout) + " is no layout of this system");
  }
  std::vector<std::byte> value(stamp->shape().valueBytes);
  if (int const error = stamp->lookup(&kOnly, value.data()); error != 0) {
    fail(directory_.of(kLayout), error);
  }
  std::memcpy(&layout, value.data(), sizeof layout);
  return layout;
}

// Loads the program on the maps that are pinned and on new ones in place of those that are not.
void KernelProgram::load(U32 layout, size_t rows) {
  Skeleton const program;
  std::array<bpf_map*, kMaps> const maps = program.maps();
  for (size_t i = 0; i < kMaps; ++i) {
    auto const pinned = BpfMap::pinned(directory_.of(kMapNames[i]));
    if (pinned && sameShape(pinned->shape(), maps[i])) {
      if (i == kRows) rows = pinned->shape().entries;
      if (int const error = bpf_map__reuse_fd(maps[i], pinned->fd()); error < 0) {
        fail(directory_.of(kMapNames[i]), -error);
      }
      continue;
    }
    if (pinned || layout == MAC_REWRITE_LAYOUT) {
      throw KernelError(directory_.of(kMapNames[i]) + " is not what layout " +
                        std::to_string(layout) + " has there");
    }
    if (i == kRows || i == kHits) bpf_map__set_max_entries(maps[i], static_cast<U32>(rows));
  }
  libraryText().clear();
  if (int const error = mac_rewrite__load(program.skeleton.get()); error < 0) failToLoad(-error);
  for (size_t i = 0; i < kMaps; ++i) maps_[i] = BpfMap(copyOf(bpf_map__fd(maps[i])));
  program_ = copyOf(bpf_program__fd(program.skeleton->progs.mac_rewrite));
  if (layout == 1) convertDevices();
}

void KernelProgram::convertDevices() {
  auto const before = BpfMap::pinned(directory_.of(kDeviceVlan));
  if (!before || before->shape().keyBytes != 4 || before->shape().valueBytes != 4) return;
  U32 device = 0;
  for (int end = before->nextKey(nullptr, &device); end == 0;
       end = before->nextKey(&device, &device)) {
    mac_rewrite_device entry{};
    if (before->lookup(&device, &entry.vlan) != 0) continue;
    if (if_indextoname(device, entry.name) == nullptr) continue;
    if (int const error = devices().update(&device, &entry, BPF_ANY); error != 0) {
      fail(directory_.of(kDeviceVlan), error);
    }
  }
}

// The layout comes last: what has it is whole.
void KernelProgram::pinNew() {
  if (mkdir(directory_.of(kNew).c_str(), 0700) != 0) fail(directory_.of(kNew));
  for (size_t i = 0; i < kMaps; ++i) pin(maps_[i].fd(), newPin(kMapNames[i]));
  pin(fd(), newPin(kProgram));

  mac_rewrite_layout const layout{MAC_REWRITE_LAYOUT, mounted_ ? 1u : 0u};
  int const stamp =
      bpf_map_create(BPF_MAP_TYPE_ARRAY, kLayout, sizeof kOnly, sizeof layout, 1, nullptr);
  if (stamp < 0) fail("a map", -stamp);
  BpfMap const map{FileDescriptor(stamp)};
  if (int const error = map.update(&kOnly, &layout, BPF_ANY); error != 0) fail("a map", error);
  pin(map.fd(), newPin(kLayout));
}

// May be repeated from any point on: what has been moved is no longer among the new.
void KernelProgram::install() {
  replaceFilters();
  for (char const* name : kMapNames) movePin(name);
  movePin(kProgram);
  removePin(directory_.of(kDeviceVlan));
  movePin(kLayout);
  rmdir(directory_.of(kNew).c_str());
}

void KernelProgram::finishInterrupted() {
  if (std::filesystem::exists(newPin(kLayout))) {
    install();
    return;
  }
  for (char const* name : kMapNames) removePin(newPin(name));
  removePin(newPin(kProgram));
  if (rmdir(directory_.of(kNew).c_str()) != 0) fail(directory_.of(kNew));
}

// Where a filter of ours is: one that another program removed stays removed.
void KernelProgram::replaceFilters() {
  auto newOrPresent = [this](char const* name) {
    std::string const path = newPin(name);
    return std::filesystem::exists(path) ? path : directory_.of(name);
  };
  FileDescriptor const program = pinnedProgram(newOrPresent(kProgram));
  auto const present = BpfMap::pinned(newOrPresent(kMapNames[kDevices]));
  if (!program || !present) return;
  U32 device = 0;
  for (int end = present->nextKey(nullptr, &device); end == 0;
       end = present->nextKey(&device, &device)) {
    auto const index = static_cast<int>(device);
    if (TcFilter::program(index)) TcFilter::programIs(index, program.get());
  }
}

std::string KernelProgram::newPin(char const* name) const {
  return directory_.of(kNew) + "/" + name;
}

void KernelProgram::movePin(char const* name) {
  if (std::rename(newPin(name).c_str(), directory_.of(name).c_str()) != 0 && errno != ENOENT) {
    fail(newPin(name));
  }
}

U32 KernelProgram::id() const {
  return infoOf(fd()).id;
}

FrameCounters KernelProgram::counters() const {
  FrameCounters counters;
  if (!exists()) return counters;
  std::vector<mac_rewrite_counters> byCpu(possibleCpus());
  if (int const error = map(kCounters).lookup(&kOnly, byCpu.data()); error != 0) {
    fail("the counters", error);
  }
  for (mac_rewrite_counters const& cpu : byCpu) {
    for (size_t i = 0; i < kFrameVerdicts; ++i) counters.byVerdict[i] += cpu.frames[i];
  }
  return counters;
}

void KernelProgram::countersClear() {
  if (!exists()) return;
  std::vector<mac_rewrite_counters> const zero(possibleCpus());
  if (int const error = map(kCounters).update(&kOnly, zero.data(), BPF_ANY); error != 0) {
    fail("the counters", error);
  }
}

void KernelProgram::remove() {
  removePin(directory_.of(kLayout));
  removePin(directory_.of(kProgram));
  for (char const* name : kMapNames) removePin(directory_.of(name));
  maps_ = {};
  program_ = FileDescriptor();
  directory_.remove(mounted_);
}

}  // namespace BfnKernel
