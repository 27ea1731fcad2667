// SPDX-License-Identifier: Apache-2.0
#include "kernel/Rights.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <linux/bpf.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "framework/core/Types.h"

namespace BfnKernel {

namespace {

constexpr int kMajor = 5;
constexpr int kMinor = 10;

bool hasCapability(unsigned capability) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> data{};
  if (syscall(SYS_capget, &header, data.data()) != 0) return false;
  return (data[capability / 32].effective >> (capability % 32) & 1) != 0;
}

std::optional<std::string> kernelTooOld() {
  utsname names{};
  int major = 0;
  int minor = 0;
  if (uname(&names) != 0 || std::sscanf(names.release, "%d.%d", &major, &minor) != 2) return {};
  if (major > kMajor || (major == kMajor && minor >= kMinor)) return {};
  return "the kernel " + std::string(names.release) + " is older than " + std::to_string(kMajor) +
         "." + std::to_string(kMinor);
}

// An empty request: a kernel that has the call finds fault with it in another way.
bool hasBpfCall() {
  union bpf_attr attributes {};
  return syscall(SYS_bpf, BPF_MAP_CREATE, &attributes, sizeof attributes) >= 0 || errno != ENOSYS;
}

}  // namespace

std::optional<std::string> whatIsMissing() {
  if (auto old = kernelTooOld()) return old;
  if (!hasBpfCall()) return "the kernel has no bpf() (CONFIG_BPF_SYSCALL)";
  bool const all = hasCapability(CAP_SYS_ADMIN);
  if (!all && !hasCapability(CAP_BPF)) return "the right CAP_BPF is missing";
  if (!hasCapability(CAP_NET_ADMIN)) return "the right CAP_NET_ADMIN is missing";
  return {};
}

}  // namespace BfnKernel
