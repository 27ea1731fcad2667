// SPDX-License-Identifier: Apache-2.0
#include "host/dumps/Dumps.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <tuple>

#include "framework/core/AllocTrack.h"
#include "framework/core/Strep.h"
#include "framework/log/LogService.h"
#include "framework/platform/OverlaySrcMacRewriteMatchSpec.h"
#include "framework/values/VrfAndIpAddr.h"
#include "host/switch/Switch.h"

namespace Host {

using nlohmann::json;

namespace {

// A value as people write it: names without their quotes.
template <class T>
std::string shown(T const& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

std::string unquoted(Kiv::GenericValue const& strep) {
  return std::string(Kiv::strepToValue<L3::VrfName>(strep.strep()).view());
}
std::string intfOf(Kiv::GenericValue const& strep) {
  return std::string(Kiv::strepToValue<Ovra::IntfId>(strep.strep()).view());
}
Kiv::U64 numberIn(Kiv::GenericValue const& strep) {
  return Kiv::strepToValue<Kiv::U64>(strep.strep());
}

std::string pairText(Kiv::GenericValue const& strep) {
  auto const pair = Kiv::strepToValue<Pex::VrfAndIpAddr>(strep.strep());
  return shown(pair.vrfId()) + ' ' + shown(pair.ipAddr());
}

std::string sourceText(BfnChip::AddressBytes const& bytes) {
  return shown(Ovra::IpAddr(Kiv::U32{bytes[0]} << 24 | Kiv::U32{bytes[1]} << 16 |
                            Kiv::U32{bytes[2]} << 8 | Kiv::U32{bytes[3]}));
}

json keyFields(BfnChip::KeyBytes const& key) {
  auto const fields = BfnChip::RewriteLayout::fields(key);
  return {{"matchType", fields.matchType},
          {"sip", sourceText(fields.source)},
          {"valid", fields.valid},
          {"vlan", fields.vlan}};
}

[[noreturn]] void throwUnread(BfnDriver::TableDriver const& driver) {
  throw std::runtime_error("the chip's rows could not be read" +
                           (driver.lastError().empty() ? "" : ": " + driver.lastError()));
}

/// The rewrite table as the dumps see it. Device 0's is there in every chip.
std::optional<BfnDriver::TableHandle> opened(BfnDriver::TableDriver& driver) {
  constexpr Kiv::U32 kOwnSession = ~Kiv::U32{0};
  return driver.open({kOwnSession, 0, {}, "", BfnChip::ChipModel::kRewriteTable});
}

/// The rewrite table's rows by VLAN and address, and their hits, as the driver gives them; no hits
/// where the chip does not count.
std::vector<BfnChip::Row> rowsOf(BfnDriver::TableDriver& driver) {
  auto const table = opened(driver);
  if (!table) return {};
  constexpr size_t kRoom = 1024;
  std::vector<BfnChip::KeyBytes> keys(kRoom);
  std::vector<BfnChip::ActionBytes> actions(kRoom);
  std::vector<BfnChip::Row> rows;
  BfnDriver::WalkCursor cursor;
  while (!cursor.ended) {
    size_t count = 0;
    auto const walked = driver.walk(*table, cursor, {keys.data()->data(), sizeof keys[0] * kRoom},
                                    {actions.data()->data(), sizeof actions[0] * kRoom}, count);
    if (walked != BfnDriver::Status::Ok) throwUnread(driver);
    for (size_t i = 0; i < count; ++i) {
      BfnChip::Row row{keys[i], actions[i], 0};
      if (driver.rowHits(*table, row.key, row.hits) == BfnDriver::Status::Error)
        throwUnread(driver);
      rows.push_back(row);
    }
  }
  std::ranges::sort(
      rows, {}, [](BfnChip::Row const& row) { return BfnChip::RewriteLayout::fields(row.key); });
  return rows;
}

struct Address {
  Ovra::IpAddr ip;
  Ovra::IntfId intf;
  bool self;
};
Address addressOf(Kiv::String const& strep) {
  auto it = strep.begin();
  auto const end = strep.end();
  Kiv::StrepReader in(it, end, "BfnMacRewrite::Agent::IpAndIntfId");
  auto const ip = in.field<Ovra::IpAddr>("ipAddr");
  auto const intf = in.field<Ovra::IntfId>("intfId");
  return {ip, intf, in.field<bool>("selfIp")};
}

// By VRF id and address: the addresses and their interfaces.
json agentStatus(Object const& status) {
  if (!status) return nullptr;
  json vrfs = json::object();
  forEach(status, "vrfStatus", [&](Kiv::GenericValue const& id, Kiv::GenericValue const& vrf) {
    json& addresses = vrfs[id.strep().stdString()] = json::object();
    forEach(objectOf(vrf), "ipAndIntfId",
            [&](Kiv::GenericValue const&, Kiv::GenericValue const& value) {
              Address const address = addressOf(value.strep());
              addresses[shown(address.ip)] = {{"interface", address.intf.view()},
                                              {"self", address.self}};
            });
  });
  return vrfs;
}

json routingStatus(Switch const& host, std::string_view which) {
  auto const status = host.routingStatus(which);
  if (!status) return nullptr;
  json list = json::array();
  std::vector<BfnL3::L3IntfRoutingStatus const*> sorted;
  for (auto const& each : status->l3IntfRoutingStatus()) sorted.push_back(&*each);
  std::ranges::sort(sorted, {}, [](auto const* each) { return each->intfAndVlan(); });
  for (auto const* const each : sorted) {
    list.push_back({{"interface", each->intfAndVlan().intfId().view()},
                    {"keyVlan", each->intfAndVlan().vlanId()},
                    {"vlan", each->vlanId()},
                    {"vrfId", each->vrfId().value()}});
  }
  return list;
}

json vrfs(Switch const& host) {
  auto const status = host.l3Status();
  if (!status) return nullptr;
  json nameToId = json::object();
  for (auto const& entry : status->vrfNameToId()) {
    nameToId[std::string(entry.key.view())] = entry.value.value();
  }
  json idToName = json::object();
  for (auto const& entry : status->vrfName()) idToName[shown(entry.key)] = entry.value.view();
  return {{"idToName", idToName}, {"nameToId", nameToId}};
}

json routes(Switch const& host) {
  if (!host.routeStatus) return nullptr;
  json byVrf = json::object();
  for (auto const& vrf : host.routeStatus->vrfStatus()) {
    byVrf[std::string(vrf->vrfName().view())] = {{"forwardingVlan", vrf->fwdVlanId()},
                                                 {"vrfId", vrf->vrfId()}};
  }
  return byVrf;
}

json profiles(Switch const& host) {
  json byName = json::object();
  for (auto const& profile : host.systemStatus->profileInfo()) {
    auto const capabilities = profile->chipCapabilities();
    byName[profile->profileName().stdString()] = {
        {"rewriteSupported", capabilities.overlaySrcMacRewriteSupported},
        {"tableSize", capabilities.overlaySrcMacRewriteTableSize}};
  }
  return byName;
}

}  // namespace

ConfigLine configLineOf(Kiv::String const& strep) {
  auto it = strep.begin();
  auto const end = strep.end();
  Kiv::StrepReader in(it, end, "BfnMacRewrite::Input::VrfIpAndMac");
  ConfigLine line;
  line.vrfName = in.field<L3::VrfName>("vrfName");
  line.ip = in.field<Ovra::IpAddr>("ip");
  line.mac = in.field<Ovra::EthAddr>("mac");
  return line;
}

std::vector<ConfigLine> configLines(Switch const& host) {
  std::vector<ConfigLine> lines;
  Object const& config = host.cliConfig();
  if (!config) return lines;
  forEach(config, "overlaySrcMacRewriteEntry",
          [&](Kiv::GenericValue const&, Kiv::GenericValue const& value) {
            lines.push_back(configLineOf(value.strep()));
          });
  std::ranges::sort(lines, [](ConfigLine const& a, ConfigLine const& b) {
    return std::tie(a.vrfName, a.ip) < std::tie(b.vrfName, b.ip);
  });
  return lines;
}

std::string macText(BfnChip::ActionBytes const& action) {
  return shown(Ovra::EthAddr(BfnChip::RewriteLayout::newSourceMac(BfnChip::packed(action))));
}

json rowKeyJson(BfnChip::KeyBytes const& key) {
  auto const fields = BfnChip::RewriteLayout::fields(key);
  return {{"sip", sourceText(fields.source)}, {"vlan", fields.vlan}};
}

std::vector<BfnChip::Row> chipRows(Switch& host) {
  return rowsOf(host.table());
}

json dumpChip(Switch& host) {
  json rows = json::array();
  for (BfnChip::Row const& row : chipRows(host)) {
    json fields = keyFields(row.key);
    fields["mac"] = macText(row.action);
    fields["hits"] = row.hits;
    rows.push_back(std::move(fields));
  }
  return rows;
}

size_t tableCapacity(Switch& host) {
  auto const table = opened(host.table());
  return table ? host.table().capacity(*table) : 0;
}

json dumpCounters(Switch& host) {
  json counters = json::object();
  if (host.hardware() != nullptr) {
    for (auto const& [word, count] : host.hardware()->counters()) counters[word] = count;
    return counters;
  }
  auto const table = opened(host.table());
  BfnDriver::TableHits hits;
  if (table && host.table().tableHits(*table, hits) == BfnDriver::Status::Error) {
    throwUnread(host.table());
  }
  return {{"matched", hits.matched}, {"notMatched", hits.notMatched}};
}

json dumpReconciler(Switch& host) {
  Reconciler const& reconciler = *host.reconciler();
  auto const held = host.heldBecause();
  return {{"failed", reconciler.failed()},
          {"held", held ? json(*held) : json(nullptr)},
          {"waiting", reconciler.waits()},
          {"waitingForRoom", reconciler.waitingForRoom()},
          {"wanted", reconciler.wanted()}};
}

json dumpWaiting(Switch& host) {
  json changes = json::array();
  Reconciler& reconciler = *host.reconciler();
  for (size_t i = 0; i < reconciler.tables(); ++i) {
    for (WaitingChange const& each : reconciler.table(i).waiting()) {
      json fields = keyFields(each.key);
      fields["op"] = each.removal ? "delete" : "write";
      if (!each.removal) fields["mac"] = macText(each.action);
      fields["reason"] = text(each.reason);
      if (!each.error.empty()) fields["error"] = each.error;
      changes.push_back(std::move(fields));
    }
  }
  return changes;
}

json findingsJson(std::span<Finding const> findings) {
  using Kind = Finding::Kind;
  json list = json::array();
  for (Finding const& each : findings) {
    json fields = keyFields(each.key);
    fields["finding"] = each.kind == Kind::Missing ? "missing"
                        : each.kind == Kind::Extra ? "extra"
                                                   : "different";
    if (each.kind != Kind::Extra) fields["wanted"] = macText(each.wanted);
    if (each.kind != Kind::Missing) fields["installed"] = macText(each.installed);
    list.push_back(std::move(fields));
  }
  return list;
}

json dumpJournal(Switch& host) {
  json entries = json::array();
  if (auto const dropped = host.journal().dropped(); dropped > 0) {
    entries.push_back({{"dropped", dropped}});
  }
  for (BfnChip::JournalEntry const& entry : host.journal().take()) {
    json fields = keyFields(entry.key);
    bool const write = entry.operation == BfnChip::Operation::Write;
    fields["op"] = write ? "write" : "delete";
    if (write) fields["mac"] = macText(entry.action);
    fields["result"] = shown(entry.outcome);
    entries.push_back(std::move(fields));
  }
  return entries;
}

json dumpRecords(Switch const& host) {
  Object const manager = host.part("overlaySrcMacRewriteManager");
  if (!manager) return nullptr;
  std::vector<std::tuple<Ovra::IpAddr, Ovra::IntfId, json>> sorted;
  forEach(manager, "matchSpecAndRefCount",
          [&](Kiv::GenericValue const& key, Kiv::GenericValue const& value) {
            Address const address = addressOf(key.strep());
            Object const record = objectOf(value);
            Object const spec = getObject(record, "overlaySrcMacRewriteMatchSpec");
            sorted.emplace_back(
                address.ip, address.intf,
                json{{"interface", address.intf.view()},
                     {"ip", shown(address.ip)},
                     {"refCount", numberIn(get(record, "refCount"))},
                     {"vlan", spec ? json(numberIn(get(spec, "vlan"))) : json(nullptr)}});
          });
  std::ranges::sort(sorted, [](auto const& a, auto const& b) {
    return std::tie(std::get<0>(a), std::get<1>(a)) < std::tie(std::get<0>(b), std::get<1>(b));
  });
  json records = json::array();
  for (auto& each : sorted) records.push_back(std::move(std::get<2>(each)));
  return records;
}

json dumpIndexes(Switch const& host) {
  Object const machine = host.part("bfnMacRewriteSm");
  if (!machine) return nullptr;
  json vrfIpToIntf = json::object();
  forEach(machine, "localVrfIpToIntf",
          [&](Kiv::GenericValue const& key, Kiv::GenericValue const& intf) {
            vrfIpToIntf[pairText(key)] = intfOf(intf);
          });
  json intfToVrfIp = json::object();
  forEach(machine, "localIntfToVrfIp",
          [&](Kiv::GenericValue const& key, Kiv::GenericValue const& pairs) {
            std::vector<Pex::VrfAndIpAddr> sorted;
            forEach(objectOf(pairs), "vrfAndIpAddr",
                    [&](Kiv::GenericValue const& pair, Kiv::GenericValue const&) {
                      sorted.push_back(Kiv::strepToValue<Pex::VrfAndIpAddr>(pair.strep()));
                    });
            std::ranges::sort(sorted);
            json& list = intfToVrfIp[intfOf(key)] = json::array();
            for (auto const& pair : sorted) {
              list.push_back(shown(pair.vrfId()) + ' ' + shown(pair.ipAddr()));
            }
          });
  json fwdVlans = json::object();
  forEach(machine, "fwdVlanIdPerVrf",
          [&](Kiv::GenericValue const& vrfId, Kiv::GenericValue const& vlan) {
            fwdVlans[vrfId.strep().stdString()] = numberIn(vlan);
          });
  return {{"fwdVlanIdPerVrf", fwdVlans},
          {"localIntfToVrfIp", intfToVrfIp},
          {"localVrfIpToIntf", vrfIpToIntf}};
}

json dumpConfig(Switch const& host) {
  json byVrf = nullptr;
  if (Object const config = host.agentConfig()) {
    byVrf = json::object();
    forEach(config, "overlaySrcMacRewrite",
            [&](Kiv::GenericValue const& id, Kiv::GenericValue const& vrf) {
              json& macs = byVrf[id.strep().stdString()] = json::object();
              forEach(objectOf(vrf), "ipAndMac",
                      [&](Kiv::GenericValue const&, Kiv::GenericValue const& value) {
                        Kiv::String const& strep = value.strep();
                        auto it = strep.begin();
                        auto const end = strep.end();
                        Kiv::StrepReader in(it, end, "BfnMacRewrite::IpAndMac");
                        auto const ip = in.field<Ovra::IpAddr>("ip");
                        macs[shown(ip)] = shown(in.field<Ovra::EthAddr>("mac"));
                      });
            });
  }
  json nameToId = nullptr;
  if (Object const machine = host.part("overlaySrcMacRewriteCliConfigSm")) {
    nameToId = json::object();
    forEach(machine, "localVrfNameToId",
            [&](Kiv::GenericValue const& name, Kiv::GenericValue const& id) {
              nameToId[unquoted(name)] = numberIn(id);
            });
  }
  return {{"agentConfig", byVrf}, {"localVrfNameToId", nameToId}};
}

json dumpInputs(Switch const& host) {
  json cliConfig = nullptr;
  if (host.cliConfig()) {
    cliConfig = json::array();
    for (ConfigLine const& line : configLines(host)) {
      cliConfig.push_back(
          {{"ip", shown(line.ip)}, {"mac", shown(line.mac)}, {"vrf", line.vrfName.view()}});
    }
  }
  Object const output = host.bfnL3Output();
  auto const entry =
      Kiv::ptrCast<BfnAgentLib::BfnProfileDataEntry>(getObject(output, "profileEntry"));
  return {{"agentStatus", agentStatus(host.agentStatus())},
          {"cliConfig", cliConfig},
          {"initMacRewriteTables", getText(output, "initMacRewriteTables") == "True"},
          {"l3Status", vrfs(host)},
          {"portStatus", routingStatus(host, "port")},
          {"profileEntry", entry ? json(entry->profileName().stdString()) : json(nullptr)},
          {"profileName", getText(output, "profileName")},
          {"profiles", profiles(host)},
          {"routeStatus", routes(host)},
          {"startMacRewriteSm", getText(output, "startMacRewriteSm") == "True"},
          {"subinterfaceStatus", routingStatus(host, "subinterface")},
          {"vlanStatus", routingStatus(host, "vlan")}};
}

json dumpCapability(Switch const& host) {
  Object const capability = host.capability();
  if (!capability) return nullptr;
  return {{"overlaySrcMacRewriteSupported",
           getText(capability, "overlaySrcMacRewriteSupported") == "True"}};
}

json dumpStats(Switch const& host) {
  if (!host.part("overlaySrcMacRewriteManager") ||
      !getObject(host.part("overlaySrcMacRewriteManager"), "overlaySrcMacRewriteTable")) {
    return nullptr;
  }
  auto const stats = host.tableManager()->createCliTableStats("overlaySrcMacRewrite");
  return {{"capacity", stats.capacity},
          {"entriesInUse", stats.entriesInUse},
          {"highWatermark", stats.highWatermark}};
}

json dumpLog() {
  json messages = json::array();
  for (Kiv::LogMessage const& message : Kiv::LogService::recent()) {
    messages.push_back({{"heldBack", message.heldBack},
                        {"name", message.name},
                        {"severity", Kiv::name(message.severity)},
                        {"text", message.text},
                        {"time", message.time}});
  }
  return messages;
}

json dumpObjects() {
  json live = json::object();
  for (Kiv::AllocTrackTypeInfo const& type : Kiv::AllocTrackTypeInfo::snapshot()) {
    if (type.live() != 0) live[type.typeName] = type.live();
  }
  return live;
}

}  // namespace Host
