// SPDX-License-Identifier: Apache-2.0
#include "agent/BfnMacRewriteL3Shared.h"

#include "framework/generic/Describe.h"

namespace BfnMacRewrite {

Kiv::Type const& BfnL3Input::_kivType() {
  using T = BfnL3Input;
  static Kiv::Type const type("BfnMacRewrite::BfnL3Input", &Kiv::PtrInterface::_kivType(),
                              {Kiv::describeScalar<&T::macRewriteEnabled, &T::macRewriteEnabledIs>(
                                  "macRewriteEnabled", kMacRewriteEnabled.id)});
  return type;
}

Kiv::Type const& BfnL3Output::_kivType() {
  using T = BfnL3Output;
  static Kiv::Type const type(
      "BfnMacRewrite::BfnL3Output", &Kiv::PtrInterface::_kivType(),
      {Kiv::describeScalar<&T::profileName, &T::profileNameIs>("profileName", kProfileName.id),
       Kiv::describeScalar<&T::profileEntry, &T::profileEntryIs>("profileEntry", kProfileEntry.id),
       Kiv::describeScalar<&T::initMacRewriteTables, &T::initMacRewriteTablesIs>(
           "initMacRewriteTables", kInitMacRewriteTables.id),
       Kiv::describeScalar<&T::startMacRewriteSm, &T::startMacRewriteSmIs>("startMacRewriteSm",
                                                                           kStartMacRewriteSm.id)});
  return type;
}

BfnMacRewriteL3Shared::BfnMacRewriteL3Shared() {
  handleInitialized();
}

BfnMacRewriteL3Shared::~BfnMacRewriteL3Shared() {
  bfnL3InputDel();
  bfnL3OutputDel();
  notifieeList().clear();
}

void BfnMacRewriteL3Shared::handleInitialized() {
  bfnL3InputIs();
  bfnL3OutputIs();
  initializedIs(true);
}

Kiv::Ptr<BfnL3Input> BfnMacRewriteL3Shared::bfnL3InputIs() {
  if (Kiv::Ptr<BfnL3Input> input = bfnL3Input()) return input;
  auto input = Kiv::makeActive<BfnL3Input>();
  bfnL3Input_.is(input);
  return input;
}

Kiv::Ptr<BfnL3Output> BfnMacRewriteL3Shared::bfnL3OutputIs() {
  if (Kiv::Ptr<BfnL3Output> output = bfnL3Output()) return output;
  auto output = Kiv::makeActive<BfnL3Output>();
  bfnL3Output_.is(output);
  return output;
}

Kiv::Type const& BfnMacRewriteL3Shared::_kivType() {
  using T = BfnMacRewriteL3Shared;
  static Kiv::Type const type(
      "BfnMacRewrite::BfnMacRewriteL3Shared", &Kiv::PtrInterface::_kivType(),
      {Kiv::describeScalar<&T::l3Status, &T::l3StatusIs>("l3Status", kL3Status.id),
       Kiv::describeScalar<&T::l3PortAndLagRoutingStatus, &T::l3PortAndLagRoutingStatusIs>(
           "l3PortAndLagRoutingStatus", kL3PortAndLagRoutingStatus.id),
       Kiv::describeScalar<&T::l3SubIntfRoutingStatus, &T::l3SubIntfRoutingStatusIs>(
           "l3SubIntfRoutingStatus", kL3SubIntfRoutingStatus.id),
       Kiv::describeScalar<&T::vlanIntfRoutingStatus, &T::vlanIntfRoutingStatusIs>(
           "vlanIntfRoutingStatus", kVlanIntfRoutingStatus.id),
       Kiv::describeConstant<&T::bfnL3Input>("bfnL3Input", kBfnL3Input.id),
       Kiv::describeConstant<&T::bfnL3Output>("bfnL3Output", kBfnL3Output.id),
       Kiv::describeConstant<&T::initialized>("initialized", kInitialized.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace BfnMacRewrite
