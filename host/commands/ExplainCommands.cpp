// SPDX-License-Identifier: Apache-2.0
#include "host/commands/Commands.h"
#include "host/explain/Explain.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

Answer said(Explanation const& explanation) {
  return {explanation.json(), explanation.text()};
}

}  // namespace

CommandGroup explainCommands(Switch& host) {
  CommandGroup group{"why", {}};
  auto& add = group.commands;
  add.emplace_back(
      "explain vrf <VRF> src-ip <IP>",
      "how the line of that address becomes a row, or why it does not",
      "explain vrf red src-ip 10.0.0.1", [&host](Arguments const& given) {
        FactFinder const finder(factSources(host));
        return said(explained(finder.ofVrf(L3::VrfName(given.text("vrf")), given.ip("src-ip"))));
      });
  add.emplace_back("explain vrf-id <N> src-ip <IP>", "the same, for the VRF of that id",
                   "explain vrf-id 7 src-ip 10.0.0.1", [&host](Arguments const& given) {
                     FactFinder const finder(factSources(host));
                     Pex::VrfId const vrf(static_cast<Kiv::U32>(given.number("vrf-id")));
                     return said(explained(finder.ofVrfId(vrf, given.ip("src-ip"))));
                   });
  add.emplace_back("explain row vlan <N:1-4094> src-ip <IP>",
                   "the other way: which address a row of the chip belongs to",
                   "explain row vlan 1006 src-ip 10.0.0.1", [&host](Arguments const& given) {
                     FactFinder const finder(factSources(host));
                     return said(explainedRow(finder, static_cast<Kiv::U16>(given.number("vlan")),
                                              given.ip("src-ip")));
                   });
  return group;
}

}  // namespace Host
