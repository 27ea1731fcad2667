// SPDX-License-Identifier: Apache-2.0
#include "config/BfnMacRewriteCliConfigSm.h"

#include <new>

#include "framework/core/Fatal.h"
#include "framework/generic/Describe.h"
#include "framework/trace/Trace.h"

KIV_TRACE_FACILITY("BfnMacRewriteCliConfigSm")

namespace BfnMacRewrite {

Kiv::Ptr<OverlaySrcMacRewriteCliConfigSm> overlaySrcMacRewriteCliConfigSmFactory(
    Kiv::Ptr<Input::Config const> const& overlaySrcMacRewriteCliConfig,
    Kiv::Ptr<Agent::Config> const& overlaySrcMacRewriteAgentConfig,
    Kiv::Ptr<Pex::L3Status const> const& l3Status) {
  return OverlaySrcMacRewriteCliConfigSm::OverlaySrcMacRewriteCliConfigSmIs(
      overlaySrcMacRewriteCliConfig, overlaySrcMacRewriteAgentConfig, l3Status);
}

OverlaySrcMacRewriteCliConfigSm::OverlaySrcMacRewriteCliConfigSm(
    Kiv::Ptr<Input::Config const> const& overlaySrcMacRewriteCliConfig,
    Kiv::Ptr<Agent::Config> const& overlaySrcMacRewriteAgentConfig,
    Kiv::Ptr<Pex::L3Status const> const& l3Status)
    : agentConfig_(overlaySrcMacRewriteAgentConfig) {
  overlaySrcMacRewriteCliConfig_.is(overlaySrcMacRewriteCliConfig, this);
  l3Status_.is(l3Status, this);
  handleInitialized();
}

void OverlaySrcMacRewriteCliConfigSm::handleInitialized() {
  KIV_TRACE(9, "");
  initializedIs(true);
  handleVrfId();
}

void OverlaySrcMacRewriteCliConfigSm::handleVrfId() {
  KIV_TRACE(9, "");
  KIV_CHECK(initialized());
  if (!l3Status_) return;
  auto walk = l3Status_.notifierRaw()->vrfNameToId().cursor();
  while (auto const* const vrf = walk.next()) addVrf(vrf->key);
}

void OverlaySrcMacRewriteCliConfigSm::handleVrfId(L3::VrfName vrfName) {
  if (!initialized()) return;
  KIV_TRACE(9, "vrfName: ", vrfName);
  if (l3Status_ && l3Status_.notifierRaw()->vrfNameToId(vrfName) != nullptr) {
    addVrf(vrfName);
  } else {
    deleteVrf(vrfName);
  }
}

void OverlaySrcMacRewriteCliConfigSm::addVrf(L3::VrfName vrfName) {
  KIV_CHECK(initialized());
  KIV_TRACE(9, "vrfName: ", vrfName);
  // clang-format off
  KIV_CHECK(!localVrfNameToIdHas( vrfName ), "vrfId for ", vrfName, " changed from ",
            localVrfNameToId(vrfName), " to ", publishedVrfId(vrfName));
  // clang-format on
  localVrfNameToIdIs(vrfName, publishedVrfId(vrfName));
  try {
    doAddOverlaySrcMacRewriteEntry(vrfName);
  } catch (std::bad_alloc const&) {
    // Undoes the announcement, so that the VRF can be announced again.
    deleteVrf(vrfName);
    throw;
  }
}

void OverlaySrcMacRewriteCliConfigSm::doAddOverlaySrcMacRewriteEntry(L3::VrfName vrfName) {
  KIV_CHECK(initialized());
  KIV_TRACE(9, "vrfName: ", vrfName);
  if (!overlaySrcMacRewriteCliConfig_) return;
  overlaySrcMacRewriteCliConfig_.notifierRaw()->forEachKeyOfVrf(
      vrfName, [this](Input::VrfNameAndIp const& key) { handleOverlaySrcMacRewriteEntry(key); });
}

void OverlaySrcMacRewriteCliConfigSm::deleteVrf(L3::VrfName vrfName) {
  KIV_CHECK(initialized());
  KIV_TRACE(9, "vrfName: ", vrfName);
  // Deliberate: a name that is not live reads as id 0, and the record under id 0 goes.
  Pex::VrfId const vrfId = localVrfNameToId(vrfName);
  try {
    if (agentConfig_) agentConfig_->overlaySrcMacRewriteDel(vrfId);
  } catch (...) {
    localVrfNameToIdDel(vrfName);  // a handler has thrown; the record is gone
    throw;
  }
  localVrfNameToIdDel(vrfName);
}

void OverlaySrcMacRewriteCliConfigSm::handleOverlaySrcMacRewriteEntry(
    Input::VrfNameAndIp const& key) {
  if (!initialized()) return;
  KIV_TRACE(9, "vrfName: ", key.vrfName, ", ip address: ", key.ip);
  auto const* const applied = localVrfNameToId_.find(key.vrfName);
  if (applied == nullptr) {
    // An entry that is added stays pending until its VRF gets an id; one that is removed was never
    // translated, or went with its VRF.
    KIV_TRACE(4, "Vrf doesn't exist, vrfName: ", key.vrfName);
    return;
  }
  Pex::VrfId const vrfId = applied->value;
  KIV_TRACE(4, "vrfId: ", vrfId);
  if (!agentConfig_ || !overlaySrcMacRewriteCliConfig_) return;
  auto const& lines = overlaySrcMacRewriteCliConfig_.notifierRaw()->overlaySrcMacRewriteEntry();
  Kiv::Ptr<Agent::OverlaySrcMacRewrite> record(agentConfig_->overlaySrcMacRewrite(vrfId));
  if (auto const* line = lines.find(key)) {
    if (!record) {
      agentConfig_->overlaySrcMacRewriteIs(vrfId);
      // Handlers of a new record may have changed the line, the record and the VRF: read them
      // again.
      record = Kiv::Ptr(agentConfig_->overlaySrcMacRewrite(vrfId));
      line = lines.find(key);
      auto const* const live = localVrfNameToId_.find(key.vrfName);
      if (!record || line == nullptr || live == nullptr || !(live->value == vrfId)) return;
    }
    record->ipAndMacIs({key.ip, line->mac});
    return;
  }
  if (!record) return;
  record->ipAndMacDel(key.ip);
  // The same record: a handler may have put another one in its place.
  bool const same = agentConfig_->overlaySrcMacRewrite(vrfId) == record.get();
  if (same && record->ipAndMac().empty()) agentConfig_->overlaySrcMacRewriteDel(vrfId);
}

Pex::VrfId OverlaySrcMacRewriteCliConfigSm::publishedVrfId(L3::VrfName vrfName) const {
  auto const* const vrfId = l3Status_ ? l3Status_.notifierRaw()->vrfNameToId(vrfName) : nullptr;
  return vrfId == nullptr ? Pex::VrfId() : *vrfId;
}

Kiv::Type const& OverlaySrcMacRewriteCliConfigSm::_kivType() {
  using T = OverlaySrcMacRewriteCliConfigSm;
  static Kiv::Type const type(
      "BfnMacRewrite::OverlaySrcMacRewriteCliConfigSm", &Kiv::PtrInterface::_kivType(),
      {Kiv::describeConstant<&T::overlaySrcMacRewriteCliConfig>("overlaySrcMacRewriteCliConfig",
                                                                130),
       Kiv::describeConstant<&T::overlaySrcMacRewriteAgentConfig>("overlaySrcMacRewriteAgentConfig",
                                                                  131),
       Kiv::describeConstant<&T::l3Status>("l3Status", 132),
       Kiv::describeCollection<&T::localVrfNameToId_>("localVrfNameToId", 133),
       Kiv::describeConstant<&T::initialized>("initialized", 134)});
  return type;
}

}  // namespace BfnMacRewrite
