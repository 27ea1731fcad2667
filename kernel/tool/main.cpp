// SPDX-License-Identifier: Apache-2.0
// macrewrite-kernel: puts the kernel program on tunnel devices, shows what it does, and takes it
// out. See docs/kernel.md.
#include <charconv>
#include <cstddef>
#include <exception>
#include <functional>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/KernelError.h"
#include "kernel/KernelProgram.h"
#include "kernel/KernelTable.h"
#include "kernel/Ports.h"

namespace {

using BfnKernel::KernelProgram;
using BfnKernel::Ports;

constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

constexpr char kUsage[] =
    "Usage: macrewrite-kernel DIRECTORY COMMAND\n"
    "\n"
    "Commands:\n"
    "  attach DEVICE vlan N     look up the frames that enter this VXLAN device, in VLAN N\n"
    "  attach DEVICE vni-map    the same; the VLAN is that of the frame's VNI, else of its tag\n"
    "  detach DEVICE            leave the device as it was\n"
    "  vni N vlan N             frames of that VNI are in that VLAN\n"
    "  no vni N                 the VNI has no VLAN any more\n"
    "  show                     devices, VNIs, rows and what became of the frames\n"
    "  remove                   detach all devices and remove the table with its rows\n"
    "\n"
    "DIRECTORY is where the table is kept: on a bpf file system, or one is mounted there.\n"
    "\n"
    "Options:\n"
    "  --help     print this and end\n"
    "  --version  print the version and end\n"
    "\n"
    "Exit status:\n"
    "  0  all is well\n"
    "  1  a command failed\n"
    "  2  wrong use\n"
    "  3  this machine lacks a right or a feature, which is named\n";

class WrongUse : public std::exception {};

template <class T>
T numberOf(std::string const& word) {
  T number{};
  auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  if (error != std::errc() || end != word.data() + word.size()) throw WrongUse();
  return number;
}

std::string vlanText(std::optional<Kiv::U16> vlan) {
  return vlan ? "vlan " + std::to_string(*vlan) : "vni-map";
}

void show(KernelProgram& program, Ports& ports) {
  for (BfnKernel::Port const& port : ports.list()) {
    std::cout << port.device << ' ' << vlanText(port.vlan);
    if (port.vni != 0) std::cout << ", VNI " << port.vni;
    if (port.ipv6Underlay) std::cout << ", over IPv6";
    if (!port.present) std::cout << ", away";
    if (port.present && !port.attached) std::cout << ", not attached";
    std::cout << '\n';
  }
  for (auto const& [vni, vlan] : ports.vnis())
    std::cout << "vni " << vni << " vlan " << vlan << '\n';
  BfnKernel::KernelTable table(program);
  auto const handle = *table.open({0, 0, {}, "", BfnKernel::KernelTable::kRewriteTable});
  std::cout << table.entryCount(handle) << " rows of " << table.capacity(handle) << '\n';
  BfnKernel::FrameCounters const counters = program.counters();
  for (size_t i = 0; i < BfnKernel::kFrameVerdicts; ++i) {
    auto const verdict = static_cast<mac_rewrite_verdict>(i);
    if (counters.of(verdict) == 0) continue;
    std::cout << BfnKernel::text(verdict) << ' ' << counters.of(verdict) << '\n';
  }
}

using Action = std::function<void(KernelProgram&, Ports&)>;

// What the words say is to be done. Throws WrongUse when they are no command.
Action actionOf(std::vector<std::string> const& words) {
  auto const are = [&](size_t count, std::string_view first) {
    return words.size() == count && words[0] == first;
  };
  if (are(4, "attach") && words[2] == "vlan") {
    return [device = words[1], vlan = numberOf<Kiv::U16>(words[3])](KernelProgram&, Ports& ports) {
      ports.attach(device, vlan);
    };
  }
  if (are(3, "attach") && words[2] == "vni-map") {
    return
        [device = words[1]](KernelProgram&, Ports& ports) { ports.attach(device, std::nullopt); };
  }
  if (are(2, "detach")) {
    return [device = words[1]](KernelProgram&, Ports& ports) {
      if (!ports.detach(device)) throw std::runtime_error(device + " is not attached");
    };
  }
  if (are(4, "vni") && words[2] == "vlan") {
    return [vni = numberOf<Kiv::U32>(words[1]), vlan = numberOf<Kiv::U16>(words[3])](
               KernelProgram&, Ports& ports) { ports.vniIs(vni, vlan); };
  }
  if (are(3, "no") && words[1] == "vni") {
    return [vni = numberOf<Kiv::U32>(words[2])](KernelProgram&, Ports& ports) {
      if (!ports.vniDel(vni)) {
        throw std::runtime_error("VNI " + std::to_string(vni) + " has no VLAN");
      }
    };
  }
  if (are(1, "show")) return show;
  if (are(1, "remove")) {
    return [](KernelProgram& program, Ports& ports) {
      ports.detachAll();
      program.remove();
    };
  }
  throw WrongUse();
}

void run(std::vector<std::string> const& words) {
  if (words.empty()) throw WrongUse();
  if (words.size() == 1 && (words[0] == "--help" || words[0] == "-h")) {
    std::cout << kUsage;
    return;
  }
  if (words.size() == 1 && words[0] == "--version") {
    std::cout << "BfnMacRewrite " KERNEL_TOOL_VERSION "\n";
    return;
  }
  Action const action = actionOf({words.begin() + 1, words.end()});
  KernelProgram program({words[0]});
  for (std::string const& notice : program.notices()) {
    // The tool asks for no size of its own.
    if (!notice.ends_with("were asked for")) std::cerr << notice << '\n';
  }
  Ports ports(program);
  action(program, ports);
}

}  // namespace

int main(int count, char** arguments) {
  try {
    run({arguments + 1, arguments + count});
    return 0;
  } catch (WrongUse const&) {
    std::cerr << kUsage;
    return kWrongUse;
  } catch (BfnKernel::Unavailable const& error) {
    std::cerr << "macrewrite-kernel: " << error.what() << '\n';
    return BfnKernel::kUnavailableStatus;
  } catch (std::exception const& error) {
    std::cerr << "macrewrite-kernel: " << error.what() << '\n';
    return kFailed;
  }
}
