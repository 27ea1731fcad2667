// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/core/Types.h"
#include "kernel/KernelProgram.h"
#include "kernel/Links.h"
#include "kernel/Netlink.h"

namespace BfnKernel {

/// One device whose frames go through the program.
struct Port {
  std::string device;
  /// The VLAN of its frames; none: by VNI, else by tag.
  std::optional<Kiv::U16> vlan;
  /// The device is there.
  bool present = false;
  /// The program's filter is in its place.
  bool attached = false;
  /// Of the VXLAN device: its own VNI (0: each frame's metadata has it) and what it tunnels over.
  Kiv::U32 vni = 0;
  bool ipv6Underlay = false;
};

/// Puts the program on the egress of VXLAN devices, and takes it out again.
///
/// A device is known by its name. A device that is removed loses its filter, and gets it again when
/// it comes back, provided that handleEvents() is called: the event loop waits for fd() to be
/// readable. What an earlier process attached is found and kept.
///
/// Touches nothing but its own filter, and the clsact qdisc that it made itself once no filter is
/// left in it. All devices are those of the network namespace in which the object was made.
class Ports {
 public:
  /// The program must outlive the object. Throws KernelError.
  explicit Ports(KernelProgram& program);

  /// Attaches the device; one that is attached gets the VLAN, and its filter again if it was
  /// removed. Throws KernelError when there is no such device or it is no VXLAN device; Kiv's range
  /// exception when the VLAN is not 1 to 4094.
  void attach(std::string const& device, std::optional<Kiv::U16> vlan);
  /// False when it is none of ours.
  bool detach(std::string const& device);
  void detachAll();

  /// By name.
  std::vector<Port> list();

  /// Frames of that VNI are in that VLAN, on devices that have none of their own.
  void vniIs(Kiv::U32 vni, Kiv::U16 vlan);
  /// False when the VNI had none.
  bool vniDel(Kiv::U32 vni);
  std::map<Kiv::U32, Kiv::U16> vnis() const;

  /// Becomes readable when devices have come or gone.
  int fd() const { return events_.fd(); }
  /// Follows devices that have come or gone since the last call; does not wait. Lines for people to
  /// read say what was done, and what failed.
  std::vector<std::string> handleEvents();

 private:
  struct Wanted {
    Kiv::U16 vlan = 0;
    /// 0 while the device is away.
    int index = 0;
    bool madeQdisc = false;
  };
  using Entry = std::map<std::string, Wanted>::value_type;

  void adopt();
  void put(Entry& entry, Link const& link);
  void takeOut(Entry const& entry);
  void forget(Entry& entry);
  void follow(Link const& link, bool gone, std::vector<std::string>& lines);
  void compareWith(std::vector<Link> const& present, std::vector<std::string>& lines);

  KernelProgram& program_;
  /// The program's number, by which our own filter is known.
  Kiv::U32 const id_;
  Netlink events_;
  Netlink requests_;
  std::map<std::string, Wanted> wanted_;
};

}  // namespace BfnKernel
