// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <tuple>

#include "agent/records/BfnMacRewriteInput.h"
#include "agent/records/BfnMacRewriteTypes.h"
#include "agent/records/Export.h"
#include "framework/collections/HashMap2018.h"
#include "framework/collections/ReactorSlot.h"
#include "framework/core/Reactor.h"
#include "framework/core/StateMachine.h"
#include "framework/l3/L3Status.h"
#include "framework/values/VrfId.h"
#include "framework/values/VrfName.h"

namespace BfnMacRewrite {

/// Translates the operator's configuration, keyed by VRF name, into Agent::Config, keyed by VRF id,
/// and follows VRFs as they gain and lose their ids.
///
/// A VRF is live while it has an id in localVrfNameToId: the id under which all its entries were
/// written, and the only one ever used to change or remove them. Entries of a VRF that is not live
/// are pending; they are translated when it gets an id. Deliberate: a VRF that changes its id while
/// it is live, or is announced twice, ends the process; entries are never moved from one id to
/// another.
///
/// Ownership: shares the output with its creator. Destruction leaves the output as it is.
class BFN_MAC_REWRITE_EXPORT OverlaySrcMacRewriteCliConfigSm final
    : public Kiv::StateMachine<OverlaySrcMacRewriteCliConfigSm> {
  using Sm = OverlaySrcMacRewriteCliConfigSm;

 public:
  /// Makes the machine of the constructor's arguments and switches it on.
  static Kiv::Ptr<Sm> OverlaySrcMacRewriteCliConfigSmIs(auto const&... inputs) {
    return Kiv::makeActive<Sm>(inputs...);
  }
  /// Translates everything that is there already. A null input is never watched and contributes
  /// nothing.
  OverlaySrcMacRewriteCliConfigSm(
      Kiv::Ptr<Input::Config const> const& overlaySrcMacRewriteCliConfig,
      Kiv::Ptr<Agent::Config> const& overlaySrcMacRewriteAgentConfig,
      Kiv::Ptr<Pex::L3Status const> const& l3Status);

  auto overlaySrcMacRewriteCliConfig() const { return overlaySrcMacRewriteCliConfig_.notifier(); }
  auto const& overlaySrcMacRewriteAgentConfig() const { return agentConfig_; }
  auto l3Status() const { return l3Status_.notifier(); }
  /// The constructor's arguments.
  auto inputs() const {
    return std::tuple(overlaySrcMacRewriteCliConfig(), agentConfig_, l3Status());
  }

  void handleInitialized();
  /// Announces every VRF that has an id.
  void handleVrfId();
  /// One VRF gained or lost its id.
  void handleVrfId(L3::VrfName vrfName);
  /// One configuration line was added, changed or removed.
  void handleOverlaySrcMacRewriteEntry(Input::VrfNameAndIp const& key);

  struct KivOverlaySrcMacRewriteCliConfig final
      : Kiv::Reactor<KivOverlaySrcMacRewriteCliConfig, Input::Config const, Sm,
                     Kiv::On<Input::Config::kOverlaySrcMacRewriteEntry,
                             &Sm::handleOverlaySrcMacRewriteEntry>> {};
  struct KivL3Status final
      : Kiv::Reactor<
            KivL3Status, Pex::L3Status const, Sm,
            Kiv::On<Pex::L3Status::kVrfNameToId, Kiv::keyed<L3::VrfName>(&Sm::handleVrfId)>> {};

  void addVrf(L3::VrfName vrfName);
  /// Deletes the VRF's whole record. Deliberate: a name that is not live deletes record 0.
  void deleteVrf(L3::VrfName vrfName);
  void doAddOverlaySrcMacRewriteEntry(L3::VrfName vrfName);

  /// The ids that this machine has applied. An absent name has id 0; only localVrfNameToIdHas()
  /// says whether a VRF is live, for 0 is a VRF's id as well.
  Pex::VrfId localVrfNameToId(L3::VrfName vrfName) const {
    return localVrfNameToId_.get(vrfName).value;
  }
  auto const& localVrfNameToId() const { return localVrfNameToId_; }
  bool localVrfNameToIdHas(L3::VrfName vrfName) const { return localVrfNameToId_.has(vrfName); }
  void localVrfNameToIdIs(L3::VrfName vrfName, Pex::VrfId vrfId) {
    localVrfNameToId_.set({vrfName, vrfId});
  }
  void localVrfNameToIdDel(L3::VrfName vrfName) { localVrfNameToId_.take(vrfName); }
  void localVrfNameToIdDelAll() { localVrfNameToId_.clear(); }

  static Kiv::Type const& _kivType();

  void kivEachReactor(auto f) {
    f(overlaySrcMacRewriteCliConfig_);
    f(l3Status_);
  }

 private:
  Pex::VrfId publishedVrfId(L3::VrfName vrfName) const;

  Kiv::ReactorSlot<KivOverlaySrcMacRewriteCliConfig> overlaySrcMacRewriteCliConfig_;
  Kiv::Ptr<Agent::Config> const agentConfig_;
  Kiv::ReactorSlot<KivL3Status> l3Status_;
  Kiv::HashMap2018Of<L3::VrfName, Pex::VrfId, 0x3A96D5C1> localVrfNameToId_;
};

/// See OverlaySrcMacRewriteCliConfigSmIs.
BFN_MAC_REWRITE_EXPORT Kiv::Ptr<OverlaySrcMacRewriteCliConfigSm>
overlaySrcMacRewriteCliConfigSmFactory(
    Kiv::Ptr<Input::Config const> const& overlaySrcMacRewriteCliConfig,
    Kiv::Ptr<Agent::Config> const& overlaySrcMacRewriteAgentConfig,
    Kiv::Ptr<Pex::L3Status const> const& l3Status);

}  // namespace BfnMacRewrite
