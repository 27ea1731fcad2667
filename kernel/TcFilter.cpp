// SPDX-License-Identifier: Apache-2.0
#include "kernel/TcFilter.h"

#include <bpf/libbpf.h>
#include <linux/pkt_sched.h>
#include <string>
#include <sys/socket.h>

#include "kernel/KernelError.h"
#include "kernel/Netlink.h"

namespace BfnKernel::TcFilter {

namespace {

bpf_tc_hook hookOf(int device, bpf_tc_attach_point point) {
  bpf_tc_hook hook{};
  hook.sz = sizeof hook;
  hook.ifindex = device;
  hook.attach_point = point;
  return hook;
}

bpf_tc_opts ourPlace() {
  bpf_tc_opts options{};
  options.sz = sizeof options;
  options.handle = kHandle;
  options.priority = kPriority;
  return options;
}

std::string nameOf(int device) {
  return "device " + std::to_string(device);
}

bool anyFilterOf(Netlink& netlink, int device, Kiv::U32 parent) {
  tcmsg body{};
  body.tcm_family = AF_UNSPEC;
  body.tcm_ifindex = device;
  body.tcm_parent = parent;
  bool any = false;
  netlink.dump(RTM_GETTFILTER, std::as_bytes(std::span(&body, 1)),
               [&](nlmsghdr const& head) { any = any || head.nlmsg_type == RTM_NEWTFILTER; });
  return any;
}

}  // namespace

bool clsactIs(int device) {
  bpf_tc_hook hook = hookOf(device, BPF_TC_EGRESS);
  int const result = bpf_tc_hook_create(&hook);
  if (result == 0) return true;
  if (result == -EEXIST) return false;
  if (result == -ENOENT) throw Unavailable("the kernel has no clsact (CONFIG_NET_SCH_INGRESS)");
  fail(nameOf(device) + ": no clsact qdisc", -result);
}

void clsactDel(int device) {
  bpf_tc_hook hook =
      hookOf(device, static_cast<bpf_tc_attach_point>(BPF_TC_INGRESS | BPF_TC_EGRESS));
  int const result = bpf_tc_hook_destroy(&hook);
  if (result < 0 && result != -ENOENT && result != -EINVAL) {
    fail(nameOf(device) + ": the clsact qdisc stays", -result);
  }
}

std::optional<Kiv::U32> program(int device) {
  bpf_tc_hook const hook = hookOf(device, BPF_TC_EGRESS);
  bpf_tc_opts options = ourPlace();
  // Without a qdisc the kernel says EINVAL, without a filter ENOENT.
  if (bpf_tc_query(&hook, &options) != 0) return std::nullopt;
  return options.prog_id;
}

void programIs(int device, int program) {
  bpf_tc_hook const hook = hookOf(device, BPF_TC_EGRESS);
  bpf_tc_opts options = ourPlace();
  options.prog_fd = program;
  options.flags = BPF_TC_F_REPLACE;
  int const result = bpf_tc_attach(&hook, &options);
  if (result == 0) return;
  if (result == -ENOENT) {
    throw Unavailable("the kernel has no filters that are programs (CONFIG_NET_CLS_BPF)");
  }
  if (result == -EINVAL || result == -EEXIST) {
    fail(nameOf(device) + ": filter priority " + std::to_string(kPriority) +
             " of its egress is another owner's",
         -result);
  }
  fail(nameOf(device) + ": no filter", -result);
}

void programDel(int device) {
  bpf_tc_hook const hook = hookOf(device, BPF_TC_EGRESS);
  bpf_tc_opts const options = ourPlace();
  int const result = bpf_tc_detach(&hook, &options);
  if (result < 0 && result != -ENOENT && result != -EINVAL) {
    fail(nameOf(device) + ": the filter stays", -result);
  }
}

bool anyFilter(int device) {
  Netlink netlink;
  return anyFilterOf(netlink, device, TC_H_MAKE(TC_H_CLSACT, TC_H_MIN_EGRESS)) ||
         anyFilterOf(netlink, device, TC_H_MAKE(TC_H_CLSACT, TC_H_MIN_INGRESS));
}

}  // namespace BfnKernel::TcFilter
