// SPDX-License-Identifier: Apache-2.0
#include "agent/BfnMacRewriteMount.h"

#include "framework/generic/Describe.h"

namespace BfnMacRewrite {

namespace {

constexpr char const* kConfigPath = "vxlan/hardware/srcMacRewrite/config";
constexpr char const* kCapabilityPath = "vxlan/hardware/srcMacRewrite/capability";

void mountOne(Corvo::MountGroup& group, char const* path, char const* typeName, char const* mode) {
  Corvo::Mount mount(path, typeName, mode, Corvo::AllMountFlags(0), Corvo::MountFilter(false));
  mount.handleFlags(mode);
  group.doMount(mount);
}

}  // namespace

void BfnMacRewriteMount::doMount(Kiv::Ptr<Corvo::MountGroup> const& mountGroup,
                                 unsigned short /*cellId*/) {
  Kiv::Ptr<Corvo::MountGroup> const group = mountGroup;  // mounting may take it from the host
  mountOne(*group, kConfigPath, "BfnMacRewrite::Input::Config", "r");
  mountOne(*group, kCapabilityPath, "BfnMacRewrite::Capability", "w");
}

void BfnMacRewriteMount::getEntity(Kiv::Ptr<Corvo::EntityManager> const& entityManager,
                                   unsigned short /*cellId*/) {
  bfnMacRewriteCliConfigIs(
      Kiv::ptrCast<Input::Config const>(entityManager->getEntity(kConfigPath)));
  bfnMacRewriteCapabilityIs(Kiv::ptrCast<Capability>(entityManager->getEntity(kCapabilityPath)));
  bfnMacRewriteAgentConfigIs();
  bfnMacRewriteAgentStatusIs();
}

Kiv::Ptr<Agent::Config> BfnMacRewriteMount::bfnMacRewriteAgentConfigIs() {
  if (!agentConfig_) agentConfig_ = Kiv::makeActive<Agent::Config>();
  return agentConfig_;
}

Kiv::Ptr<Agent::Status> BfnMacRewriteMount::bfnMacRewriteAgentStatusIs() {
  if (!agentStatus_) agentStatus_ = Kiv::makeActive<Agent::Status>();
  return agentStatus_;
}

Kiv::Type const& BfnMacRewriteMount::_kivType() {
  using T = BfnMacRewriteMount;
  static Kiv::Type const type(
      "BfnMacRewrite::BfnMacRewriteMount", &Kiv::PtrInterface::_kivType(),
      {Kiv::describeScalar<&T::bfnMacRewriteCliConfig, &T::bfnMacRewriteCliConfigIs>(
           "bfnMacRewriteCliConfig", 130),
       Kiv::describeScalar<&T::bfnMacRewriteCapability, &T::bfnMacRewriteCapabilityIs>(
           "bfnMacRewriteCapability", 131),
       Kiv::describeConstant<&T::bfnMacRewriteAgentConfig>("bfnMacRewriteAgentConfig", 132),
       Kiv::describeConstant<&T::bfnMacRewriteAgentStatus>("bfnMacRewriteAgentStatus", 133),
       Kiv::describeOperation<&T::doMount>("doMount"),
       Kiv::describeOperation<&T::getEntity>("getEntity"),
       Kiv::describeOperation<&T::bfnMacRewriteAgentConfigDel>("bfnMacRewriteAgentConfigDel"),
       Kiv::describeOperation<&T::bfnMacRewriteAgentStatusDel>("bfnMacRewriteAgentStatusDel")},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace BfnMacRewrite
