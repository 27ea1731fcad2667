// SPDX-License-Identifier: Apache-2.0
#include "host/explain/PairFacts.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "chip/ChipModel.h"
#include "chip/RewriteLayout.h"
#include "framework/core/Strep.h"
#include "host/switch/Switch.h"

namespace Host {

namespace {

using Kiv::U16;
using Kiv::U32;
using Kiv::U64;

BfnChip::AddressBytes bytesOf(Ovra::IpAddr ip) {
  U32 const value = ip.value();
  return {static_cast<Kiv::U8>(value >> 24), static_cast<Kiv::U8>(value >> 16),
          static_cast<Kiv::U8>(value >> 8), static_cast<Kiv::U8>(value)};
}

Ovra::EthAddr macOf(BfnChip::ActionBytes const& action) {
  return Ovra::EthAddr(BfnChip::RewriteLayout::newSourceMac(BfnChip::packed(action)));
}

bool isVlan(U32 vlan) {
  return vlan >= 1 && vlan <= 4094;
}

constexpr U32 kOwnSession = ~U32{0};

}  // namespace

FactSources factSources(Switch& host) {
  using BfnMacRewrite::AgentSm;
  using BfnMacRewrite::Agent::Status;
  FactSources from;
  from.agent = Kiv::Ptr<AgentSm const>(static_cast<AgentSm const*>(host.agent().get()));
  from.cliConfig = getObject(host.mount(), "bfnMacRewriteCliConfig");
  from.agentStatus = Kiv::Ptr<Status const>(static_cast<Status const*>(host.agentStatus().get()));
  from.l3Status = host.l3Status();
  from.routeStatus = host.routeStatus;
  from.routingStatus = {host.routingStatus("port"), host.routingStatus("vlan"),
                        host.routingStatus("subinterface")};
  from.table = &host.table();
  from.reconciler = host.reconciler();
  from.heldBecause = host.heldBecause();
  return from;
}

FactFinder::FactFinder(FactSources sources) : sources_(std::move(sources)) {
  if (sources_.table != nullptr) {
    table_ = sources_.table->open({kOwnSession, 0, {}, "", BfnChip::ChipModel::kRewriteTable});
  }
}

BfnMacRewrite::BfnMacRewriteSm const* FactFinder::machine() const {
  return sources_.agent ? sources_.agent->bfnMacRewriteSm().get() : nullptr;
}

BfnMacRewrite::OverlaySrcMacRewriteCliConfigSm const* FactFinder::translator() const {
  return sources_.agent ? sources_.agent->overlaySrcMacRewriteCliConfigSm().get() : nullptr;
}

std::optional<Pex::VrfId> FactFinder::liveId(L3::VrfName vrf) const {
  auto const* const found =
      translator() == nullptr ? nullptr : translator()->localVrfNameToId().find(vrf);
  return found == nullptr ? std::nullopt : std::optional(found->value);
}

std::optional<std::string> FactFinder::lacks() const {
  if (!sources_.agent) return "there is no agent (host agent create)";
  if (!sources_.agent->overlaySrcMacRewriteManager())
    return "stage 1 has not run (host init-tables)";
  if (machine() == nullptr) {
    if (!sources_.agent->chipCapabilities().overlaySrcMacRewriteSupported) {
      return "the profile has no such table";
    }
    return "stage 2 has not run (host start)";
  }
  if (!machine()->overlaySrcMacRewriteManager()->overlaySrcMacRewriteTable()) {
    return "the table is not initialised (chip initialize-table)";
  }
  return std::nullopt;
}

void FactFinder::bringUp(PairFacts& facts) const {
  facts.lacks = lacks();
  facts.isSupported = machine() != nullptr || !sources_.agent ||
                      !sources_.agent->overlaySrcMacRewriteManager() ||
                      sources_.agent->chipCapabilities().overlaySrcMacRewriteSupported;
  facts.heldBecause = sources_.heldBecause;
}

std::optional<Ovra::EthAddr> FactFinder::lineOf(L3::VrfName vrf, Ovra::IpAddr ip) const {
  if (!sources_.cliConfig) return std::nullopt;
  Kiv::GenericValue const line = get(sources_.cliConfig, "overlaySrcMacRewriteEntry",
                                     {Kiv::StrepWriter("BfnMacRewrite::Input::VrfNameAndIp")
                                          .field("vrfName", vrf)
                                          .field("ip", ip)
                                          .close()});
  if (line.isNothing()) return std::nullopt;
  Kiv::String const strep = line.strep();
  auto it = strep.begin();
  auto const end = strep.end();
  Kiv::StrepReader in(it, end, "BfnMacRewrite::Input::VrfIpAndMac");
  in.field<L3::VrfName>("vrfName");
  in.field<Ovra::IpAddr>("ip");
  return in.field<Ovra::EthAddr>("mac");
}

L3::VrfName FactFinder::nameOf(Pex::VrfId vrf, Ovra::IpAddr ip) const {
  L3::VrfName const called = sources_.l3Status ? sources_.l3Status->vrfName(vrf) : L3::VrfName();
  if (!called.empty() && lineOf(called, ip)) return called;
  if (translator() == nullptr) return called;
  std::optional<L3::VrfName> first;
  for (auto const& entry : translator()->localVrfNameToId()) {
    if (entry.value != vrf || (first && *first < entry.key)) continue;
    if (lineOf(entry.key, ip)) first = entry.key;
  }
  return first.value_or(called);
}

PairFacts FactFinder::ofVrf(L3::VrfName vrf, Ovra::IpAddr ip) const {
  PairFacts facts;
  facts.ip = ip;
  facts.vrfName = vrf;
  facts.line = lineOf(vrf, ip);
  facts.vrfId = liveId(vrf);
  facts.vrfIsLive = facts.vrfId.has_value();
  if (!facts.vrfId && sources_.l3Status) {
    Pex::VrfId const* const published = sources_.l3Status->vrfNameToId(vrf);
    if (published != nullptr) facts.vrfId = *published;
  }
  return finished(std::move(facts));
}

PairFacts FactFinder::ofVrfId(Pex::VrfId vrf, Ovra::IpAddr ip) const {
  PairFacts facts;
  facts.ip = ip;
  facts.vrfId = vrf;
  L3::VrfName const name = nameOf(vrf, ip);
  if (!name.empty()) {
    facts.vrfName = name;
    facts.line = lineOf(name, ip);
    facts.vrfIsLive = liveId(name) == vrf;
  }
  return finished(std::move(facts));
}

PairFacts FactFinder::finished(PairFacts facts) const {
  bringUp(facts);
  if (!facts.vrfId) return facts;
  facts.translated = translatedMac(*facts.vrfId, facts.ip);
  address(facts);
  routing(facts);
  forwarding(facts);
  row(facts);
  return facts;
}

std::optional<Ovra::EthAddr> FactFinder::translatedMac(Pex::VrfId vrf, Ovra::IpAddr ip) const {
  auto const* const sm = machine();
  if (sm == nullptr) return std::nullopt;
  auto const all = sm->overlaySrcMacRewriteAgentConfig();
  auto const* const ofVrf = all ? all->overlaySrcMacRewrite(vrf) : nullptr;
  auto const* const one = ofVrf == nullptr ? nullptr : ofVrf->ipAndMac().find(ip);
  return one == nullptr ? std::nullopt : std::optional(one->mac);
}

std::optional<PairFacts::Address> FactFinder::addressOf(Pex::VrfId vrf, Ovra::IpAddr ip) const {
  auto const* const ofVrf = sources_.agentStatus ? sources_.agentStatus->vrfStatus(vrf) : nullptr;
  auto const* const one = ofVrf == nullptr ? nullptr : ofVrf->ipAndIntfId().find(ip);
  if (one == nullptr) return std::nullopt;
  return PairFacts::Address{one->intfId, one->selfIp};
}

void FactFinder::address(PairFacts& facts) const {
  facts.address = addressOf(*facts.vrfId, facts.ip);
  auto const* const sm = machine();
  if (sm == nullptr) return;
  facts.indexedOn = sm->localVrfIpToIntf({*facts.vrfId, facts.ip});
  facts.isStatusReplaced = sm->macRewriteStatus() != sources_.agentStatus;
}

void FactFinder::routing(PairFacts& facts) const {
  Ovra::IntfId intf = facts.indexedOn;
  if (!intf && facts.address) intf = facts.address->interface;
  if (machine() == nullptr || !intf) return;
  auto const merged = machine()->intfIdToRoutingStatus();
  auto const* const status = merged ? merged->l3IntfRoutingStatus(intf) : nullptr;
  if (status == nullptr) {
    facts.isRoutingStatusUnseen = isRoutingStatusUnseen(intf);
    return;
  }
  facts.routingStatus = {status->vlanId(), status->vrfId(), std::nullopt};
  for (size_t i = 0; i < sources_.routingStatus.size(); ++i) {
    auto const& from = sources_.routingStatus[i];
    if (from && from->l3IntfRoutingStatus(status->intfAndVlan()) == status) {
      facts.routingStatus->source = i;
    }
  }
}

bool FactFinder::isRoutingStatusUnseen(Ovra::IntfId intf) const {
  std::array<Kiv::Ptr<BfnL3::L3RoutingStatus const>, 3> watched;
  if (auto const& merger = sources_.agent->bfnMacRewriteIntfRoutingStatusSm()) {
    watched = {merger->l3PortAndLagRoutingStatus(), merger->vlanIntfRoutingStatus(),
               merger->l3SubIntfRoutingStatus()};
  }
  for (size_t i = 0; i < watched.size(); ++i) {
    auto const& from = sources_.routingStatus[i];
    if (!from || from == watched[i]) continue;
    for (auto const& each : from->l3IntfRoutingStatus()) {
      if (each->intfAndVlan().intfId() == intf) return true;
    }
  }
  return false;
}

void FactFinder::forwarding(PairFacts& facts) const {
  auto const* const sm = machine();
  if (sm == nullptr) return;
  facts.forwardingVlan = sm->fwdVlanIdPerVrf(facts.vrfId->value());
  bool const isNeeded = facts.address && facts.address->self && facts.forwardingVlan == 0;
  if (!isNeeded || !sources_.routeStatus) return;
  for (auto const& vrf : sources_.routeStatus->vrfStatus()) {
    bool const isOurs = vrf->vrfId() == facts.vrfId->value() &&
                        (vrf->vrfId() != 0 || vrf->vrfName().view() == "default");
    if (isOurs && vrf->fwdVlanId() != 0) facts.isForwardingVlanUnseen = true;
  }
}

std::optional<PairFacts::Record> FactFinder::recordOf(Ovra::IpAddr ip, Ovra::IntfId intf) const {
  Kiv::GenericValue const found =
      get(machine()->overlaySrcMacRewriteManager(), "matchSpecAndRefCount",
          {Kiv::StrepWriter("BfnMacRewrite::Agent::IpAndIntfId")
               .field("ipAddr", ip)
               .field("intfId", intf)
               .field("selfIp", false)
               .close()});
  Object const object = objectOf(found);
  if (!object) return std::nullopt;
  auto const& record = static_cast<BfnMacRewrite::MatchSpecAndRefCount const&>(*object);
  auto const& spec = record.overlaySrcMacRewriteMatchSpec();
  return PairFacts::Record{spec ? spec->vlan() : U16{0}, record.refCount()};
}

std::optional<InstalledRow> FactFinder::installed(U16 vlan, Ovra::IpAddr ip) const {
  if (!table_) return std::nullopt;
  auto const key = BfnChip::unpacked(BfnChip::RewriteLayout::packetKey(vlan, bytesOf(ip)));
  BfnChip::ActionBytes action{};
  BfnDriver::Status const read = sources_.table->readRow(*table_, key, action);
  if (read == BfnDriver::Status::NotFound) return std::nullopt;
  if (read != BfnDriver::Status::Ok) {
    throw std::runtime_error("the chip's rows could not be read");
  }
  InstalledRow row{macOf(action), std::nullopt};
  U64 hits = 0;
  if (sources_.table->rowHits(*table_, key, hits) == BfnDriver::Status::Ok) row.hits = hits;
  return row;
}

void FactFinder::row(PairFacts& facts) const {
  if (table_) {
    facts.isTableFull = sources_.table->entryCount(*table_) >= sources_.table->capacity(*table_);
  }
  if (machine() == nullptr || !facts.indexedOn) return;
  facts.record = recordOf(facts.ip, facts.indexedOn);
  if (!facts.record) return;
  facts.installed = installed(facts.record->vlan, facts.ip);
  U64 const key = BfnChip::RewriteLayout::packetKey(facts.record->vlan, bytesOf(facts.ip));
  if (sources_.reconciler != nullptr) {
    for (size_t i = 0; i < sources_.reconciler->tables(); ++i) {
      ReconciledTable const& table = sources_.reconciler->table(i);
      if (auto const* const wanted = table.wantedRows().find(key)) {
        facts.wanted = macOf(BfnChip::unpacked(wanted->action));
      }
      facts.waiting = table.waiting(key);
    }
  }
  if (facts.installed && facts.installed->mac != facts.macNow()) owner(facts);
}

std::vector<Pex::VrfId> FactFinder::indexed(Ovra::IpAddr ip) const {
  std::vector<Pex::VrfId> ids;
  for (auto const& entry : machine()->localVrfIpToIntf()) {
    if (entry.key.ipAddr() == ip) ids.push_back(entry.key.vrfId());
  }
  std::ranges::sort(ids);
  return ids;
}

std::vector<Pex::VrfAndIpAddr> FactFinder::indexed() const {
  std::vector<Pex::VrfAndIpAddr> pairs;
  if (machine() == nullptr) return pairs;
  for (auto const& entry : machine()->localVrfIpToIntf()) pairs.push_back(entry.key);
  std::ranges::sort(pairs);
  return pairs;
}

void FactFinder::owner(PairFacts& facts) const {
  std::ostringstream out;
  for (Pex::VrfId const other : indexed(facts.ip)) {
    if (other == *facts.vrfId) continue;
    Ovra::IntfId const intf = machine()->localVrfIpToIntf({other, facts.ip});
    auto const record = recordOf(facts.ip, intf);
    if (!record || record->vlan != facts.record->vlan) continue;
    if (translatedMac(other, facts.ip).value_or(Ovra::EthAddr()) != facts.installed->mac) continue;
    out << "VRF id " << other << " on " << intf;
    facts.owner = out.str();
    return;
  }
  if (translator() == nullptr) return;
  for (auto const& entry : translator()->localVrfNameToId()) {
    if (entry.key == facts.vrfName || entry.value != *facts.vrfId) continue;
    if (lineOf(entry.key, facts.ip) != facts.installed->mac) continue;
    out << "the line of VRF " << entry.key << ", which has the same id";
    facts.owner = out.str();
    return;
  }
}

std::vector<PairFacts> FactFinder::ofRow(U16 vlan, Ovra::IpAddr ip) const {
  std::vector<PairFacts> owners;
  std::vector<PairFacts> candidates;
  if (machine() == nullptr) return owners;
  for (Pex::VrfId const vrf : indexed(ip)) {
    PairFacts facts = ofVrfId(vrf, ip);
    if (facts.record && facts.record->vlan == vlan) {
      owners.push_back(std::move(facts));
    } else if (!facts.record && facts.vlanNow() == vlan) {
      candidates.push_back(std::move(facts));
    }
  }
  return owners.empty() ? candidates : owners;
}

std::optional<U32> PairFacts::vlanNow() const {
  if (!address || !routingStatus) return std::nullopt;
  return address->self ? forwardingVlan : routingStatus->vlan;
}

namespace {

Reason reasonWithoutRecord(PairFacts const& facts) {
  if (!facts.address) return facts.line ? Reason::NoAddress : Reason::NoLine;
  if (facts.isStatusReplaced) return Reason::Deaf;
  if (!facts.address->interface) return Reason::NoInterface;
  if (facts.address->self && facts.forwardingVlan == 0) {
    return facts.isForwardingVlanUnseen ? Reason::Deaf : Reason::NoForwardingVlan;
  }
  if (facts.indexedOn != facts.address->interface) return Reason::Deaf;
  if (!facts.routingStatus) {
    return facts.isRoutingStatusUnseen ? Reason::Deaf : Reason::NoRoutingStatus;
  }
  if (!isVlan(facts.routingStatus->vlan) || !isVlan(*facts.vlanNow())) {
    return Reason::VlanOutOfRange;
  }
  return facts.isTableFull ? Reason::WaitingFull : Reason::WaitingRetry;
}

Reason reasonWithoutInstalled(PairFacts const& facts) {
  if (facts.heldBecause) return Reason::Held;
  if (!facts.waiting) return Reason::DeletedFromChip;
  switch (facts.waiting->reason) {
    case WaitReason::TableFull:
      return Reason::WaitingFull;
    case WaitReason::NoSysResources:
      return Reason::WaitingNoResources;
    case WaitReason::Failed:
      break;
  }
  return Reason::WaitingRetry;
}

bool isLeftOver(PairFacts const& facts) {
  return !facts.address || facts.address->interface != facts.indexedOn || !facts.routingStatus ||
         facts.vlanNow() != facts.record->vlan;
}

}  // namespace

Reason reasonOf(PairFacts const& facts) {
  if (facts.lacks) return facts.isSupported ? Reason::StageNotRun : Reason::NotSupported;
  if (!facts.vrfId) return facts.line ? Reason::NoVrfId : Reason::NoLine;
  if (!facts.record) return reasonWithoutRecord(facts);
  if (!facts.installed) return reasonWithoutInstalled(facts);
  if (isLeftOver(facts)) return Reason::LeftOver;
  if (facts.installed->mac == facts.macNow()) return facts.line ? Reason::None : Reason::NoLine;
  if (facts.owner) return Reason::AnotherVrfsRow;
  return facts.line ? Reason::LineNotApplied : Reason::LineRemoved;
}

std::string_view codeOf(Reason reason) {
  static constexpr std::string_view kCodes[] = {"none",
                                                "stage-not-run",
                                                "not-supported",
                                                "no-line",
                                                "no-vrf-id",
                                                "no-address",
                                                "no-interface",
                                                "no-routing-status",
                                                "no-forwarding-vlan",
                                                "vlan-out-of-range",
                                                "deaf",
                                                "waiting-full",
                                                "waiting-no-resources",
                                                "waiting-retry",
                                                "held",
                                                "deleted-from-chip",
                                                "left-over",
                                                "another-vrfs-row",
                                                "line-removed",
                                                "line-not-applied"};
  static_assert(std::size(kCodes) == static_cast<size_t>(kLastReason) + 1);
  return kCodes[static_cast<size_t>(reason)];
}

}  // namespace Host
