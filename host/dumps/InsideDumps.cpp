// SPDX-License-Identifier: Apache-2.0
#include <map>
#include <string>

#include "framework/core/Strep.h"
#include "host/dumps/Dumps.h"
#include "host/switch/Switch.h"

namespace Host {

using nlohmann::json;

json dumpRoutingStatus(Switch const& host) {
  Object const merged = host.part("intfIdToRoutingStatus");
  if (!merged) return nullptr;
  json byInterface = json::object();
  forEach(merged, "l3IntfRoutingStatus",
          [&](Kiv::GenericValue const& key, Kiv::GenericValue const& value) {
            auto const status = Kiv::ptrCast<BfnL3::L3IntfRoutingStatus>(objectOf(value));
            auto const intf = Kiv::strepToValue<Ovra::IntfId>(key.strep());
            byInterface[std::string(intf.view())] = {{"keyVlan", status->intfAndVlan().vlanId()},
                                                     {"vlan", status->vlanId()},
                                                     {"vrfId", status->vrfId().value()}};
          });
  return byInterface;
}

json dumpTables(Switch const& host) {
  json tables = json::array();
  auto const entry =
      Kiv::ptrCast<BfnAgentLib::BfnProfileDataEntry>(getObject(host.bfnL3Output(), "profileEntry"));
  if (entry) {
    for (BfnAgentLib::HwTable const& table : entry->tableList()->hwTables()) {
      tables.push_back(
          {{"hasManager", table.manager != nullptr},
           {"hasStats", table.hasStats},
           {"name", table.name.stdString()},
           {"needsInitialization", table.needsInitialization},
           {"persistent", table.persistent},
           {"scope", table.scope == BfnAgentLib::TableScope::Device ? "device" : "pipe"}});
    }
  }
  auto const manager = host.tableManager();
  return {{"initTableDone", manager ? json(manager->initTableDone()) : json(nullptr)},
          {"pending", manager ? json(manager->pendingTableCount()) : json(nullptr)},
          {"tables", entry ? tables : json(nullptr)}};
}

namespace {

json reactorsOf(Object const& record) {
  return record ? json(record->notifieeList().size()) : json(nullptr);
}

// The same of each member of a collection of records, by what `name` makes of its key.
template <class Name>
json reactorsOfMembers(Object const& owner, std::string_view attribute, Name const& name) {
  if (!owner) return nullptr;
  json all = json::object();
  forEach(owner, attribute, [&](Kiv::GenericValue const& key, Kiv::GenericValue const& value) {
    all[name(key)] = reactorsOf(objectOf(value));
  });
  return all;
}

std::string plain(Kiv::GenericValue const& key) {
  return key.strep().stdString();
}
std::string vrfName(Kiv::GenericValue const& key) {
  return Kiv::strepToValue<L3::VrfName>(key.strep()).stdString();
}

}  // namespace

json dumpReactors(Switch const& host) {
  return {{"agentConfig", reactorsOf(host.agentConfig())},
          {"agentConfigVrfs", reactorsOfMembers(host.agentConfig(), "overlaySrcMacRewrite", plain)},
          {"agentStatus", reactorsOf(host.agentStatus())},
          {"agentStatusVrfs", reactorsOfMembers(host.agentStatus(), "vrfStatus", plain)},
          {"capability", reactorsOf(host.capability())},
          // Of what the plug-in has mounted.
          {"cliConfig", reactorsOf(getObject(host.mount(), "bfnMacRewriteCliConfig"))},
          {"l3Output", reactorsOf(host.bfnL3Output())},
          {"l3Status", reactorsOf(host.l3Status())},
          {"mergedRoutingStatus", reactorsOf(host.part("intfIdToRoutingStatus"))},
          {"portStatus", reactorsOf(host.routingStatus("port"))},
          {"routeStatus", reactorsOf(host.routeStatus)},
          {"routeStatusVrfs", reactorsOfMembers(host.routeStatus, "vrfStatus", vrfName)},
          {"subinterfaceStatus", reactorsOf(host.routingStatus("subinterface"))},
          {"systemStatus", reactorsOf(host.systemStatus)},
          {"vlanStatus", reactorsOf(host.routingStatus("vlan"))}};
}

}  // namespace Host
