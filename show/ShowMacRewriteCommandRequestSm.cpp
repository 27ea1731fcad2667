// SPDX-License-Identifier: Apache-2.0
#include "show/ShowMacRewriteCommandRequestSm.h"

#include "framework/core/Fatal.h"
#include "framework/generic/Describe.h"
#include "framework/prettyout/Printer.h"
#include "framework/trace/Trace.h"
#include "show/RowCollection.h"

// The command is the other half of the table manager's file, and shares its facility.
KIV_TRACE_FACILITY("BfnMacRewriteTableMgr")

namespace BfnMacRewrite {

Kiv::Ptr<ShowMacRewriteCommandRequestSm> showMacRewriteCommandRequestSmFactory(
    Kiv::String name, Kiv::Ptr<::Agent::AgentCommandRequest const> const& request,
    double const& maxRunTime, Kiv::Ptr<Kiv::Clock const> const& clock,
    Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteMgr, bool vrfNameValid,
    L3::VrfName vrfName, bool overlaySipValid, Ovra::IpAddr overlaySip,
    bool overlayRewriteSrcMacValid, Ovra::EthAddr const& overlayRewriteSrcMac, bool cliTesting) {
  return ShowMacRewriteCommandRequestSm::ShowMacRewriteCommandRequestSmIs(
      std::move(name), request, maxRunTime, clock, overlaySrcMacRewriteMgr, vrfNameValid, vrfName,
      overlaySipValid, overlaySip, overlayRewriteSrcMacValid, overlayRewriteSrcMac, cliTesting);
}

ShowMacRewriteCommandRequestSm::ShowMacRewriteCommandRequestSm(
    Kiv::String name, Kiv::Ptr<::Agent::AgentCommandRequest const> const& request,
    double const& maxRunTime, Kiv::Ptr<Kiv::Clock const> const& clock,
    Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteMgr, bool vrfNameValid,
    L3::VrfName vrfName, bool overlaySipValid, Ovra::IpAddr overlaySip,
    bool overlayRewriteSrcMacValid, Ovra::EthAddr const& overlayRewriteSrcMac, bool cliTesting)
    : StateMachine(std::move(name), request, maxRunTime, clock),
      overlaySrcMacRewriteMgr_(overlaySrcMacRewriteMgr),
      filters_{vrfNameValid,        vrfName, overlaySipValid, overlaySip, overlayRewriteSrcMacValid,
               overlayRewriteSrcMac},
      cliTesting_(cliTesting) {
  handleInitialized();
}

ShowMacRewriteCommandRequestSm::~ShowMacRewriteCommandRequestSm() = default;

void ShowMacRewriteCommandRequestSm::handleInitialized() {
  KIV_TRACE(9, "SM Init.");
  prettyoutPrinterIs(nullptr);
  initializedIs(true);
  initializeSm();
}

void ShowMacRewriteCommandRequestSm::handleAsyncCommand(U32 socket, U32 format) {
  KIV_TRACE(9, "Socket ", socket, " format ", format);
  falseStartIs(!initialized());
  if (!initialized()) return;
  KIV_CHECK(executionCompleted() == false, "execution completed before start");
  KIV_CHECK(overlaySrcMacRewriteMgr(), "table manager not initialized");
  if (!continuation()) {
    KIV_CHECK(prettyoutPrinter(), "prettyoutPrinter is NULL");
    prettyoutPrinter()->renderer().start();
    printHeader();
  }
  if (!matchSpecIterDone()) {
    Phase const collected = collect();
    if (collected != Phase::Ended) {
      KIV_TRACE(4, "TQ Expired");
      if (collected == Phase::Bookmarked) {
        KIV_TRACE(4, "Saved a bookmark. Come back later.");
      } else {
        KIV_TRACE(4, "Completed.");
      }
      return;
    }
  }
  Phase const printed = print();
  if (printed != Phase::Ended) {
    KIV_TRACE(4, "TQ Expired");
    if (printed == Phase::Bookmarked) {
      KIV_TRACE(4, "Saved bookmarks. Come back later.");
      return;
    }
    KIV_TRACE(4, "Completed.");
  }
  prettyout::Renderer& renderer = prettyoutPrinter()->renderer();
  renderer.endDict();
  renderer.addFrills("\n");
  renderer.end();
  renderer.ioflush();
  executionCompletedIs(true);
}

ShowMacRewriteCommandRequestSm::Phase ShowMacRewriteCommandRequestSm::collect() {
  // Without a table there are no rows, and nothing to read them from.
  Kiv::Ptr<OverlaySrcMacRewriteManager::Table> const table =
      overlaySrcMacRewriteMgr_->overlaySrcMacRewriteTable();
  if (!table) return Phase::Ended;
  if (vrfCache_ == nullptr) vrfCache_ = std::make_unique<VrfCache>(*overlaySrcMacRewriteMgr_);
  vrfCache_->startSlice();
  RowBatch batch;
  Phase const phase = collect(*table, batch);
  batch.insert();
  return phase;
}

ShowMacRewriteCommandRequestSm::Phase ShowMacRewriteCommandRequestSm::collect(
    OverlaySrcMacRewriteManager::Table const& table, RowBatch& batch) {
  auto const& records = overlaySrcMacRewriteMgr_->matchSpecAndRefCount();
  auto walk = bookmarkMatch() == Agent::IpAndIntfId() ? records.begin()
                                                      : records.lowerBound(bookmarkMatch());
  auto const end = records.end();
  FetchAhead ahead(table, walk, end);
  while (walk != end) {
    if (examine(**walk, batch)) {
      matchSpecIterDoneIs(true);
      return Phase::Ended;
    }
    bool const yield = shouldYield() || cliTesting();
    ++walk;
    ahead.step();
    if (!yield) continue;
    if (walk != end) {
      bookmarkMatchIs((*walk)->ipAndIntfId());
      return Phase::Bookmarked;
    }
    matchSpecIterDoneIs(true);
    return Phase::YieldedAtEnd;
  }
  return Phase::Ended;
}

bool ShowMacRewriteCommandRequestSm::examine(MatchSpecAndRefCount const& record, RowBatch& batch) {
  auto const installed = overlaySrcMacRewriteMgr_->overlaySrcMacRewriteTable()->action(
      *record.overlaySrcMacRewriteMatchSpec());
  // Two records can share one row of the chip, which the first removal erases.
  if (!installed) return false;
  Agent::IpAndIntfId const& key = record.ipAndIntfId();
  Ovra::EthAddr const mac = Ovra::ethAddrFromOuiStation(installed->oui, installed->station);
  VrfCache::Vrf& vrf = vrfCache_->of(key.intfId);
  if (!filters_.keep(vrf.name, key.ipAddr, mac)) return false;
  if (vrf.sorted == nullptr) vrf.sorted = sortedVrfIpToMacIs(vrf.name).get();
  batch.add(*vrf.sorted, key.ipAddr, mac);
  return filters_.vrfNameValid && filters_.overlaySipValid;
}

// Deliberate: the MAC filter applies only when it is the only one.
bool ShowMacRewriteCommandRequestSm::Filters::keep(L3::VrfName name, Ovra::IpAddr ip,
                                                   Ovra::EthAddr const& mac) const {
  if (vrfNameValid || overlaySipValid) {
    return (!vrfNameValid || name == vrfName) && (!overlaySipValid || ip == overlaySip);
  }
  return !overlayRewriteSrcMacValid || mac == overlayRewriteSrcMac;
}

ShowMacRewriteCommandRequestSm::Phase ShowMacRewriteCommandRequestSm::print() {
  KIV_CHECK(prettyoutPrinter(), "prettyoutPrinter is NULL");
  prettyout::Renderer& renderer = prettyoutPrinter()->renderer();
  bool const first = bookmarkVrf().empty();
  if (first) renderer.startDict("vrfs");
  auto vrf =
      first ? sortedVrfIpToMac_.begin() : sortedVrfIpToMac_.lowerBound(L3::VrfName(bookmarkVrf()));
  while (vrf != sortedVrfIpToMac_.end()) {
    SortedIpToMac const& sorted = *vrf->second;
    renderer.startDict(sorted.vrfName().view());
    renderer.startDict("addresses");
    for (auto const& [ip, mac] : sorted.ipToMac()) printEntry(sorted.vrfName(), ip, mac);
    renderer.endDict();
    renderer.endDict();
    bool const yield = shouldYield() || cliTesting();
    ++vrf;
    if (!yield) continue;
    if (vrf == sortedVrfIpToMac_.end()) return Phase::YieldedAtEnd;
    bookmarkVrfIs(Kiv::String(vrf->first.view()));
    return Phase::Bookmarked;
  }
  return Phase::Ended;
}

void ShowMacRewriteCommandRequestSm::printHeader() {
  KIV_CHECK(prettyoutPrinter(), "prettyoutPrinter is NULL");
  prettyout::Renderer& renderer = prettyoutPrinter()->renderer();
  renderer.addFrills("\n");
  renderer.addFrills("%-15s %-20s %-20s\n", "VRF name", "Source IP", "Source MAC");
  renderer.addFrills("------------------------------------------------------------\n");
}

void ShowMacRewriteCommandRequestSm::printEntry(L3::VrfName vrfName, Ovra::IpAddr ip,
                                                Ovra::EthAddr const& mac) {
  KIV_CHECK(prettyoutPrinter(), "prettyoutPrinter is NULL");
  prettyout::Renderer& renderer = prettyoutPrinter()->renderer();
  char ipText[Ovra::IpAddr::kTextRoom];
  char macText[Ovra::EthAddr::kTextSize];
  mac.text(macText);
  prettyout::Attribute const vrfNameAttr{"vrfName", vrfName.view()};
  prettyout::Attribute const sip{"sip", {ipText, ip.text(ipText)}};
  prettyout::Attribute const smac{"smac", {macText, sizeof macText}};
  renderer.startDictEntry(sip);
  renderer.addAttributes("%-15s %-20s %-20s\n", 3, vrfNameAttr, sip, smac);
  renderer.endDictEntry();
}

Kiv::Ptr<SortedIpToMac> ShowMacRewriteCommandRequestSm::sortedVrfIpToMacIs(L3::VrfName vrfName) {
  auto const found = sortedVrfIpToMac_.find(vrfName);
  if (found != sortedVrfIpToMac_.end()) return found->second;
  auto sorted = Kiv::makeActive<SortedIpToMac>(vrfName);
  sortedVrfIpToMac_.insert(vrfName, sorted);
  return sorted;
}

Kiv::Type const& ShowMacRewriteCommandRequestSm::_kivType() {
  using T = ShowMacRewriteCommandRequestSm;
  // sortedVrfIpToMac, kFirst + 11, is not read by name.
  constexpr Kiv::AttributeId kFirst = kFirstDerivedAttribute;
  static Kiv::Type const type(
      "BfnMacRewrite::ShowMacRewriteCommandRequestSm", &AgentAsyncCommandRequestSm::_kivType(),
      {Kiv::describeConstant<&T::overlaySrcMacRewriteMgr>("overlaySrcMacRewriteMgr", kFirst),
       Kiv::describeConstant<&T::vrfNameValid>("vrfNameValid", kFirst + 1),
       Kiv::describeConstant<&T::vrfName>("vrfName", kFirst + 2),
       Kiv::describeConstant<&T::overlaySipValid>("overlaySipValid", kFirst + 3),
       Kiv::describeConstant<&T::overlaySip>("overlaySip", kFirst + 4),
       Kiv::describeConstant<&T::overlayRewriteSrcMacValid>("overlayRewriteSrcMacValid",
                                                            kFirst + 5),
       Kiv::describeConstant<&T::overlayRewriteSrcMac>("overlayRewriteSrcMac", kFirst + 6),
       Kiv::describeConstant<&T::cliTesting>("cliTesting", kFirst + 7),
       Kiv::describeScalar<&T::matchSpecIterDone, &T::matchSpecIterDoneIs>("matchSpecIterDone",
                                                                           kFirst + 8),
       Kiv::describeScalar<&T::bookmarkMatch, &T::bookmarkMatchIs>("bookmarkMatch", kFirst + 9),
       Kiv::describeScalar<&T::bookmarkVrf, &T::bookmarkVrfIs>("bookmarkVrf", kFirst + 10),
       Kiv::describeScalar<&T::initialized, &T::initializedIs>("initialized", kFirst + 12)},
      Kiv::describeFactory<&showMacRewriteCommandRequestSmFactory>());
  return type;
}

}  // namespace BfnMacRewrite
