#pragma once

#include "agent/records/Export.h"
#include "framework/core/ReactorSlot.h"
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
/// interface. Nothing is rebuilt from what remains: kept.
///
/// Ownership: shares the output with its creator and leaves it as it is when it dies.
class BfnMacRewriteIntfRoutingStatusSm final
    : public Kiv::StateMachine<BfnMacRewriteIntfRoutingStatusSm> {
 public:
  class KivL3PortAndLagRoutingStatus;
  class KivVlanIntfRoutingStatus;
  class KivL3SubIntfRoutingStatus;

  /// Makes the machine, everything that is there already merged, and switches it on. A null input
  /// is not watched and contributes nothing.
  static Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm> BfnMacRewriteIntfRoutingStatusSmIs(
      Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3PortAndLagRoutingStatus,
      Kiv::Ptr<BfnL3::L3RoutingStatus const> const& vlanIntfRoutingStatus,
      Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3SubIntfRoutingStatus,
      Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus);

  BfnMacRewriteIntfRoutingStatusSm(
      Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3PortAndLagRoutingStatus,
      Kiv::Ptr<BfnL3::L3RoutingStatus const> const& vlanIntfRoutingStatus,
      Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3SubIntfRoutingStatus,
      Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus);
  ~BfnMacRewriteIntfRoutingStatusSm() override;

  Kiv::Ptr<BfnL3::L3RoutingStatus const> l3PortAndLagRoutingStatus() const;
  Kiv::Ptr<BfnL3::L3RoutingStatus const> vlanIntfRoutingStatus() const;
  Kiv::Ptr<BfnL3::L3RoutingStatus const> l3SubIntfRoutingStatus() const;
  Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus() const {
    return intfIdToRoutingStatus_;
  }

  /// Drop one reactor: that input is not watched any more. The output stays as it is.
  void l3PortAndLagRoutingStatusDel();
  void vlanIntfRoutingStatusDel();
  void l3SubIntfRoutingStatusDel();

  /// Merges everything that is there: sub-interfaces last, so they win over VLAN interfaces, and
  /// those over ports. The output is neither cleared before nor pruned after: kept.
  void handleInitialized();
  void handleL3PortAndLagRoutingStatus(Pex::PortVlanPair const& key);
  void handleVlanIntfRoutingStatus(Pex::PortVlanPair const& key);
  void handleL3SubIntfRoutingStatus(Pex::PortVlanPair const& key);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

  template <class F>
  void kivEachReactor(F f) {
    f(l3PortAndLagRoutingStatus_);
    f(vlanIntfRoutingStatus_);
    f(l3SubIntfRoutingStatus_);
  }

 private:
  template <class Reactor>
  using Source =
      Kiv::ReactorSlot<Reactor, BfnL3::L3RoutingStatus const, BfnMacRewriteIntfRoutingStatusSm>;
  using Handler = void (BfnMacRewriteIntfRoutingStatusSm::*)(Pex::PortVlanPair const&);

  /// Writes what a source has under `key`, or its absence, to the output.
  template <class Reactor>
  void merge(Source<Reactor> const& source, Pex::PortVlanPair const& key);
  template <class Reactor>
  void mergeAll(Source<Reactor> const& source, Handler handler);

  Source<KivL3PortAndLagRoutingStatus> l3PortAndLagRoutingStatus_;
  Source<KivVlanIntfRoutingStatus> vlanIntfRoutingStatus_;
  Source<KivL3SubIntfRoutingStatus> l3SubIntfRoutingStatus_;
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

// Made where the machine's reactors are complete.
extern template class Kiv::StateMachine<BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm>;
