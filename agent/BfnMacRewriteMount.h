// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/records/BfnMacRewriteInput.h"
#include "agent/records/BfnMacRewriteTypes.h"
#include "agent/records/Export.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/corvo/EntityManager.h"
#include "framework/corvo/MountGroup.h"

namespace BfnMacRewrite {

/// The plug-in's entities of the state database, and its two own records.
///
/// The host makes it, with everything null, calls doMount(), waits until the group is mounted and
/// calls getEntity(). An entity that is not there, or is of another type, leaves its attribute
/// null.
class BFN_MAC_REWRITE_EXPORT BfnMacRewriteMount final : public Kiv::PtrInterface {
 public:
  /// Adds the plug-in's two mounts to the group. `cellId` is not used.
  void doMount(Kiv::Ptr<Corvo::MountGroup> const& mountGroup, unsigned short cellId);
  /// Fetches the two mounted entities, then makes the records that are not there yet. `cellId` is
  /// not used.
  void getEntity(Kiv::Ptr<Corvo::EntityManager> const& entityManager, unsigned short cellId);

  Kiv::Ptr<Input::Config const> const& bfnMacRewriteCliConfig() const { return cliConfig_; }
  void bfnMacRewriteCliConfigIs(Kiv::Ptr<Input::Config const> const& v) { cliConfig_ = v; }
  Kiv::Ptr<Capability> const& bfnMacRewriteCapability() const { return capability_; }
  void bfnMacRewriteCapabilityIs(Kiv::Ptr<Capability> const& v) { capability_ = v; }

  Kiv::Ptr<Agent::Config> const& bfnMacRewriteAgentConfig() const { return agentConfig_; }
  /// The record; made, empty and with notification on, when it is not there.
  Kiv::Ptr<Agent::Config> bfnMacRewriteAgentConfigIs();
  void bfnMacRewriteAgentConfigDel() { agentConfig_.reset(); }
  Kiv::Ptr<Agent::Status> const& bfnMacRewriteAgentStatus() const { return agentStatus_; }
  Kiv::Ptr<Agent::Status> bfnMacRewriteAgentStatusIs();
  void bfnMacRewriteAgentStatusDel() { agentStatus_.reset(); }

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  Kiv::Ptr<Input::Config const> cliConfig_;
  Kiv::Ptr<Capability> capability_;
  Kiv::Ptr<Agent::Config> agentConfig_;
  Kiv::Ptr<Agent::Status> agentStatus_;
};

}  // namespace BfnMacRewrite
