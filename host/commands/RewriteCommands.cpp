// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>
#include <set>
#include <sstream>

#include "chip/RewriteLayout.h"
#include "host/commands/Commands.h"
#include "host/dumps/Dumps.h"
#include "host/explain/Explain.h"
#include "host/language/InputError.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

using nlohmann::json;

template <class T>
std::string inWords(T const& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

std::string inWordsOr(json const& value, char const* otherwise) {
  if (value.is_null()) return otherwise;
  return value.is_string() ? value.get<std::string>() : value.dump();
}

BfnChip::KeyBytes keyOf(Kiv::U16 vlan, Ovra::IpAddr ip) {
  Kiv::U32 const value = ip.value();
  BfnChip::AddressBytes const source{static_cast<Kiv::U8>(value >> 24),
                                     static_cast<Kiv::U8>(value >> 16),
                                     static_cast<Kiv::U8>(value >> 8), static_cast<Kiv::U8>(value)};
  return BfnChip::unpacked(BfnChip::RewriteLayout::packetKey(vlan, source));
}

// --- In detail

struct Filter {
  std::optional<L3::VrfName> vrf;
  std::optional<Ovra::IpAddr> ip;
  std::optional<Ovra::EthAddr> mac;

  /// As without "detail": the MAC counts only when it is the only filter.
  bool keeps(L3::VrfName const& itsVrf, Ovra::IpAddr itsIp,
             std::optional<InstalledRow> const& row) const {
    if (vrf && itsVrf != *vrf) return false;
    if (ip && itsIp != *ip) return false;
    return vrf || ip || !mac || (row && row->mac == *mac);
  }
};

struct DetailRow {
  L3::VrfName vrf;
  Ovra::IpAddr ip;
  Ovra::IntfId intf;
  Kiv::U16 vlan = 0;
  Kiv::U16 references = 0;
};

std::vector<DetailRow> recordsOf(BfnMacRewrite::OverlaySrcMacRewriteManager const& manager) {
  std::vector<DetailRow> rows;
  for (auto const& record : manager.matchSpecAndRefCount()) {
    auto const& key = record->ipAndIntfId();
    auto const& spec = record->overlaySrcMacRewriteMatchSpec();
    // A row may have outlived its interface's routing status, and then has no VRF.
    auto const& statuses = manager.intfIdToRoutingStatus();
    auto const* const status = statuses ? statuses->l3IntfRoutingStatus(key.intfId) : nullptr;
    L3::VrfName const vrf = status != nullptr && manager.l3Status()
                                ? manager.l3Status()->vrfName(status->vrfId())
                                : L3::VrfName();
    rows.push_back(
        {vrf, key.ipAddr, key.intfId, spec ? spec->vlan() : Kiv::U16{0}, record->refCount()});
  }
  std::ranges::sort(rows, [](DetailRow const& a, DetailRow const& b) {
    return std::tie(a.vrf, a.ip, a.intf) < std::tie(b.vrf, b.ip, b.intf);
  });
  return rows;
}

Answer showDetail(Switch& host, Arguments const& given) {
  if (!host.hasAgent()) throw InputError("there is no agent; host agent create makes one");
  FactFinder const finder(factSources(host));
  auto const& manager = finder.sources().agent->overlaySrcMacRewriteManager();
  if (!manager)
    throw InputError("there is no table manager; a change of host init-tables makes one");
  Filter filter;
  if (given.has("vrf")) filter.vrf = L3::VrfName(given.text("vrf"));
  if (given.has("src-ip")) filter.ip = given.ip("src-ip");
  // The first src-mac is the keyword of the command itself; a filter's value is no keyword.
  if (given.text("src-mac") != "src-mac") filter.mac = given.mac("src-mac");
  json rows = json::array();
  std::string text =
      "VRF name        Source IP        Source MAC         VLAN  Interface        Refs       Hits  "
      "Written";
  for (DetailRow const& row : recordsOf(*manager)) {
    auto const installed = finder.installed(row.vlan, row.ip);
    if (!filter.keeps(row.vrf, row.ip, installed)) continue;
    auto const written = host.lastWrite(keyOf(row.vlan, row.ip));
    json one = {{"hits", installed && installed->hits ? json(*installed->hits) : json()},
                {"interface", row.intf.view()},
                {"references", row.references},
                {"sinceWrite", installed && written ? json(host.clock->now() - *written) : json()},
                {"sip", inWords(row.ip)},
                {"smac", installed ? json(inWords(installed->mac)) : json()},
                {"vlan", row.vlan},
                {"vrfName", row.vrf.view()}};
    char line[160];
    std::snprintf(line, sizeof line, "\n%-15s %-16s %-18s %-5u %-16s %-5u %9s  ",
                  std::string(row.vrf.view()).c_str(), inWords(row.ip).c_str(),
                  inWordsOr(one["smac"], "-").c_str(), unsigned{row.vlan},
                  std::string(row.intf.view()).c_str(), unsigned{row.references},
                  inWordsOr(one["hits"], "-").c_str());
    text += line;
    if (one["sinceWrite"].is_null()) {
      text += '-';
    } else {
      std::snprintf(line, sizeof line, "%.0f s ago", one["sinceWrite"].get<double>());
      text += line;
    }
    rows.push_back(std::move(one));
  }
  text += '\n' + std::to_string(rows.size()) + (rows.size() == 1 ? " row" : " rows");
  return {rows, text};
}

// --- Configured against installed

class Differences {
 public:
  explicit Differences(Switch& host) : host_(host), finder_(factSources(host)) {}

  json take() {
    for (ConfigLine const& line : configLines(host_)) {
      add(finder_.ofVrf(line.vrfName, line.ip));
      if (auto const id = lastId_) explained_.insert({*id, line.ip});
    }
    for (Pex::VrfAndIpAddr const& pair : finder_.indexed()) {
      if (explained_.contains(pair)) continue;
      add(finder_.ofVrfId(pair.vrfId(), pair.ipAddr()));
    }
    for (BfnChip::Row const& row : chipRows(host_)) {
      if (known_.contains(BfnChip::packed(row.key))) continue;
      json one = rowKeyJson(row.key);
      add("without-a-line", {}, std::move(one), nullptr, macText(row.action), Reason::LeftOver,
          "a row left over: no address of the agent leads to it");
    }
    return std::move(list_);
  }

 private:
  void add(PairFacts const& facts) {
    lastId_ = facts.vrfId;
    if (facts.record) known_.insert(BfnChip::packed(keyOf(facts.record->vlan, facts.ip)));
    Reason const reason = reasonOf(facts);
    if (reason == Reason::None) return;
    // What is neither configured nor installed differs in nothing.
    if (!facts.line && !facts.installed) return;
    char const* finding = "not-installed";
    if (facts.installed && facts.installed->mac == Ovra::EthAddr()) {
      finding = "all-zero-mac";
    } else if (facts.installed && !facts.line) {
      finding = "without-a-line";
    } else if (facts.installed) {
      finding = facts.installed->mac == *facts.line ? "left-over" : "other-mac";
    }
    std::string vrf;
    if (facts.vrfName) {
      vrf = std::string(facts.vrfName->view());
    } else if (facts.vrfId) {
      vrf = "id " + inWords(*facts.vrfId);
    }
    json one = {{"sip", inWords(facts.ip)},
                {"vlan", facts.record ? json(facts.record->vlan) : json()}};
    add(finding, vrf, std::move(one), facts.line ? json(inWords(*facts.line)) : json(),
        facts.installed ? json(inWords(facts.installed->mac)) : json(), reason,
        sentenceOf(reason, facts));
  }

  void add(std::string const& finding, std::string const& vrf, json one, json const& configured,
           json const& installed, Reason reason, std::string const& why) {
    one["finding"] = finding;
    one["vrf"] = vrf;
    one["configured"] = configured;
    one["installed"] = installed;
    one["reason"] = codeOf(reason);
    one["why"] = why;
    list_.push_back(std::move(one));
  }

  Switch& host_;
  FactFinder const finder_;
  json list_ = json::array();
  std::optional<Pex::VrfId> lastId_;
  std::set<Pex::VrfAndIpAddr> explained_;
  std::set<Kiv::U64> known_;
};

Answer showDifferences(Switch& host) {
  json const list = Differences(host).take();
  if (list.empty()) return {list, "no differences: what is configured is installed"};
  std::string text =
      "VRF name        Source IP        VLAN  Configured         Installed          Finding";
  std::string marks(1, ' ');
  for (json const& one : list) {
    char line[160];
    std::snprintf(line, sizeof line, "\n%-15s %-16s %-5s %-18s %-18s ",
                  one["vrf"].get_ref<std::string const&>().c_str(),
                  one["sip"].get_ref<std::string const&>().c_str(),
                  inWordsOr(one["vlan"], "-").c_str(), inWordsOr(one["configured"], "-").c_str(),
                  inWordsOr(one["installed"], "-").c_str());
    text += line + one["why"].get<std::string>();
    // From what is installed to what is configured.
    marks += one["installed"].is_null() ? '+' : one["configured"].is_null() ? '-' : '~';
  }
  return {list,
          text + '\n' + std::to_string(list.size()) +
              (list.size() == 1 ? " difference" : " differences"),
          marks + ' '};
}

}  // namespace

CommandGroup rewriteCommands(Switch& host) {
  CommandGroup group{"rewrites", {}};
  auto& add = group.commands;
  add.emplace_back(
      "show vxlan forwarding src-mac rewrite detail [vrf <VRF>] [src-ip <IP>] [src-mac <MAC>]",
      "the programmed rewrites with VLAN, interface, references, hits, and the time since the last "
      "write",
      "show vxlan forwarding src-mac rewrite detail vrf red",
      [&host](Arguments const& given) { return showDetail(host, given); });
  add.emplace_back("show rewrite differences",
                   "what is configured against what is installed, and why they differ",
                   "show rewrite differences",
                   [&host](Arguments const&) { return showDifferences(host); });
  return group;
}

}  // namespace Host
