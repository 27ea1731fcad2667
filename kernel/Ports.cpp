// SPDX-License-Identifier: Apache-2.0
#include "kernel/Ports.h"

#include <algorithm>
#include <cstring>
#include <linux/bpf.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include "framework/core/Exceptions.h"
#include "kernel/KernelError.h"
#include "kernel/TcFilter.h"

namespace BfnKernel {

using Kiv::U16;
using Kiv::U32;

namespace {

constexpr U32 kMaxVni = 0xff'ffff;

void checkVlan(U16 vlan) {
  if (vlan < 1 || vlan > 4094) Kiv::throwRangeException("VLAN < 1 or > 4094 not allowed");
}

void checkVni(U32 vni) {
  if (vni < 1 || vni > kMaxVni) Kiv::throwRangeException("VNI < 1 or > 16777215 not allowed");
}

KernelProgram& existing(KernelProgram& program) {
  if (!program.exists()) throw KernelError("a table of 0 rows has no program for devices");
  return program;
}

void storeName(mac_rewrite_device& entry, std::string const& name) {
  name.copy(entry.name, sizeof entry.name - 1);
}

std::optional<Link> linkNamed(Netlink& netlink, std::string const& name) {
  for (Link& link : links(netlink)) {
    if (link.name == name) return std::move(link);
  }
  return std::nullopt;
}

}  // namespace

Ports::Ports(KernelProgram& program)
    : program_(existing(program)), id_(program.id()), events_(RTMGRP_LINK) {
  adopt();
}

// What an earlier process attached. An entry whose device has gone meanwhile is kept as wanted.
void Ports::adopt() {
  std::vector<U32> indexes;
  U32 index = 0;
  for (int end = program_.devices().nextKey(nullptr, &index); end == 0;
       end = program_.devices().nextKey(&index, &index)) {
    indexes.push_back(index);
  }
  for (U32 const at : indexes) {
    mac_rewrite_device entry{};
    if (program_.devices().lookup(&at, &entry) != 0) continue;
    std::string const name(entry.name, strnlen(entry.name, sizeof entry.name));
    Wanted& wanted = wanted_[name];
    wanted.vlan = static_cast<U16>(entry.vlan);
    if (if_nametoindex(name.c_str()) == at && TcFilter::program(static_cast<int>(at))) {
      wanted.index = static_cast<int>(at);
      wanted.madeQdisc = entry.made_qdisc != 0;
    } else {
      program_.devices().erase(&at);
    }
  }
  std::vector<std::string> lines;
  compareWith(links(requests_), lines);
}

void Ports::attach(std::string const& device, std::optional<U16> vlan) {
  if (vlan) checkVlan(*vlan);
  std::optional<Link> const link = linkNamed(requests_, device);
  if (!link) throw KernelError("there is no device " + device);
  if (link->kind != "vxlan") throw KernelError(device + " is no VXLAN device");
  bool const isNew = !wanted_.contains(device);
  Entry& entry = *wanted_.try_emplace(device).first;
  Wanted const before = entry.second;
  entry.second.vlan = vlan.value_or(0);
  try {
    put(entry, *link);
  } catch (...) {
    if (isNew) {
      wanted_.erase(device);
    } else {
      entry.second = before;
    }
    throw;
  }
}

// The entry in the map comes first: no frame meets the program before its device has a VLAN.
void Ports::put(Entry& entry, Link const& link) {
  auto& [name, wanted] = entry;
  bool const made = TcFilter::clsactIs(link.index);
  wanted.madeQdisc = made || (wanted.madeQdisc && wanted.index == link.index);
  mac_rewrite_device value{};
  value.vlan = wanted.vlan;
  value.vni = link.vni;
  value.made_qdisc = wanted.madeQdisc ? 1 : 0;
  storeName(value, name);
  auto const index = static_cast<U32>(link.index);
  if (int const error = program_.devices().update(&index, &value, BPF_ANY); error != 0) {
    fail("the map of devices", error);
  }
  wanted.index = link.index;
  try {
    if (TcFilter::program(link.index) != id_) TcFilter::programIs(link.index, program_.fd());
  } catch (...) {
    program_.devices().erase(&index);
    if (made) TcFilter::clsactDel(link.index);
    throw;
  }
}

bool Ports::detach(std::string const& device) {
  auto const found = wanted_.find(device);
  if (found == wanted_.end()) return false;
  takeOut(*found);
  wanted_.erase(found);
  return true;
}

void Ports::detachAll() {
  while (!wanted_.empty()) detach(wanted_.begin()->first);
}

void Ports::takeOut(Entry const& entry) {
  Wanted const& wanted = entry.second;
  if (wanted.index == 0) return;
  auto const index = static_cast<U32>(wanted.index);
  // The device may have gone: its number may be another one's, which does not have our filter.
  if (TcFilter::program(wanted.index) == id_) {
    TcFilter::programDel(wanted.index);
    if (wanted.madeQdisc && !TcFilter::anyFilter(wanted.index)) TcFilter::clsactDel(wanted.index);
  }
  program_.devices().erase(&index);
}

std::vector<Port> Ports::list() {
  std::vector<Link> const present = links(requests_);
  std::vector<Port> ports;
  for (auto const& [name, wanted] : wanted_) {
    Port port;
    port.device = name;
    if (wanted.vlan != 0) port.vlan = wanted.vlan;
    auto const link = std::ranges::find(present, name, &Link::name);
    if (link != present.end()) {
      port.present = true;
      port.attached = TcFilter::program(link->index) == id_;
      port.vni = link->external ? 0 : link->vni;
      port.ipv6Underlay = link->ipv6Underlay;
    }
    ports.push_back(std::move(port));
  }
  return ports;
}

void Ports::vniIs(U32 vni, U16 vlan) {
  checkVni(vni);
  checkVlan(vlan);
  U32 const value = vlan;
  if (int const error = program_.vnis().update(&vni, &value, BPF_ANY); error != 0) {
    fail("the map of VNIs", error);
  }
}

bool Ports::vniDel(U32 vni) {
  return program_.vnis().erase(&vni) == 0;
}

std::map<U32, U16> Ports::vnis() const {
  std::map<U32, U16> vnis;
  U32 vni = 0;
  for (int end = program_.vnis().nextKey(nullptr, &vni); end == 0;
       end = program_.vnis().nextKey(&vni, &vni)) {
    U32 vlan = 0;
    if (program_.vnis().lookup(&vni, &vlan) == 0) vnis[vni] = static_cast<U16>(vlan);
  }
  return vnis;
}

std::vector<std::string> Ports::handleEvents() {
  std::vector<std::string> lines;
  bool const complete = events_.events([&](nlmsghdr const& head) {
    if (auto const link = readLink(head)) follow(*link, head.nlmsg_type == RTM_DELLINK, lines);
  });
  if (!complete) compareWith(links(requests_), lines);
  return lines;
}

// An event says how the device was then; a device that has changed again has a later event.
void Ports::follow(Link const& link, bool gone, std::vector<std::string>& lines) {
  auto const byIndex =
      std::ranges::find_if(wanted_, [&](Entry const& e) { return e.second.index == link.index; });
  if (byIndex != wanted_.end() && (gone || byIndex->first != link.name)) {
    // A device that got another name is gone as that name, and keeps nothing of ours.
    lines.push_back(byIndex->first + " has gone");
    if (!gone) takeOut(*byIndex);
    forget(*byIndex);
  }
  if (gone) return;
  auto const wanted = wanted_.find(link.name);
  if (wanted == wanted_.end() || wanted->second.index == link.index) return;
  if (link.kind != "vxlan") return;
  try {
    put(*wanted, link);
    lines.push_back(link.name + " has come back");
  } catch (KernelError const& error) {
    lines.push_back(link.name + " has come back: " + error.what());
  }
}

void Ports::forget(Entry& entry) {
  auto const index = static_cast<U32>(entry.second.index);
  program_.devices().erase(&index);
  entry.second.index = 0;
  entry.second.madeQdisc = false;
}

// After lost events: what follow() would have done for each device that went or came.
void Ports::compareWith(std::vector<Link> const& present, std::vector<std::string>& lines) {
  for (Entry& entry : wanted_) {
    auto const link = std::ranges::find(present, entry.first, &Link::name);
    int const index = link == present.end() ? 0 : link->index;
    if (entry.second.index != 0 && entry.second.index != index) {
      lines.push_back(entry.first + " has gone");
      forget(entry);
    }
  }
  for (Link const& link : present) follow(link, false, lines);
}

}  // namespace BfnKernel
