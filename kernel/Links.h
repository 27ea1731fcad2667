// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kernel/Netlink.h"

namespace BfnKernel {

/// A network device.
struct Link {
  int index = 0;
  std::string name;
  /// "vxlan", "bridge"; empty for hardware.
  std::string kind;
  // Of a VXLAN device.
  /// 0 when it takes the VNI from each frame's metadata.
  Kiv::U32 vni = 0;
  bool external = false;
  bool ipv6Underlay = false;
};

/// Reads a message of type RTM_NEWLINK or RTM_DELLINK; nothing for any other message.
std::optional<Link> readLink(nlmsghdr const& head);

/// All devices of the namespace. Throws KernelError.
std::vector<Link> links(Netlink& netlink);

}  // namespace BfnKernel
