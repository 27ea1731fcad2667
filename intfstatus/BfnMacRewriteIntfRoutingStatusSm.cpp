#include "intfstatus/BfnMacRewriteIntfRoutingStatusSm.h"

#include "framework/core/Reactor.h"
#include "framework/generic/Describe.h"
#include "framework/trace/Trace.h"

KIV_TRACE_FACILITY("BfnMacRewriteIntfRoutingStatusSm")

namespace BfnMacRewrite {

class BfnMacRewriteIntfRoutingStatusSm::KivL3PortAndLagRoutingStatus final
    : public Kiv::Reactor<KivL3PortAndLagRoutingStatus, BfnL3::L3RoutingStatus const,
                          BfnMacRewriteIntfRoutingStatusSm> {
 public:
  using Reactor::Reactor;
  using Rows =
      Kiv::Rows<Kiv::On<BfnL3::L3RoutingStatus::kL3IntfRoutingStatus,
                        &BfnMacRewriteIntfRoutingStatusSm::handleL3PortAndLagRoutingStatus>>;
};

class BfnMacRewriteIntfRoutingStatusSm::KivVlanIntfRoutingStatus final
    : public Kiv::Reactor<KivVlanIntfRoutingStatus, BfnL3::L3RoutingStatus const,
                          BfnMacRewriteIntfRoutingStatusSm> {
 public:
  using Reactor::Reactor;
  using Rows = Kiv::Rows<Kiv::On<BfnL3::L3RoutingStatus::kL3IntfRoutingStatus,
                                 &BfnMacRewriteIntfRoutingStatusSm::handleVlanIntfRoutingStatus>>;
};

class BfnMacRewriteIntfRoutingStatusSm::KivL3SubIntfRoutingStatus final
    : public Kiv::Reactor<KivL3SubIntfRoutingStatus, BfnL3::L3RoutingStatus const,
                          BfnMacRewriteIntfRoutingStatusSm> {
 public:
  using Reactor::Reactor;
  using Rows = Kiv::Rows<Kiv::On<BfnL3::L3RoutingStatus::kL3IntfRoutingStatus,
                                 &BfnMacRewriteIntfRoutingStatusSm::handleL3SubIntfRoutingStatus>>;
};

Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm> bfnMacRewriteIntfRoutingStatusSmFactory(
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3PortAndLagRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& vlanIntfRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3SubIntfRoutingStatus,
    Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus) {
  return BfnMacRewriteIntfRoutingStatusSm::BfnMacRewriteIntfRoutingStatusSmIs(
      l3PortAndLagRoutingStatus, vlanIntfRoutingStatus, l3SubIntfRoutingStatus,
      intfIdToRoutingStatus);
}

Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm>
BfnMacRewriteIntfRoutingStatusSm::BfnMacRewriteIntfRoutingStatusSmIs(
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3PortAndLagRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& vlanIntfRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3SubIntfRoutingStatus,
    Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus) {
  return Kiv::makeActive<BfnMacRewriteIntfRoutingStatusSm>(
      l3PortAndLagRoutingStatus, vlanIntfRoutingStatus, l3SubIntfRoutingStatus,
      intfIdToRoutingStatus);
}

BfnMacRewriteIntfRoutingStatusSm::BfnMacRewriteIntfRoutingStatusSm(
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3PortAndLagRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& vlanIntfRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3SubIntfRoutingStatus,
    Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus)
    : intfIdToRoutingStatus_(intfIdToRoutingStatus) {
  l3PortAndLagRoutingStatus_.is(l3PortAndLagRoutingStatus, this);
  vlanIntfRoutingStatus_.is(vlanIntfRoutingStatus, this);
  l3SubIntfRoutingStatus_.is(l3SubIntfRoutingStatus, this);
  handleInitialized();
}

BfnMacRewriteIntfRoutingStatusSm::~BfnMacRewriteIntfRoutingStatusSm() {
  kivTeardown();
}

Kiv::Ptr<BfnL3::L3RoutingStatus const> BfnMacRewriteIntfRoutingStatusSm::l3PortAndLagRoutingStatus()
    const {
  return l3PortAndLagRoutingStatus_.notifier();
}
Kiv::Ptr<BfnL3::L3RoutingStatus const> BfnMacRewriteIntfRoutingStatusSm::vlanIntfRoutingStatus()
    const {
  return vlanIntfRoutingStatus_.notifier();
}
Kiv::Ptr<BfnL3::L3RoutingStatus const> BfnMacRewriteIntfRoutingStatusSm::l3SubIntfRoutingStatus()
    const {
  return l3SubIntfRoutingStatus_.notifier();
}

void BfnMacRewriteIntfRoutingStatusSm::l3PortAndLagRoutingStatusDel() {
  l3PortAndLagRoutingStatus_.del();
}
void BfnMacRewriteIntfRoutingStatusSm::vlanIntfRoutingStatusDel() {
  vlanIntfRoutingStatus_.del();
}
void BfnMacRewriteIntfRoutingStatusSm::l3SubIntfRoutingStatusDel() {
  l3SubIntfRoutingStatus_.del();
}

template <class Reactor>
void BfnMacRewriteIntfRoutingStatusSm::merge(Source<Reactor> const& source,
                                             Pex::PortVlanPair const& key) {
  BfnL3::L3RoutingStatus const* const input = source.notifierRaw();
  if (input == nullptr || !intfIdToRoutingStatus_) return;
  Kiv::Ptr<BfnL3::L3IntfRoutingStatus const> const status(input->l3IntfRoutingStatus(key));
  intfIdToRoutingStatus_->l3IntfRoutingStatusIs(key.intfId(), status);
}

template <class Reactor>
void BfnMacRewriteIntfRoutingStatusSm::mergeAll(Source<Reactor> const& source, Handler handler) {
  Kiv::Ptr<BfnL3::L3RoutingStatus const> const input = source.notifier();
  if (!input) return;
  auto walk = input->l3IntfRoutingStatus().cursor();
  while (auto const* const status = walk.next()) {
    Pex::PortVlanPair const key = status->intfAndVlan();
    (this->*handler)(key);
  }
}

void BfnMacRewriteIntfRoutingStatusSm::handleInitialized() {
  KIV_TRACE(9, "");
  initializedIs(true);
  // Whoever watches the output may let go of this machine.
  Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm> const keep(this);
  using Sm = BfnMacRewriteIntfRoutingStatusSm;
  mergeAll(l3PortAndLagRoutingStatus_, &Sm::handleL3PortAndLagRoutingStatus);
  mergeAll(vlanIntfRoutingStatus_, &Sm::handleVlanIntfRoutingStatus);
  mergeAll(l3SubIntfRoutingStatus_, &Sm::handleL3SubIntfRoutingStatus);
}

void BfnMacRewriteIntfRoutingStatusSm::handleL3PortAndLagRoutingStatus(
    Pex::PortVlanPair const& key) {
  if (!initialized()) return;
  KIV_TRACE(9, "intfId: ", key.intfId(), ", vlan: ", key.vlanId());
  merge(l3PortAndLagRoutingStatus_, key);
}

void BfnMacRewriteIntfRoutingStatusSm::handleVlanIntfRoutingStatus(Pex::PortVlanPair const& key) {
  if (!initialized()) return;
  KIV_TRACE(9, "intfId: ", key.intfId(), ", vlan: ", key.vlanId());
  merge(vlanIntfRoutingStatus_, key);
}

void BfnMacRewriteIntfRoutingStatusSm::handleL3SubIntfRoutingStatus(Pex::PortVlanPair const& key) {
  if (!initialized()) return;
  KIV_TRACE(9, "intfId: ", key.intfId(), ", vlan: ", key.vlanId());
  merge(l3SubIntfRoutingStatus_, key);
}

Kiv::Type const& BfnMacRewriteIntfRoutingStatusSm::_kivType() {
  using T = BfnMacRewriteIntfRoutingStatusSm;
  static Kiv::Type const type(
      "BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm", &Kiv::PtrInterface::_kivType(),
      {Kiv::describeConstant<&T::l3PortAndLagRoutingStatus>("l3PortAndLagRoutingStatus", 130),
       Kiv::describeConstant<&T::vlanIntfRoutingStatus>("vlanIntfRoutingStatus", 131),
       Kiv::describeConstant<&T::l3SubIntfRoutingStatus>("l3SubIntfRoutingStatus", 132),
       Kiv::describeConstant<&T::intfIdToRoutingStatus>("intfIdToRoutingStatus", 133),
       Kiv::describeConstant<&T::initialized>("initialized", 134)});
  return type;
}

}  // namespace BfnMacRewrite

template class Kiv::StateMachine<BfnMacRewrite::BfnMacRewriteIntfRoutingStatusSm>;
