// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

#include "agent/records/BfnMacRewriteTypes.h"
#include "agent/records/Export.h"
#include "framework/collections/RbTreeMap.h"
#include "framework/command/AgentAsyncCommandRequestSm.h"
#include "framework/core/Clock.h"
#include "framework/core/StateMachine.h"
#include "framework/core/String.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IpAddr.h"
#include "framework/values/VrfName.h"
#include "show/SortedIpToMac.h"
#include "tablemgr/BfnMacRewriteTableMgr.h"

namespace BfnMacRewrite {

class RowBatch;
class VrfCache;

/// Lists the rewrites that are programmed in the chip, by VRF name and source IP. Without a table
/// the listing is empty.
///
/// Works in slices, in two phases: it collects the table manager's records and the chip's rows into
/// a sorted snapshot, then prints the snapshot. A slice ends after any record or any VRF at which
/// shouldYield() says so; bookmarks say where the next one continues. Changes between slices are
/// seen as far as the walk has not passed them; a VRF is printed whole within one slice.
///
/// Errors: a row that cannot be read is the binding's BfTable::BfTableException, which ends the
/// command.
///
/// Deliberate: matchSpecIterDone is set only by a slice that ends with the collection, so after a
/// collection that ended within its slice each later slice collects again from the bookmark before
/// it prints on. Collecting again overwrites by IP and adds no line twice.
class BFN_MAC_REWRITE_EXPORT ShowMacRewriteCommandRequestSm final
    : public Kiv::StateMachine<ShowMacRewriteCommandRequestSm,
                               ::Agent::AgentAsyncCommandRequestSm> {
 public:
  using SortedVrfIpToMac = Kiv::RbTreeMap<L3::VrfName, Kiv::Ptr<SortedIpToMac>>;

  /// Makes the command of the constructor's arguments and switches it on.
  static Kiv::Ptr<ShowMacRewriteCommandRequestSm> ShowMacRewriteCommandRequestSmIs(
      auto&&... inputs) {
    return Kiv::makeActive<ShowMacRewriteCommandRequestSm>(
        std::forward<decltype(inputs)>(inputs)...);
  }
  ShowMacRewriteCommandRequestSm(
      Kiv::String name, Kiv::Ptr<::Agent::AgentCommandRequest const> const& request,
      double const& maxRunTime, Kiv::Ptr<Kiv::Clock const> const& clock,
      Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteMgr, bool vrfNameValid,
      L3::VrfName vrfName, bool overlaySipValid, Ovra::IpAddr overlaySip,
      bool overlayRewriteSrcMacValid, Ovra::EthAddr const& overlayRewriteSrcMac, bool cliTesting);
  ~ShowMacRewriteCommandRequestSm() override;

  void handleInitialized();
  /// One slice. Fatal after completion, without a table manager, and where it prints without a
  /// printer. Throws Kiv::RangeException when bookmarkVrf is longer than a VRF name may be.
  void handleAsyncCommand(U32 socket, U32 format) override;

  void printHeader();
  void printEntry(L3::VrfName vrfName, Ovra::IpAddr ip, Ovra::EthAddr const& mac);

  Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteMgr() const {
    return overlaySrcMacRewriteMgr_;
  }
  bool vrfNameValid() const { return filters_.vrfNameValid; }
  L3::VrfName vrfName() const { return filters_.vrfName; }
  bool overlaySipValid() const { return filters_.overlaySipValid; }
  Ovra::IpAddr overlaySip() const { return filters_.overlaySip; }
  bool overlayRewriteSrcMacValid() const { return filters_.overlayRewriteSrcMacValid; }
  Ovra::EthAddr overlayRewriteSrcMac() const { return filters_.overlayRewriteSrcMac; }
  bool cliTesting() const { return cliTesting_; }

  bool matchSpecIterDone() const { return matchSpecIterDone_; }
  void matchSpecIterDoneIs(bool done) { matchSpecIterDone_ = done; }
  Agent::IpAndIntfId const& bookmarkMatch() const { return bookmarkMatch_; }
  void bookmarkMatchIs(Agent::IpAndIntfId const& bookmark) { bookmarkMatch_ = bookmark; }
  Kiv::String const& bookmarkVrf() const { return bookmarkVrf_; }
  void bookmarkVrfIs(Kiv::String bookmark) { bookmarkVrf_ = std::move(bookmark); }

  SortedVrfIpToMac const& sortedVrfIpToMac() const { return sortedVrfIpToMac_; }
  Kiv::Ptr<SortedIpToMac> sortedVrfIpToMacIs(L3::VrfName vrfName);
  void sortedVrfIpToMacDel(L3::VrfName vrfName) { sortedVrfIpToMac_.erase(vrfName); }
  void sortedVrfIpToMacDelAll() { sortedVrfIpToMac_.clear(); }

  static Kiv::Type const& _kivType();

  void kivEachReactor(auto) {}

 private:
  /// A filter applies when its `...Valid` is true.
  struct Filters {
    bool keep(L3::VrfName name, Ovra::IpAddr ip, Ovra::EthAddr const& mac) const;

    bool vrfNameValid;
    L3::VrfName vrfName;
    bool overlaySipValid;
    Ovra::IpAddr overlaySip;
    bool overlayRewriteSrcMacValid;
    Ovra::EthAddr overlayRewriteSrcMac;
  };
  /// How a phase ended for this slice: it is through; the slice is over and a bookmark set; or both
  /// the slice and the phase are over. handleAsyncCommand() traces it.
  enum class Phase { Ended, Bookmarked, YieldedAtEnd };

  Phase collect();
  /// Walks the records from the bookmark to their end or the slice's.
  Phase collect(OverlaySrcMacRewriteManager::Table const& table, RowBatch& batch);
  /// Adds one record's row to the snapshot when the filters accept it. True when it is the one row
  /// that a VRF and an IP filter together can find.
  bool examine(MatchSpecAndRefCount const& record, RowBatch& batch);
  Phase print();

  Kiv::Ptr<OverlaySrcMacRewriteManager> const overlaySrcMacRewriteMgr_;
  Filters const filters_;
  bool const cliTesting_;
  bool matchSpecIterDone_ = false;
  Agent::IpAndIntfId bookmarkMatch_;
  Kiv::String bookmarkVrf_;
  SortedVrfIpToMac sortedVrfIpToMac_;
  std::unique_ptr<VrfCache> vrfCache_;  // made by the first slice that collects
};

/// See ShowMacRewriteCommandRequestSm::ShowMacRewriteCommandRequestSmIs. `maxRunTime`: seconds of
/// `clock` that a slice is meant to take at most. A filter applies when its `...Valid` is true; the
/// MAC filter only when it is the only one.
BFN_MAC_REWRITE_EXPORT Kiv::Ptr<ShowMacRewriteCommandRequestSm>
showMacRewriteCommandRequestSmFactory(
    Kiv::String name, Kiv::Ptr<::Agent::AgentCommandRequest const> const& request,
    double const& maxRunTime, Kiv::Ptr<Kiv::Clock const> const& clock,
    Kiv::Ptr<OverlaySrcMacRewriteManager> const& overlaySrcMacRewriteMgr, bool vrfNameValid,
    L3::VrfName vrfName, bool overlaySipValid, Ovra::IpAddr overlaySip,
    bool overlayRewriteSrcMacValid, Ovra::EthAddr const& overlayRewriteSrcMac, bool cliTesting);

}  // namespace BfnMacRewrite
