// SPDX-License-Identifier: Apache-2.0
#include "kernel/Links.h"

#include <cstring>
#include <linux/if_link.h>
#include <sys/socket.h>

namespace BfnKernel {

namespace {

std::string textOf(rtattr const& attribute) {
  std::span<std::byte const> const bytes = payloadOf(attribute);
  auto const* first = reinterpret_cast<char const*>(bytes.data());
  return {first, strnlen(first, bytes.size())};
}

template <class T>
T numberOf(rtattr const& attribute) {
  T number{};
  std::span<std::byte const> const bytes = payloadOf(attribute);
  if (bytes.size() >= sizeof number) std::memcpy(&number, bytes.data(), sizeof number);
  return number;
}

void readVxlan(rtattr const& data, Link& link) {
  eachAttribute(data, [&](rtattr const& attribute) {
    switch (attribute.rta_type) {
      case IFLA_VXLAN_ID:
        link.vni = numberOf<Kiv::U32>(attribute);
        break;
      case IFLA_VXLAN_COLLECT_METADATA:
        link.external = numberOf<Kiv::U8>(attribute) != 0;
        break;
      case IFLA_VXLAN_GROUP6:
      case IFLA_VXLAN_LOCAL6:
        link.ipv6Underlay = true;
        break;
      default:
        break;
    }
  });
}

void readInfo(rtattr const& info, Link& link) {
  rtattr const* data = nullptr;
  eachAttribute(info, [&](rtattr const& attribute) {
    if (attribute.rta_type == IFLA_INFO_KIND) link.kind = textOf(attribute);
    if (attribute.rta_type == IFLA_INFO_DATA) data = &attribute;
  });
  if (link.kind == "vxlan" && data != nullptr) readVxlan(*data, link);
}

}  // namespace

std::optional<Link> readLink(nlmsghdr const& head) {
  if (head.nlmsg_type != RTM_NEWLINK && head.nlmsg_type != RTM_DELLINK) return std::nullopt;
  if (head.nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg))) return std::nullopt;
  auto const* info = static_cast<ifinfomsg const*>(bodyOf(head));
  // A bridge reports its ports in messages of the same types; they say nothing of the device.
  if (info->ifi_family != AF_UNSPEC) return std::nullopt;
  Link link;
  link.index = info->ifi_index;
  eachAttribute(head, sizeof *info, [&](rtattr const& attribute) {
    unsigned const type = attribute.rta_type & static_cast<unsigned>(NLA_TYPE_MASK);
    if (type == IFLA_IFNAME) link.name = textOf(attribute);
    if (type == IFLA_LINKINFO) readInfo(attribute, link);
  });
  return link;
}

std::vector<Link> links(Netlink& netlink) {
  std::vector<Link> all;
  ifinfomsg const body{};
  netlink.dump(RTM_GETLINK, std::as_bytes(std::span(&body, 1)), [&](nlmsghdr const& head) {
    if (auto link = readLink(head)) all.push_back(std::move(*link));
  });
  return all;
}

}  // namespace BfnKernel
