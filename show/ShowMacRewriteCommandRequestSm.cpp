#include "show/ShowMacRewriteCommandRequestSm.h"

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

#include "framework/core/Fatal.h"
#include "framework/core/Prefetch.h"
#include "framework/generic/Describe.h"
#include "framework/prettyout/Printer.h"
#include "framework/trace/Trace.h"

// The table manager's facility: the command shows what that one keeps.
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

Kiv::Ptr<ShowMacRewriteCommandRequestSm>
ShowMacRewriteCommandRequestSm::ShowMacRewriteCommandRequestSmIs(
    Kiv::String name, Kiv::Ptr<::Agent::AgentCommandRequest const> const& request,
    double const& maxRunTime, Kiv::Ptr<Kiv::Clock const> const& clock,
    Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteMgr, bool vrfNameValid,
    L3::VrfName vrfName, bool overlaySipValid, Ovra::IpAddr overlaySip,
    bool overlayRewriteSrcMacValid, Ovra::EthAddr const& overlayRewriteSrcMac, bool cliTesting) {
  return Kiv::makeActive<ShowMacRewriteCommandRequestSm>(
      std::move(name), request, maxRunTime, clock, overlaySrcMacRewriteMgr, vrfNameValid, vrfName,
      overlaySipValid, overlaySip, overlayRewriteSrcMacValid, overlayRewriteSrcMac, cliTesting);
}

ShowMacRewriteCommandRequestSm::ShowMacRewriteCommandRequestSm(
    Kiv::String name, Kiv::Ptr<::Agent::AgentCommandRequest const> const& request,
    double const& maxRunTime, Kiv::Ptr<Kiv::Clock const> const& clock,
    Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteMgr, bool vrfNameValid,
    L3::VrfName vrfName, bool overlaySipValid, Ovra::IpAddr overlaySip,
    bool overlayRewriteSrcMacValid, Ovra::EthAddr const& overlayRewriteSrcMac, bool cliTesting)
    : AgentAsyncCommandRequestSm(std::move(name), request, maxRunTime, clock),
      overlaySrcMacRewriteMgr_(overlaySrcMacRewriteMgr),
      vrfNameValid_(vrfNameValid),
      vrfName_(vrfName),
      overlaySipValid_(overlaySipValid),
      overlaySip_(overlaySip),
      overlayRewriteSrcMacValid_(overlayRewriteSrcMacValid),
      overlayRewriteSrcMac_(overlayRewriteSrcMac),
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
  if (!initialized()) {
    falseStartIs(true);
    return;
  }
  falseStartIs(false);
  KIV_CHECK(executionCompleted() == false, "execution completed before start");
  KIV_CHECK(overlaySrcMacRewriteMgr(), "table manager not initialized");
  if (!continuation()) {
    KIV_CHECK(prettyoutPrinter(), "prettyoutPrinter is NULL");
    prettyoutPrinter()->renderer().start();
    printHeader();
  }
  if (!matchSpecIterDone() && collect() == Phase::Yielded) return;
  if (print() == Phase::Yielded) return;
  prettyout::Renderer& renderer = prettyoutPrinter()->renderer();
  renderer.endDict();
  renderer.addFrills("\n");
  renderer.end();
  renderer.ioflush();
  executionCompletedIs(true);
}

/// Which VRF an interface is in and where that one's rows go. Good for one slice: nothing changes
/// within it, and many rows share an interface.
class ShowMacRewriteCommandRequestSm::VrfMemory {
 public:
  struct Vrf {
    Ovra::IntfId intfId;
    L3::VrfName name;
    U32 slice = 0;                    // of which this is known; 0: of none
    SortedIpToMac* sorted = nullptr;  // null until a row is kept
  };

  explicit VrfMemory(OverlaySrcMacRewriteManager const& manager) : manager_(manager) {}

  /// Forgets everything.
  void startSlice() {
    if (++slice_ == 0) {
      vrfs_.fill({});
      slice_ = 1;
    }
  }
  Vrf& of(Ovra::IntfId intfId) {
    // The ids of interfaces are given out in turn; the multiplication spreads them.
    Vrf& vrf = vrfs_[std::bit_cast<U32>(intfId) * 0x9E3779B1u >> (32 - kBits)];
    if (vrf.slice != slice_ || vrf.intfId != intfId) [[unlikely]]
      vrf = {intfId, manager_.intfIdToVrfName(intfId), slice_, nullptr};
    return vrf;
  }

 private:
  static constexpr unsigned kBits = 11;
  OverlaySrcMacRewriteManager const& manager_;
  U32 slice_ = 0;
  std::array<Vrf, size_t{1} << kBits> vrfs_;
};

/// Rows on their way into the snapshot. They come in the order of their hashes, in which every
/// insertion into a sorted map would look for its place all over it; by address, most go right
/// behind the one before.
class ShowMacRewriteCommandRequestSm::Batch {
 public:
  /// So few that sorting them in is a small part of a slice.
  static constexpr size_t kSize = 4096;

  bool full() const { return rows_.size() == kSize; }
  void add(SortedIpToMac& sorted, Ovra::IpAddr ip, Ovra::EthAddr const& mac) {
    order_.push_back(Kiv::U64{ip.value()} << 32 | rows_.size());
    rows_.push_back({&sorted, mac});
  }
  /// The row that was added last wins its address.
  void file() {
    std::ranges::sort(order_);
    for (Kiv::U64 const key : order_) {
      Row const& row = rows_[static_cast<U32>(key)];
      row.sorted->ipToMacIs(Ovra::IpAddr(static_cast<U32>(key >> 32)), row.mac);
    }
    order_.clear();
    rows_.clear();
  }

 private:
  struct Row {
    SortedIpToMac* sorted;
    Ovra::EthAddr mac;
  };
  // Address and number of each row: unequal keys, so that the sort keeps the order of equal ones.
  std::vector<Kiv::U64> order_;
  std::vector<Row> rows_;
};

namespace {

/// Fetches records, the match specs they point at and the chip's rows of those into the cache some
/// steps ahead of the walk: they lie all over the memory, and waiting for each in turn would be
/// most of a step.
template <class Iterator>
class FetchAhead {
 public:
  FetchAhead(BfOverlaySrcMacRewrite::OverlaySrcMacRewriteTable const& table, Iterator const& from,
             Iterator const& end)
      : table_(table), records_(from), specs_(from), rows_(from), end_(end) {
    for (int i = 0; i < kRecordsAhead; ++i) fetchRecord();
    for (int i = 0; i < kSpecsAhead; ++i) fetchSpec();
    for (int i = 0; i < kRowsAhead; ++i) fetchRow();
  }
  void step() {
    fetchRecord();
    fetchSpec();
    fetchRow();
  }

 private:
  static constexpr int kRowsAhead = 6;
  static constexpr int kSpecsAhead = 12;
  static constexpr int kRecordsAhead = 18;

  static void fetch(void const* object) {
    Kiv::prefetch(object);
    Kiv::prefetch(static_cast<char const*>(object) + 64);
  }
  void fetchRecord() {
    if (records_ == end_) return;
    fetch(records_->get());
    ++records_;
  }
  void fetchSpec() {
    if (specs_ == end_) return;
    fetch((*specs_)->overlaySrcMacRewriteMatchSpec().get());
    ++specs_;
  }

  void fetchRow() {
    if (rows_ == end_) return;
    table_.prefetch(*(*rows_)->overlaySrcMacRewriteMatchSpec());
    ++rows_;
  }

  BfOverlaySrcMacRewrite::OverlaySrcMacRewriteTable const& table_;
  Iterator records_;
  Iterator specs_;
  Iterator rows_;
  Iterator const end_;
};

}  // namespace

ShowMacRewriteCommandRequestSm::Phase ShowMacRewriteCommandRequestSm::collect() {
  Batch batch;
  Phase const phase = examineAll(batch);
  batch.file();
  return phase;
}

ShowMacRewriteCommandRequestSm::Phase ShowMacRewriteCommandRequestSm::examineAll(Batch& batch) {
  auto const& records = overlaySrcMacRewriteMgr_->matchSpecAndRefCount();
  auto walk = bookmarkMatch() == Agent::IpAndIntfId() ? records.begin()
                                                      : records.lowerBound(bookmarkMatch());
  auto const end = records.end();
  if (vrfMemory_ == nullptr) vrfMemory_ = std::make_unique<VrfMemory>(*overlaySrcMacRewriteMgr_);
  vrfMemory_->startSlice();
  FetchAhead ahead(*overlaySrcMacRewriteMgr_->overlaySrcMacRewriteTable(), walk, end);
  while (walk != end) {
    if (examine(**walk, batch)) {
      matchSpecIterDoneIs(true);
      return Phase::Ended;
    }
    bool const yield = shouldYield() || cliTesting();
    if (yield) KIV_TRACE(4, "TQ Expired");
    ++walk;
    ahead.step();
    if (!yield) continue;
    if (walk != end) {
      bookmarkMatchIs((*walk)->ipAndIntfId());
      KIV_TRACE(4, "Saved a bookmark. Come back later.");
    } else {
      KIV_TRACE(4, "Completed.");
      matchSpecIterDoneIs(true);
    }
    return Phase::Yielded;
  }
  return Phase::Ended;
}

bool ShowMacRewriteCommandRequestSm::examine(MatchSpecAndRefCount const& record, Batch& batch) {
  auto const installed = overlaySrcMacRewriteMgr_->overlaySrcMacRewriteTable()->action(
      *record.overlaySrcMacRewriteMatchSpec());
  // Two records can share one entry of the chip; the first that goes takes it along.
  if (!installed) return false;
  Agent::IpAndIntfId const& key = record.ipAndIntfId();
  Ovra::EthAddr const mac = Ovra::ethAddrFromOuiStation(installed->oui, installed->station);
  VrfMemory::Vrf& vrf = vrfMemory_->of(key.intfId);

  bool kept = true;
  if (vrfNameValid_ && overlaySipValid_) {
    kept = vrf.name == vrfName_ && key.ipAddr == overlaySip_;
  } else if (vrfNameValid_) {
    kept = vrf.name == vrfName_;
  } else if (overlaySipValid_) {
    kept = key.ipAddr == overlaySip_;
  } else if (overlayRewriteSrcMacValid_) {
    kept = mac == overlayRewriteSrcMac_;
  }
  if (kept) {
    if (vrf.sorted == nullptr) vrf.sorted = sortedVrfIpToMacIs(vrf.name).get();
    if (batch.full()) batch.file();
    batch.add(*vrf.sorted, key.ipAddr, mac);
  }
  return kept && vrfNameValid_ && overlaySipValid_;
}

ShowMacRewriteCommandRequestSm::Phase ShowMacRewriteCommandRequestSm::print() {
  KIV_CHECK(prettyoutPrinter(), "prettyoutPrinter is NULL");
  prettyout::Renderer& renderer = prettyoutPrinter()->renderer();
  auto vrf = sortedVrfIpToMac_.begin();
  if (bookmarkVrf().empty()) {
    renderer.startDict("vrfs");
  } else {
    vrf = sortedVrfIpToMac_.lowerBound(L3::VrfName(bookmarkVrf()));
  }
  while (vrf != sortedVrfIpToMac_.end()) {
    SortedIpToMac const& sorted = *vrf->second;
    renderer.startDict(sorted.vrfName().view());
    renderer.startDict("addresses");
    for (auto const& [ip, mac] : sorted.ipToMac()) printEntry(sorted.vrfName(), ip, mac);
    renderer.endDict();
    renderer.endDict();
    bool const yield = shouldYield() || cliTesting();
    if (yield) KIV_TRACE(4, "TQ Expired");
    ++vrf;
    if (!yield) continue;
    if (vrf != sortedVrfIpToMac_.end()) {
      bookmarkVrfIs(Kiv::String(vrf->first.view()));
      KIV_TRACE(4, "Saved bookmarks. Come back later.");
      return Phase::Yielded;
    }
    KIV_TRACE(4, "Completed.");
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
void ShowMacRewriteCommandRequestSm::sortedVrfIpToMacDel(L3::VrfName vrfName) {
  sortedVrfIpToMac_.erase(vrfName);
}
void ShowMacRewriteCommandRequestSm::sortedVrfIpToMacDelAll() {
  sortedVrfIpToMac_.clear();
}

Kiv::Type const& ShowMacRewriteCommandRequestSm::_kivType() {
  using T = ShowMacRewriteCommandRequestSm;
  // sortedVrfIpToMac, kFirst + 11, is the command's own business: nobody reads it by name.
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
