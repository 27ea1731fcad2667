// SPDX-License-Identifier: Apache-2.0
#include "intfstatus/BfnMacRewriteIntfRoutingStatusSm.h"

#include "framework/core/Reactor.h"
#include "framework/generic/Describe.h"
#include "framework/trace/Trace.h"

KIV_TRACE_FACILITY("BfnMacRewriteIntfRoutingStatusSm")

namespace BfnMacRewrite {

Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm> bfnMacRewriteIntfRoutingStatusSmFactory(
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3PortAndLagRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& vlanIntfRoutingStatus,
    Kiv::Ptr<BfnL3::L3RoutingStatus const> const& l3SubIntfRoutingStatus,
    Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus) {
  return BfnMacRewriteIntfRoutingStatusSm::BfnMacRewriteIntfRoutingStatusSmIs(
      l3PortAndLagRoutingStatus, vlanIntfRoutingStatus, l3SubIntfRoutingStatus,
      intfIdToRoutingStatus);
}

BfnMacRewriteIntfRoutingStatusSm::BfnMacRewriteIntfRoutingStatusSm(
    Source const& l3PortAndLagRoutingStatus, Source const& vlanIntfRoutingStatus,
    Source const& l3SubIntfRoutingStatus,
    Kiv::Ptr<IntfIdToRoutingStatus> const& intfIdToRoutingStatus)
    : intfIdToRoutingStatus_(intfIdToRoutingStatus) {
  l3PortAndLagRoutingStatus_.is(l3PortAndLagRoutingStatus, this);
  vlanIntfRoutingStatus_.is(vlanIntfRoutingStatus, this);
  l3SubIntfRoutingStatus_.is(l3SubIntfRoutingStatus, this);
  handleInitialized();
}

void BfnMacRewriteIntfRoutingStatusSm::merge(BfnL3::L3RoutingStatus const* source,
                                             Pex::PortVlanPair const& key) {
  if (source == nullptr || !intfIdToRoutingStatus_) return;
  Kiv::Ptr<BfnL3::L3IntfRoutingStatus const> const status(source->l3IntfRoutingStatus(key));
  intfIdToRoutingStatus_->l3IntfRoutingStatusIs(key.intfId(), status);
}

void BfnMacRewriteIntfRoutingStatusSm::mergeAll(Source const& source,
                                                void (Sm::*handler)(Pex::PortVlanPair const&)) {
  if (!source) return;
  auto walk = source->l3IntfRoutingStatus().cursor();
  while (auto const* const status = walk.next()) {
    Pex::PortVlanPair const key = status->intfAndVlan();
    (this->*handler)(key);
  }
}

void BfnMacRewriteIntfRoutingStatusSm::handleInitialized() {
  KIV_TRACE(9, "");
  initializedIs(true);
  // Not always called by dispatch: a handler of the output may release this machine.
  Kiv::Ptr<BfnMacRewriteIntfRoutingStatusSm> const keep(this);
  mergeAll(l3PortAndLagRoutingStatus(), &Sm::handleL3PortAndLagRoutingStatus);
  mergeAll(vlanIntfRoutingStatus(), &Sm::handleVlanIntfRoutingStatus);
  mergeAll(l3SubIntfRoutingStatus(), &Sm::handleL3SubIntfRoutingStatus);
}

void BfnMacRewriteIntfRoutingStatusSm::handleL3PortAndLagRoutingStatus(
    Pex::PortVlanPair const& key) {
  if (!initialized()) return;
  KIV_TRACE(9, "intfId: ", key.intfId(), ", vlan: ", key.vlanId());
  merge(l3PortAndLagRoutingStatus_.notifierRaw(), key);
}

void BfnMacRewriteIntfRoutingStatusSm::handleVlanIntfRoutingStatus(Pex::PortVlanPair const& key) {
  if (!initialized()) return;
  KIV_TRACE(9, "intfId: ", key.intfId(), ", vlan: ", key.vlanId());
  merge(vlanIntfRoutingStatus_.notifierRaw(), key);
}

void BfnMacRewriteIntfRoutingStatusSm::handleL3SubIntfRoutingStatus(Pex::PortVlanPair const& key) {
  if (!initialized()) return;
  KIV_TRACE(9, "intfId: ", key.intfId(), ", vlan: ", key.vlanId());
  merge(l3SubIntfRoutingStatus_.notifierRaw(), key);
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
