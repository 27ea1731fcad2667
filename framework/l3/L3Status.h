// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/collections/ValueCollection.h"
#include "framework/core/Entity.h"
#include "framework/values/VrfId.h"
#include "framework/values/VrfName.h"

namespace Pex {

/// The L3 agent's VRFs, in both directions: name to id and id to name.
///
/// Written by the host agent. Each direction is set and notifies separately; an equal value does
/// not notify.
class L3Status final : public Kiv::Entity {
 public:
  static constexpr Kiv::Attr<L3::VrfName, L3Status> kVrfNameToId{258};
  static constexpr Kiv::Attr<VrfId, L3Status> kVrfName{259};

  L3Status();

  /// The id of a VRF, or null when it has none. Valid until the next insertion or removal.
  VrfId const* vrfNameToId(L3::VrfName vrfName) const {
    auto const* const entry = vrfNameToId_.find(vrfName);
    return entry == nullptr ? nullptr : &entry->value;
  }
  auto const& vrfNameToId() const { return vrfNameToId_; }
  void vrfNameToIdIs(L3::VrfName vrfName, VrfId vrfId);
  void vrfNameToIdDel(L3::VrfName vrfName);

  /// The name of a VRF; the empty name when the id has none.
  L3::VrfName vrfName(VrfId vrfId) const { return vrfName_.get(vrfId).value; }
  auto const& vrfName() const { return vrfName_; }
  void vrfNameIs(VrfId vrfId, L3::VrfName vrfName);
  void vrfNameDel(VrfId vrfId);

  /// Sets a VRF in both directions, the id's name first, so that a handler of the name's id finds
  /// the name. Of several VRFs with one id, the last one set names it. A VRF that had another id
  /// leaves that one at the end, as vrfDel() does.
  void vrfIs(L3::VrfName vrfName, VrfId vrfId);
  /// Removes a VRF in both directions. An id that it names gets the name of another VRF that has
  /// this id, the smallest one, or none. Cost: linear in the number of VRFs.
  void vrfDel(L3::VrfName vrfName);

  Kiv::Type const& fwkType() const override { return _kivType(); }
  static Kiv::Type const& _kivType();

 private:
  // Takes from the id the name of a VRF that has left it. Nothing when the VRF has the id, again.
  void idIsLeft(VrfId vrfId, L3::VrfName vrfName);

  Kiv::MapCollection<kVrfNameToId, L3::VrfName, VrfId, 0x27F0C3A9> vrfNameToId_{*this};
  Kiv::MapCollection<kVrfName, VrfId, L3::VrfName, 0x8E5B1D64> vrfName_{*this};
};

}  // namespace Pex
