// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <fstream>

#include "framework/values/IpAddr.h"
#include "host/commands/Commands.h"
#include "host/language/InputError.h"

namespace Host {

namespace {

constexpr Kiv::U32 kFirstAddress = 0x0A000000;  // 10.0.0.0
constexpr Kiv::U64 kVlans = 4000;

struct Scale {
  Kiv::U64 vrfs;
  Kiv::U64 rows;

  // Row r is address 10.0.0.0 + r of VRF r modulo vrfs, on the interface of that VRF.
  Kiv::U64 vrfOf(Kiv::U64 row) const { return row % vrfs; }
  Ovra::IpAddr addressOf(Kiv::U64 row) const {
    return Ovra::IpAddr(kFirstAddress + static_cast<Kiv::U32>(row));
  }
};

void writeOperator(Scale const& scale, std::ostream& out) {
  for (Kiv::U64 row = 0; row < scale.rows; ++row) {
    char mac[24];
    std::snprintf(mac, sizeof mac, "02:00:%02x:%02x:%02x:%02x",
                  static_cast<unsigned>(row >> 24 & 0xff), static_cast<unsigned>(row >> 16 & 0xff),
                  static_cast<unsigned>(row >> 8 & 0xff), static_cast<unsigned>(row & 0xff));
    out << "vxlan forwarding match vrf vrf" << scale.vrfOf(row) << " src-ip "
        << scale.addressOf(row) << " action rewrite src-mac " << mac << '\n';
  }
}

void writeInterfaces(Scale const& scale, std::ostream& out) {
  for (Kiv::U64 vrf = 0; vrf < scale.vrfs; ++vrf) {
    out << "host vrf vrf" << vrf << " id " << vrf + 1 << '\n'
        << "host routing-status port Ethernet" << vrf + 1 << " key-vlan 0 vlan " << vrf % kVlans + 1
        << " vrf-id " << vrf + 1 << '\n';
  }
}

void writeAddresses(Scale const& scale, std::ostream& out) {
  for (Kiv::U64 row = 0; row < scale.rows; ++row) {
    Kiv::U64 const vrf = scale.vrfOf(row) + 1;
    out << "host address " << scale.addressOf(row) << " vrf-id " << vrf << " interface Ethernet"
        << vrf << '\n';
  }
}

template <class Write>
void writeFile(std::filesystem::path const& file, Scale const& scale, Write const& write) {
  std::ofstream out(file);
  write(scale, out);
  out.close();
  if (!out) throw InputError("cannot write " + file.string());
}

Answer generate(Arguments const& given) {
  Scale const scale{given.number("vrfs"), given.number("rows")};
  std::filesystem::path const folder = given.text("scale");
  makeFolder(folder);
  writeFile(folder / "operator.cfg", scale, writeOperator);
  writeFile(folder / "interfaces.lab", scale, writeInterfaces);
  writeFile(folder / "addresses.lab", scale, writeAddresses);
  return {};
}

}  // namespace

void makeFolder(std::filesystem::path const& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw InputError("cannot make " + folder.string() + ": " + error.message());
}

CommandGroup scaleCommands() {
  CommandGroup group{"scale", {}};
  group.commands.emplace_back(
      "generate scale <DIR> vrfs <N:1-4294967295> rows <N:16777216>",
      "write operator.cfg, interfaces.lab and addresses.lab of that size into the folder",
      "generate scale build/scale vrfs 1000 rows 65536", generate);
  return group;
}

}  // namespace Host
