// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <sstream>

#include "tests/model/Values.h"
#include "tests/model/World.h"

// The model's numbers against the plug-in's objects and the chip's bytes. The bytes are put
// together by hand.
namespace BfnTest {

namespace {

using Differ = std::optional<std::string>;

BfnChip::KeyBytes keyBytes(std::uint16_t vlan, int ip) {
  auto const& b = kIpBytes[ip];
  return {5,
          static_cast<std::uint8_t>(vlan & 255),
          static_cast<std::uint8_t>(vlan >> 8),
          b[0],
          b[1],
          b[2],
          b[3],
          1};
}
BfnChip::ActionBytes actionBytes(int mac) {
  auto const& b = kMacBytes[mac];
  return {b[2], b[1], b[0], 0, b[5], b[4], b[3], 0};
}

BfnChip::JournalEntry journalEntry(ChipCall const& call) {
  using From = ChipCall::Outcome;
  using To = BfnChip::Outcome;
  BfnChip::JournalEntry entry;
  entry.key = keyBytes(call.vlan, call.ip);
  if (call.mac != kNone) entry.action = actionBytes(call.mac);
  entry.operation = call.write ? BfnChip::Operation::Write : BfnChip::Operation::Erase;
  entry.outcome = call.outcome == From::Ok            ? To::Ok
                  : call.outcome == From::Full        ? To::TableFull
                  : call.outcome == From::NoResources ? To::NoSysResources
                  : call.outcome == From::Error       ? To::Error
                  : call.outcome == From::Exception   ? To::Exception
                                                      : To::NotFound;
  return entry;
}

std::string logText(LogLine const& line) {
  return "Failed to program VXLAN forwarding source MAC address rewrite action for VRF: " +
         line.vrf + " source IP: " + ipText(line.ip) + " due to hardware resource exhaustion.";
}

char const* text(Thrown thrown) {
  static constexpr char const* kTexts[] = {"nothing",      "VLAN range",    "table full",
                                           "no resources", "a table error", "a foreign exception"};
  return kTexts[static_cast<int>(thrown)];
}

std::string where(char const* what, int vrf, int ip) {
  std::ostringstream out;
  out << what << " (VRF id " << kIdValue[vrf] << ", " << ipText(ip) << ")";
  return out.str();
}

// Reports the first difference of a row of comparisons.
class Report {
 public:
  template <class A, class B>
  void equal(std::string const& what, A const& actual, B const& expected) {
    if (difference_ || actual == expected) return;
    std::ostringstream out;
    out << what << ": plug-in " << actual << ", model " << expected;
    difference_ = out.str();
  }
  Differ const& difference() const { return difference_; }
  bool found() const { return difference_.has_value(); }

 private:
  Differ difference_;
};

void chipRows(Report& report, World const& world, State const& s) {
  std::vector<BfnChip::Row> const rows = world.chip.rows();
  report.equal("rows in the chip", rows.size(), s.rows);
  size_t inModel = 0;
  for (int v = 0; v < kRowVlans; ++v) {
    for (int i = 0; i < kIps; ++i) {
      if (s.row[v][i] == kNone) continue;
      ++inModel;
      auto const key = keyBytes(static_cast<std::uint16_t>(kVlanValue[v]), i);
      auto const found = std::ranges::find(rows, key, &BfnChip::Row::key);
      bool const same = found != rows.end() && found->action == actionBytes(s.row[v][i]);
      report.equal("row " + std::to_string(kVlanValue[v]) + " " + ipText(i) + " as expected", same,
                   true);
    }
  }
  report.equal("the model's own count", s.rows, inModel);
}

void manager(Report& report, BfnMacRewrite::OverlaySrcMacRewriteManager const& actual,
             ManagerState const& expected) {
  size_t count = 0;
  for (int n = 1; n < kIntfs; ++n) {
    for (int i = 0; i < kIps; ++i) {
      if (expected.record[n][i].present) ++count;
    }
  }
  report.equal("records", actual.matchSpecAndRefCount().size(), count);
  for (auto const& record : actual.matchSpecAndRefCount()) {
    auto const& key = record->ipAndIntfId();
    int i = 0;
    while (i < kIps && !(ip(i) == key.ipAddr)) ++i;
    int n = 1;
    while (n < kIntfs && !(key.intfId == intf(n))) ++n;
    if (i == kIps || n == kIntfs || key.selfIp) {
      report.equal("a record of the universe", false, true);
      return;
    }
    RecordState const& wanted = expected.record[n][i];
    std::string const what = std::string("record ") + kIntfText[n] + " " + ipText(i);
    report.equal(what, true, wanted.present);
    report.equal(what + " references", record->refCount(), wanted.refs);
    report.equal(what + " VLAN", record->overlaySrcMacRewriteMatchSpec()->vlan(), wanted.vlan);
  }
  report.equal("table binding", actual.overlaySrcMacRewriteTable() != nullptr, expected.hasTable);
  report.equal("pending tables", int{actual.pendingTableCount()}, 0);
}

void agentConfig(Report& report, BfnMacRewrite::Agent::Config const& actual,
                 ConfigState const& expected) {
  for (int v = 0; v < kIds; ++v) {
    auto const* const record = actual.overlaySrcMacRewrite(id(v));
    report.equal("record of VRF id " + std::to_string(kIdValue[v]), record != nullptr,
                 expected.present[v]);
    if (record == nullptr || report.found()) continue;
    size_t count = 0;
    for (int i = 0; i < kIps; ++i) {
      if (expected.mac[v][i] == kNone) continue;
      ++count;
      auto const* const stored = record->ipAndMac().find(ip(i));
      report.equal(where("configured MAC", v, i),
                   stored != nullptr && stored->mac == mac(expected.mac[v][i]), true);
    }
    report.equal("configured MACs of VRF id " + std::to_string(kIdValue[v]),
                 record->ipAndMac().size(), count);
  }
}

void rewriteMachine(Report& report, World const& world, State const& s) {
  auto const& actual = world.agent->bfnMacRewriteSm();
  RewriteMachine const& expected = s.rewriteMachine;
  report.equal("rewrite machine", actual != nullptr, expected.exists);
  if (!actual || report.found()) return;
  manager(report, *actual->overlaySrcMacRewriteManager(), s.managers[expected.manager]);
  if (expected.config != kNone) {
    agentConfig(report, *actual->overlaySrcMacRewriteAgentConfig(), s.config[expected.config]);
  }
  Table<size_t, kIntfs> onIntf{};
  for (int v = 0; v < kIds; ++v) {
    std::string const vrf = " of VRF id " + std::to_string(kIdValue[v]);
    for (int i = 0; i < kIps; ++i) {
      int const at = expected.intfOf[v][i];
      if (at != 0) ++onIntf[at];
      auto const stored = actual->localVrfIpToIntf({id(v), ip(i)});
      report.equal(where("interface of", v, i), stored, intf(at));
    }
    report.equal("forwarding VLAN known" + vrf, actual->fwdVlanIdPerVrfHas(kIdValue[v]),
                 expected.fwdVlan[v] != kNone);
    if (expected.fwdVlan[v] != kNone) {
      report.equal("forwarding VLAN" + vrf, actual->fwdVlanIdPerVrf(kIdValue[v]),
                   expected.fwdVlan[v]);
    }
    report.equal("configuration reactor" + vrf, actual->agentVrfConfig(id(v)) != nullptr,
                 expected.configReactor[v]);
    report.equal("status reactor" + vrf, actual->macRewriteVrfStatus(id(v)) != nullptr,
                 expected.statusReactor[v]);
  }
  for (int n = 1; n < kIntfs; ++n) {
    auto const pairs = actual->localIntfToVrfIp(intf(n));
    report.equal(std::string("pairs on ") + kIntfText[n], pairs ? pairs->vrfAndIpAddr().size() : 0,
                 onIntf[n]);
    report.equal(std::string("a collection for ") + kIntfText[n], pairs != nullptr, onIntf[n] != 0);
  }
  for (int n = 0; n < kNames; ++n) {
    report.equal(std::string("route reactor of ") + kNameText[n],
                 actual->hwRouteVrfStatus(name(n)) != nullptr, expected.routeReactor[n].exists);
  }
}

void cliMachine(Report& report, World const& world, State const& s) {
  auto const& actual = world.agent->overlaySrcMacRewriteCliConfigSm();
  CliMachine const& expected = s.cliMachine;
  report.equal("configuration machine", actual != nullptr, expected.exists);
  if (!actual || report.found()) return;
  for (int n = 0; n < kNames; ++n) {
    L3::VrfName const vrf = name(n);
    report.equal(std::string("live ") + kNameText[n], actual->localVrfNameToIdHas(vrf),
                 expected.live[n] != kNone);
    if (expected.live[n] != kNone) {
      report.equal(std::string("id of ") + kNameText[n], actual->localVrfNameToId(vrf),
                   id(expected.live[n]));
    }
  }
  if (expected.config != kNone) {
    agentConfig(report, *actual->overlaySrcMacRewriteAgentConfig(), s.config[expected.config]);
  }
}

}  // namespace

Differ effectsDiffer(World& world, Thrown thrown, Effects const& expected) {
  Report report;
  std::vector<BfnChip::JournalEntry> actual;
  if (world.chip.journal().size() != 0) actual = world.chip.journal().take();
  for (size_t i = 0; i < std::min(actual.size(), expected.calls.size()); ++i) {
    report.equal("chip call " + std::to_string(i + 1), actual[i], journalEntry(expected.calls[i]));
  }
  report.equal("chip calls", actual.size(), expected.calls.size());
  report.equal("thrown", std::string(text(thrown)), text(expected.thrown));
  report.equal("log messages", world.logged.size(), expected.logs.size());
  for (size_t i = 0; i < expected.logs.size() && !report.found(); ++i) {
    Kiv::LogMessage const& message = world.logged[i];
    report.equal("log name", message.name, "BFN_VXLAN_MAC_REWRITE_TABLE_FULL");
    report.equal("log severity", static_cast<int>(message.severity), 4);
    report.equal("log text", message.text, logText(expected.logs[i]));
    report.equal("messages held back", message.heldBack, expected.logs[i].heldBack);
    report.equal("log time", message.time, expected.logs[i].time);
  }
  world.logged.clear();
  return report.difference();
}

Differ stateDiffers(World const& world, State const& s) {
  Report report;
  chipRows(report, world, s);
  report.equal("capability", world.capability->overlaySrcMacRewriteSupported(), s.capability);
  report.equal("agent", world.agent != nullptr, s.agent);
  if (auto const& config = world.mount->bfnMacRewriteAgentConfig()) {
    agentConfig(report, *config, s.config[s.useConfig]);
  }
  if (!world.agent || report.found()) return report.difference();

  auto const& agent = *world.agent;
  report.equal("copied capability", agent.chipCapabilities().overlaySrcMacRewriteSupported,
               s.copiedSupported);
  report.equal("table manager", agent.overlaySrcMacRewriteManager() != nullptr, s.manager != kNone);
  report.equal("collection", agent.intfIdToRoutingStatus() != nullptr, s.collection);
  report.equal("merge machine", agent.bfnMacRewriteIntfRoutingStatusSm() != nullptr,
               s.intfMachine.exists);
  if (report.found()) return report.difference();
  if (s.manager != kNone) {
    manager(report, *agent.overlaySrcMacRewriteManager(), s.managers[s.manager]);
  }
  if (s.collection) {
    for (int n = 0; n < kIntfs; ++n) {
      auto const* const stored = agent.intfIdToRoutingStatus()->l3IntfRoutingStatus(intf(n));
      auto const* const wanted = world.made[s.merged[n].serial].get();
      report.equal(std::string("the very status of '") + kIntfText[n] + "'", stored, wanted);
    }
  }
  rewriteMachine(report, world, s);
  cliMachine(report, world, s);
  return report.difference();
}

}  // namespace BfnTest
