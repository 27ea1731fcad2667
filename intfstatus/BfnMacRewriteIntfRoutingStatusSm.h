// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <tuple>

#include "agent/records/Export.h"
#include "framework/collections/ReactorSlot.h"
#include "framework/core/Reactor.h"
#include "framework/core/StateMachine.h"
#include "framework/l3/L3RoutingStatus.h"
#include "framework/values/PortVlanPair.h"
#include "intfstatus/BfnMacRewriteIntfRoutingStatusTypes.h"

namespace BfnMacRewrite {

/// Folds the host's three collections of interface routing status, keyed by interface and VLAN,
/// into one keyed by interface alone, and keeps it current.
///
/// The last writer wins: all sources and all VLANs of an interface write one place, and a key that
/// vanishes from its source empties that place even when another source or VLAN still has the
/// interface. Deliberate: nothing is rebuilt from what remains.
///
/// Ownership: shares the output with its creator. Destruction leaves the output as it is.
class BFN_MAC_REWRITE_EXPORT BfnMacRewriteIntfRoutingStatusSm final
    : public Kiv::StateMachine<BfnMacRewriteIntfRoutingStatusSm> {
  using Sm = BfnMacRewriteIntfRoutingStatusSm;
  using Source = Kiv::Ptr<BfnL3::L3RoutingStatus const>;

 public:
  /// Makes the machine of the constructor's arguments and switches it on.
  static Kiv::Ptr<Sm> BfnMacRewriteIntfRoutingStatusSmIs(auto const&... inputs) {
    return Kiv::makeActive<Sm>(inputs...);
  }
  /// Merges everything that is there already. A null input is not watched and contributes nothing.
  BfnMacRewriteIntfRoutingStatusSm(Source const& l3PortAndLagRoutingStatus,
                                   Source const& vlanIntfRoutingStatus,
                                   Source const& l3SubIntfRoutingStatus,
                                   Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus);

  auto l3PortAndLagRoutingStatus() const { return l3PortAndLagRoutingStatus_.notifier(); }
  auto vlanIntfRoutingStatus() const { return vlanIntfRoutingStatus_.notifier(); }
  auto l3SubIntfRoutingStatus() const { return l3SubIntfRoutingStatus_.notifier(); }
  auto const& intfIdToRoutingStatus() const { return intfIdToRoutingStatus_; }
  /// The constructor's arguments.
  auto inputs() const {
    return std::tuple(l3PortAndLagRoutingStatus(), vlanIntfRoutingStatus(),
                      l3SubIntfRoutingStatus(), intfIdToRoutingStatus_);
  }

  /// Drop one reactor: that input is not watched any more. The output stays as it is.
  void l3PortAndLagRoutingStatusDel() { l3PortAndLagRoutingStatus_.del(); }
  void vlanIntfRoutingStatusDel() { vlanIntfRoutingStatus_.del(); }
  void l3SubIntfRoutingStatusDel() { l3SubIntfRoutingStatus_.del(); }

  /// Merges everything that is there: sub-interfaces last, so they win over VLAN interfaces, and
  /// those over ports. Deliberate: the output is neither cleared before nor pruned after.
  void handleInitialized();
  void handleL3PortAndLagRoutingStatus(Pex::PortVlanPair const& key);
  void handleVlanIntfRoutingStatus(Pex::PortVlanPair const& key);
  void handleL3SubIntfRoutingStatus(Pex::PortVlanPair const& key);

  template <class Self, auto Handler>
  using SourceReactor =
      Kiv::Reactor<Self, BfnL3::L3RoutingStatus const, Sm,
                   Kiv::On<BfnL3::L3RoutingStatus::kL3IntfRoutingStatus, Handler>>;
  struct KivL3PortAndLagRoutingStatus final
      : SourceReactor<KivL3PortAndLagRoutingStatus, &Sm::handleL3PortAndLagRoutingStatus> {};
  struct KivVlanIntfRoutingStatus final
      : SourceReactor<KivVlanIntfRoutingStatus, &Sm::handleVlanIntfRoutingStatus> {};
  struct KivL3SubIntfRoutingStatus final
      : SourceReactor<KivL3SubIntfRoutingStatus, &Sm::handleL3SubIntfRoutingStatus> {};

  static Kiv::Type const& _kivType();

  void kivEachReactor(auto f) {
    f(l3PortAndLagRoutingStatus_);
    f(vlanIntfRoutingStatus_);
    f(l3SubIntfRoutingStatus_);
  }

 private:
  /// Writes what a source has under `key`, or its absence, to the output. A null source: nothing.
  void merge(BfnL3::L3RoutingStatus const* source, Pex::PortVlanPair const& key);
  /// Runs `handler` for every key of a source, also while it changes. A null source: nothing.
  void mergeAll(Source const& source, void (Sm::*handler)(Pex::PortVlanPair const&));

  Kiv::ReactorSlot<KivL3PortAndLagRoutingStatus> l3PortAndLagRoutingStatus_;
  Kiv::ReactorSlot<KivVlanIntfRoutingStatus> vlanIntfRoutingStatus_;
  Kiv::ReactorSlot<KivL3SubIntfRoutingStatus> l3SubIntfRoutingStatus_;
  Kiv::Ptr<IntfIdToRoutingStatus> const intfIdToRoutingStatus_;
};

/// See BfnMacRewriteIntfRoutingStatusSmIs. Note the order: ports, VLAN interfaces, sub-interfaces.
BFN_MAC_REWRITE_EXPORT Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm>
bfnMacRewriteIntfRoutingStatusSmFactory(
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3PortAndLagRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& vlanIntfRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3SubIntfRoutingStatus,
    Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus);

}  // namespace BfnMacRewrite
