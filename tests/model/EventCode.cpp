// SPDX-License-Identifier: Apache-2.0
#include <sstream>

#include "tests/model/Event.h"

// Events as the statements of a test, so that a sequence that differs can be pasted into one.
namespace BfnTest {

namespace {

using std::to_string;

std::string at(char const* array, int index) {
  return index == kNone ? "nullptr" : std::string(array) + "[" + to_string(index) + "]";
}
std::string l3(int index) {
  return at("world.l3", index) + "->";
}
std::string routing(int index) {
  return at("world.routing", index) + "->";
}
std::string cli(int index) {
  return at("world.cli", index) + "->";
}
std::string text(bool value) {
  return value ? "true" : "false";
}
std::string status(bool watched) {
  return "world.status(" + text(watched) + ")";
}
std::string vrfName(int index) {
  return std::string("L3::VrfName(\"") + kNameText[index] + "\")";
}
std::string number(int index) {
  return to_string(kIdValue[index]) + "u";
}
std::string vrfId(int index) {
  return "Pex::VrfId(" + number(index) + ")";
}
std::string ipCode(int index) {
  return "ip(\"" + ipText(index) + "\")";
}
std::string vlan(int index) {
  return to_string(kVlanValue[index]);
}
std::string intfCode(int index) {
  return std::string("Ovra::IntfId(\"") + kIntfText[index] + "\")";
}
std::string key(int intf, int keyVlan) {
  return "{" + intfCode(intf) + ", " + to_string(kKeyVlanValue[keyVlan]) + "}";
}
std::string fault(int count, int how) {
  return "(" + to_string(count) + ", {static_cast<BfnChip::Fault::Kind>(" + to_string(how) +
         "), nullptr})";
}
char const* const kOutput = "world.l3Shared->bfnL3Output()->";

struct Code {
  std::string operator()(event::NameToId const& e) const {
    return l3(e.l3) + "vrfNameToIdIs(" + vrfName(e.name) + ", " + vrfId(e.id) + ")";
  }
  std::string operator()(event::NameToIdDel const& e) const {
    return l3(e.l3) + "vrfNameToIdDel(" + vrfName(e.name) + ")";
  }
  std::string operator()(event::IdToName const& e) const {
    return l3(e.l3) + "vrfNameIs(" + vrfId(e.id) + ", " + vrfName(e.name) + ")";
  }
  std::string operator()(event::IdToNameDel const& e) const {
    return l3(e.l3) + "vrfNameDel(" + vrfId(e.id) + ")";
  }
  std::string operator()(event::Vrf const& e) const {
    return l3(e.l3) + "vrfIs(" + vrfName(e.name) + ", " + vrfId(e.id) + ")";
  }
  std::string operator()(event::VrfDel const& e) const {
    return l3(e.l3) + "vrfDel(" + vrfName(e.name) + ")";
  }

  std::string operator()(event::Routing const& e) const {
    return "world.routingStatus(" + to_string(e.object) + ", " + key(e.intf, e.keyVlan) + ", " +
           vlan(e.vlan) + ", " + number(e.vrf) + ")";
  }
  std::string operator()(event::RoutingDel const& e) const {
    return routing(e.object) + "l3IntfRoutingStatusDel(" + key(e.intf, e.keyVlan) + ")";
  }
  std::string operator()(event::RoutingAgain const& e) const {
    return routing(e.object) + "l3IntfRoutingStatusRenotify(" + key(e.intf, e.keyVlan) + ")";
  }
  std::string operator()(event::RoutingVlan const& e) const {
    return "world.routingVlan(" + to_string(e.object) + ", " + key(e.intf, e.keyVlan) + ", " +
           vlan(e.vlan) + ")";
  }
  std::string operator()(event::RoutingOther const& e) const {
    return routing(e.object) + "routingEnabledIs(!" + routing(e.object) + "routingEnabled())";
  }
  std::string operator()(event::RoutingDelAll const& e) const {
    return routing(e.object) + "l3IntfRoutingStatusDelAll()";
  }

  std::string operator()(event::Address const& e) const {
    return status(e.watched) + "->vrfStatusIs(" + vrfId(e.vrf) + ")->ipAndIntfIdIs({" +
           ipCode(e.ip) + ", " + intfCode(e.intf) + ", " + text(e.self) + "})";
  }
  std::string operator()(event::AddressDel const& e) const {
    return "world.addressDel(" + text(e.watched) + ", " + vrfId(e.vrf) + ", " + ipCode(e.ip) + ")";
  }
  std::string operator()(event::AddressDelAll const& e) const {
    return "world.addressDelAll(" + text(e.watched) + ", " + vrfId(e.vrf) + ")";
  }
  std::string operator()(event::VrfStatus const& e) const {
    return status(e.watched) + "->vrfStatusIs(" + vrfId(e.vrf) + ")";
  }
  std::string operator()(event::VrfStatusDel const& e) const {
    return status(e.watched) + "->vrfStatusDel(" + vrfId(e.vrf) + ")";
  }
  std::string operator()(event::VrfStatusDelAll const& e) const {
    return status(e.watched) + "->vrfStatusDelAll()";
  }

  std::string operator()(event::Route const& e) const {
    return "world.routeIs(" + vrfName(e.name) + ", " + number(e.id) + ", " + vlan(e.vlan) + ")";
  }
  std::string operator()(event::RouteId const& e) const {
    return "world.routeIdIs(" + vrfName(e.name) + ", " + number(e.id) + ")";
  }
  std::string operator()(event::RouteVlan const& e) const {
    return "world.routeVlanIs(" + vrfName(e.name) + ", " + vlan(e.vlan) + ")";
  }
  std::string operator()(event::RouteDel const& e) const {
    return "world.routeStatus->vrfStatusDel(" + vrfName(e.name) + ")";
  }
  std::string operator()(event::RouteDelAll const&) const {
    return "world.routeStatus->vrfStatusDelAll()";
  }

  std::string operator()(event::Line const& e) const {
    return cli(e.cli) + "overlaySrcMacRewriteEntryIs({" + vrfName(e.name) + ", " + ipCode(e.ip) +
           ", mac(\"" + macText(e.mac) + "\")})";
  }
  std::string operator()(event::LineDel const& e) const {
    return cli(e.cli) + "overlaySrcMacRewriteEntryDel({" + vrfName(e.name) + ", " + ipCode(e.ip) +
           "})";
  }
  std::string operator()(event::LineDelAll const& e) const {
    return cli(e.cli) + "overlaySrcMacRewriteEntryDelAll()";
  }

  std::string operator()(event::UseL3 const& e) const {
    return "world.l3Shared->l3StatusIs(" + at("world.l3", e.l3) + ")";
  }
  std::string operator()(event::UseRouting const& e) const {
    return "world.useRouting(" + to_string(e.source) + ", " + at("world.routing", e.object) + ")";
  }
  std::string operator()(event::UseCli const& e) const {
    return "world.mount->bfnMacRewriteCliConfigIs(" + at("world.cli", e.cli) + ")";
  }
  std::string operator()(event::UseEntry const& e) const {
    return kOutput + ("profileEntryIs(" + at("world.entry", e.entry) + ")");
  }
  std::string operator()(event::NewAgentConfig const&) const { return "world.newAgentConfig()"; }
  std::string operator()(event::NoAgentConfig const&) const {
    return "world.mount->bfnMacRewriteAgentConfigDel()";
  }
  std::string operator()(event::NewAgentStatus const&) const { return "world.newAgentStatus()"; }
  std::string operator()(event::NoAgentStatus const&) const {
    return "world.mount->bfnMacRewriteAgentStatusDel()";
  }
  std::string operator()(event::UseCapability const& e) const {
    return std::string("world.mount->bfnMacRewriteCapabilityIs(") +
           (e.there ? "world.capability)" : "nullptr)");
  }

  std::string operator()(event::ProfileName const& e) const {
    return kOutput +
           std::string(e.known ? "profileNameIs(World::kProfile)" : "profileNameIs(\"unknown\")");
  }
  std::string operator()(event::Supported const& e) const {
    return "world.supportedIs(" + text(e.supported) + ")";
  }

  std::string operator()(event::Create const&) const { return "world.agentIs()"; }
  std::string operator()(event::Destroy const&) const { return "world.agent = nullptr"; }
  std::string operator()(event::Stage1 const&) const { return "world.stage1()"; }
  std::string operator()(event::Stage2 const&) const { return "world.stage2()"; }

  std::string operator()(event::Capacity const& e) const {
    return "world.chip.tableIs(BfnChip::ChipModel::kRewriteTable, " +
           to_string(kCapacity[e.capacity]) + ")";
  }
  std::string operator()(event::Resources const& e) const {
    return "world.chip.resourcesIs(" + to_string(kCapacity[e.capacity]) + ")";
  }
  std::string operator()(event::FailNext const& e) const {
    return "world.chip.faults().failNext" + fault(e.count, e.how);
  }
  std::string operator()(event::FailNth const& e) const {
    return "world.chip.faults().failNth" + fault(e.number, e.how);
  }
  std::string operator()(event::FaultsClear const&) const { return "world.chip.faults().clear()"; }

  std::string operator()(event::Clock const& e) const {
    std::ostringstream out;
    out << "world.clock += " << kClockStep[e.step];
    return out.str();
  }
};

}  // namespace

std::string toCode(Event const& event) {
  return std::visit(Code{}, event) + ";";
}

}  // namespace BfnTest
