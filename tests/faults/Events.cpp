// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/Scene.h"

namespace BfnTest {

namespace {

using S = Scene&;

L3::VrfName red() {
  return L3::VrfName("red");
}
Pex::PortVlanPair port(char const* name, Kiv::U16 vlan = 0) {
  return {Ovra::IntfId(name), vlan};
}
Kiv::Ptr<BfnL3::L3IntfRoutingStatus> status(Pex::PortVlanPair const& key, Kiv::U16 vlan) {
  auto const made = Kiv::makeActive<BfnL3::L3IntfRoutingStatus>(key);
  made->vlanIdIs(vlan);
  made->vrfIdIs(Pex::VrfId(7));
  return made;
}
BfnMacRewrite::BfnL3Output& output(S s) {
  return *s.host.l3Shared->bfnL3Output();
}
void supported(S s, bool supported) {
  BfnSystem::ChipCapabilities capabilities;
  capabilities.overlaySrcMacRewriteSupported = supported;
  capabilities.overlaySrcMacRewriteTableSize = 1000;
  s.host.systemStatus->profileInfoIs(s.host.kProfile)->chipCapabilitiesIs(capabilities);
}
Kiv::Ptr<BfnMacRewrite::Agent::Status> addresses(S s) {
  return s.host.mount->bfnMacRewriteAgentStatus();
}

// Bring-up.
std::vector<FaultEvent> bringUp() {
  constexpr Stage kNone = Stage::None, kCreated = Stage::Created, kStage1 = Stage::Stage1,
                  kRunning = Stage::Running;
  return {
      {"the agent is made", kNone, [](S s) { s.host.createAgent(); }},
      {"the agent is made again", kRunning, [](S s) { s.host.createAgent(); }},
      {"the agent goes", kRunning, [](S s) { s.host.agent.reset(); }},
      {"stage 1", kCreated, [](S s) { s.stage1(); }},
      {"stage 1 again", kStage1, [](S s) { s.stage1(); }},
      {"stage 1 with another entry", kRunning,
       [](S s) {
         output(s).profileEntryIs(s.spareEntry);
         s.stage1();
       }},
      {"stage 1 with other VRFs", kRunning,
       [](S s) {
         s.host.l3Shared->l3StatusIs(s.spareL3);
         s.stage1();
       }},
      {"stage 1 without the table", kRunning,
       [](S s) {
         supported(s, false);
         s.stage1();
       }},
      {"stage 2", kStage1, [](S s) { s.host.stage2(); }},
      {"stage 2 again", kRunning, [](S s) { s.host.stage2(); }},
      {"stage 2 with another manager", kRunning,
       [](S s) {
         output(s).profileEntryIs(s.spareEntry);
         s.stage1();
         s.host.stage2();
       }},
      {"stage 2 with other VRFs", kRunning,
       [](S s) {
         s.host.l3Shared->l3StatusIs(s.spareL3);
         s.host.stage2();
       }},
      {"stage 2 with other ports", kRunning,
       [](S s) {
         s.host.l3Shared->l3PortAndLagRoutingStatusIs(s.sparePorts);
         s.host.stage2();
       }},
      {"stage 2 with another configuration", kRunning,
       [](S s) {
         s.host.mount->bfnMacRewriteCliConfigIs(s.spareConfig);
         s.host.stage2();
       }},
      {"stage 2 without a configuration", kRunning,
       [](S s) {
         s.host.mount->bfnMacRewriteCliConfigIs(nullptr);
         s.host.stage2();
       }},
      {"stage 2 with another agent configuration", kRunning,
       [](S s) {
         s.host.mount->bfnMacRewriteAgentConfigDel();
         s.host.mount->bfnMacRewriteAgentConfigIs();
         s.host.stage2();
       }},
  };
}

std::vector<FaultEvent> vrfs() {
  constexpr Stage kRunning = Stage::Running;
  return {
      {"a VRF comes", kRunning, [](S s) { s.host.vrf("green", 9); },
       [](S s) { s.host.l3Status->vrfDel(L3::VrfName("green")); }},
      {"a VRF with lines comes", kRunning,
       [](S s) {
         s.host.rewrite("green", "10.0.1.1", "02:00:00:00:03:01");
         s.host.rewrite("green", "10.0.1.2", "02:00:00:00:03:02");
         s.host.vrf("green", 9);
       },
       [](S s) {
         s.host.l3Status->vrfDel(L3::VrfName("green"));
         s.host.rewriteDel("green", "10.0.1.1");
         s.host.rewriteDel("green", "10.0.1.2");
       }},
      {"a VRF goes", kRunning, [](S s) { s.host.l3Status->vrfDel(red()); },
       [](S s) { s.host.vrf("red", 7); }},
      {"a VRF goes and returns with another id", kRunning,
       [](S s) {
         s.host.l3Status->vrfDel(red());
         s.host.vrf("red", 17);
       },
       [](S s) {
         s.host.l3Status->vrfDel(red());
         s.host.vrf("red", 7);
       }},
      {"a VRF goes and returns", kRunning,
       [](S s) {
         s.host.l3Status->vrfDel(red());
         s.host.vrf("red", 7);
       }},
      {"an id gets another name", kRunning,
       [](S s) { s.host.l3Status->vrfNameIs(Pex::VrfId(7), L3::VrfName("crimson")); },
       [](S s) { s.host.l3Status->vrfNameIs(Pex::VrfId(7), red()); }},
  };
}

std::vector<FaultEvent> routing() {
  constexpr Stage kRunning = Stage::Running;
  return {
      {"an interface comes", kRunning, [](S s) { s.host.port("Ethernet3", 103, 7); },
       [](S s) { s.host.portDel("Ethernet3"); }},
      {"an interface of waiting addresses comes", kRunning,
       [](S s) {
         s.host.address(7, "10.0.3.1", "Ethernet3");
         s.host.address(7, "10.0.3.2", "Ethernet3");
         s.host.port("Ethernet3", 103, 7);
       },
       [](S s) {
         s.host.portDel("Ethernet3");
         s.host.addressDel(7, "10.0.3.1");
         s.host.addressDel(7, "10.0.3.2");
       }},
      {"an interface goes", kRunning, [](S s) { s.host.portDel("Ethernet1"); },
       [](S s) { s.host.port("Ethernet1", 100, 7); }},
      {"an interface goes and returns", kRunning,
       [](S s) {
         s.host.portDel("Ethernet1");
         s.host.port("Ethernet1", 100, 7);
       }},
      {"a sub-interface comes", kRunning,
       [](S s) { s.host.subIntfs->l3IntfRoutingStatusIs(status(port("Ethernet3.20"), 120)); },
       [](S s) { s.host.subIntfs->l3IntfRoutingStatusDel(port("Ethernet3.20")); }},
      {"a VLAN interface comes", kRunning,
       [](S s) { s.host.vlans->l3IntfRoutingStatusIs(status(port("Vlan100"), 100)); },
       [](S s) { s.host.vlans->l3IntfRoutingStatusDel(port("Vlan100")); }},
      {"all interfaces go", kRunning, [](S s) { s.host.ports->l3IntfRoutingStatusDelAll(); },
       [](S s) { s.host.port("Ethernet1", 100, 7); }},
      {"an interface is announced again", kRunning,
       [](S s) { s.host.ports->l3IntfRoutingStatusRenotify(port("Ethernet1")); }},
      {"a forwarding VLAN comes", kRunning, [](S s) { s.host.route("blue", 8, 301); },
       [](S s) { s.host.routeStatus->vrfStatusDel(L3::VrfName("blue")); }},
      {"a forwarding VLAN changes", kRunning, [](S s) { s.host.route("red", 7, 310); },
       [](S s) { s.host.route("red", 7, 300); }},
      {"a forwarding VLAN goes", kRunning, [](S s) { s.host.route("red", 7, 0); },
       [](S s) { s.host.route("red", 7, 300); }},
      {"a route status is replaced", kRunning,
       [](S s) { s.host.routeStatus->vrfStatusIs(s.spareRoute); },
       [](S s) {
         s.host.routeStatus->vrfStatusDel(red());
         s.host.route("red", 7, 300);
       }},
      {"a route status goes", kRunning, [](S s) { s.host.routeStatus->vrfStatusDel(red()); },
       [](S s) { s.host.route("red", 7, 300); }},
  };
}

std::vector<FaultEvent> local() {
  constexpr Stage kRunning = Stage::Running;
  return {
      {"an address comes", kRunning, [](S s) { s.host.address(7, "10.0.2.1", "Ethernet1"); },
       [](S s) { s.host.addressDel(7, "10.0.2.1"); }},
      {"an address of a new VRF comes", kRunning,
       [](S s) { s.host.address(8, "10.0.2.1", "Ethernet2"); },
       [](S s) { addresses(s)->vrfStatusDel(Pex::VrfId(8)); }},
      {"an own address comes", kRunning,
       [](S s) { s.host.address(7, "10.0.9.2", "Ethernet1", true); },
       [](S s) { s.host.addressDel(7, "10.0.9.2"); }},
      {"an address without a routed interface comes", kRunning,
       [](S s) { s.host.address(7, "10.0.2.1", "Ethernet99"); },
       [](S s) { s.host.addressDel(7, "10.0.2.1"); }},
      {"an address with its line comes", kRunning,
       [](S s) {
         s.host.rewrite("red", "10.0.2.1", "02:00:00:00:02:01");
         s.host.address(7, "10.0.2.1", "Ethernet1");
       },
       [](S s) {
         s.host.addressDel(7, "10.0.2.1");
         s.host.rewriteDel("red", "10.0.2.1");
       }},
      {"an address becomes an own one", kRunning,
       [](S s) {
         s.host.address(7, "10.0.2.1", "Ethernet1");
         s.host.address(7, "10.0.2.1", "Ethernet1", true);
       },
       [](S s) { s.host.addressDel(7, "10.0.2.1"); }},
      {"an address goes", kRunning, [](S s) { s.host.addressDel(7, "10.0.1.1"); },
       [](S s) { s.host.address(7, "10.0.1.1", "Ethernet1"); }},
      {"an own address goes", kRunning, [](S s) { s.host.addressDel(7, "10.0.9.1"); },
       [](S s) { s.host.address(7, "10.0.9.1", "Ethernet1", true); }},
      {"an address goes and returns", kRunning,
       [](S s) {
         s.host.addressDel(7, "10.0.1.1");
         s.host.address(7, "10.0.1.1", "Ethernet1");
       }},
      {"all addresses of a VRF go", kRunning,
       [](S s) { addresses(s)->vrfStatusIs(Pex::VrfId(7))->ipAndIntfIdDelAll(); },
       [](S s) { s.host.address(7, "10.0.1.1", "Ethernet1"); }},
      {"the status of a VRF goes", kRunning, [](S s) { addresses(s)->vrfStatusDel(Pex::VrfId(7)); },
       [](S s) { s.host.address(7, "10.0.1.1", "Ethernet1"); }},
      {"a full table refuses an address", kRunning,
       [](S s) {
         s.host.chip.tableIs(BfnChip::ChipModel::kRewriteTable, 0);
         s.host.address(7, "10.0.2.1", "Ethernet1");
       },
       nullptr, true},
  };
}

std::vector<FaultEvent> lines() {
  constexpr Stage kRunning = Stage::Running;
  return {
      {"a line comes", kRunning,
       [](S s) { s.host.rewrite("red", "10.0.1.1", "02:00:00:00:02:01"); },
       [](S s) { s.host.rewriteDel("red", "10.0.1.1"); }},
      {"a line without an address comes", kRunning,
       [](S s) { s.host.rewrite("red", "10.0.5.1", "02:00:00:00:02:01"); },
       [](S s) { s.host.rewriteDel("red", "10.0.5.1"); }},
      {"a VRF's first line comes", kRunning,
       [](S s) { s.host.rewrite("blue", "10.0.5.1", "02:00:00:00:02:01"); },
       [](S s) { s.host.rewriteDel("blue", "10.0.5.1"); }},
      {"a line of an unknown VRF comes", kRunning,
       [](S s) { s.host.rewrite("grey", "10.0.5.1", "02:00:00:00:02:01"); },
       [](S s) { s.host.rewriteDel("grey", "10.0.5.1"); }},
      {"a line goes", kRunning, [](S s) { s.host.rewriteDel("red", "10.0.1.1"); },
       [](S s) { s.host.rewrite("red", "10.0.1.1", "02:00:00:00:01:01"); }},
      {"all lines go", kRunning, [](S s) { s.host.cliConfig->overlaySrcMacRewriteEntryDelAll(); },
       [](S s) { s.host.rewrite("red", "10.0.1.1", "02:00:00:00:01:01"); }},
      {"the agent's configuration of a VRF goes", kRunning,
       [](S s) {
         s.host.mount->bfnMacRewriteAgentConfig()->overlaySrcMacRewriteDel(Pex::VrfId(7));
       }},
      {"the rows are shown", kRunning, [](S s) { s.shown(); }},
  };
}

std::vector<FaultEvent> all() {
  std::vector<FaultEvent> events;
  for (auto const& part : {bringUp(), vrfs(), routing(), local(), lines()}) {
    events.insert(events.end(), part.begin(), part.end());
  }
  return events;
}

}  // namespace

std::vector<FaultEvent> const& faultEvents() {
  static std::vector<FaultEvent> const events = all();
  return events;
}

std::vector<FaultEvent> const& aftermath() {
  constexpr Stage kRunning = Stage::Running;
  static std::vector<FaultEvent> const events{
      {"stages 1 and 2 run again", kRunning,
       [](S s) {
         if (!s.host.agent) return;
         s.stage1();
         s.host.stage2();
       }},
      {"a line comes", kRunning,
       [](S s) { s.host.rewrite("red", "10.0.7.1", "02:00:00:00:0a:01"); }},
      {"an address comes", kRunning, [](S s) { s.host.address(7, "10.0.7.1", "Ethernet1"); }},
      {"another MAC", kRunning,
       [](S s) { s.host.rewrite("red", "10.0.7.1", "02:00:00:00:0a:02"); }},
      {"an address of blue", kRunning, [](S s) { s.host.address(8, "10.0.7.2", "Ethernet2"); }},
      {"a forwarding VLAN", kRunning, [](S s) { s.host.route("red", 7, 320); }},
      {"an interface goes", kRunning, [](S s) { s.host.portDel("Ethernet1"); }},
      {"an interface returns", kRunning, [](S s) { s.host.port("Ethernet1", 100, 7); }},
      {"a VRF goes", kRunning, [](S s) { s.host.l3Status->vrfDel(red()); }},
      {"a VRF returns", kRunning, [](S s) { s.host.vrf("red", 7); }},
      {"addresses go", kRunning,
       [](S s) {
         for (unsigned const id : {7u, 8u}) {
           auto* const status = addresses(s)->vrfStatus(Pex::VrfId(id));
           if (status != nullptr) status->ipAndIntfIdDelAll();
         }
       }},
      {"lines go", kRunning, [](S s) { s.host.cliConfig->overlaySrcMacRewriteEntryDelAll(); }},
      {"the agent goes", kRunning, [](S s) { s.host.agent.reset(); }},
  };
  return events;
}

}  // namespace BfnTest
