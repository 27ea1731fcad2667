// SPDX-License-Identifier: Apache-2.0
#include "framework/l3/L3Status.h"

#include "framework/generic/Describe.h"

namespace Pex {

L3Status::L3Status() = default;

void L3Status::vrfNameToIdIs(L3::VrfName vrfName, VrfId vrfId) {
  vrfNameToId_.set({vrfName, vrfId});
}
void L3Status::vrfNameToIdDel(L3::VrfName vrfName) {
  vrfNameToId_.del(vrfName);
}
void L3Status::vrfNameIs(VrfId vrfId, L3::VrfName vrfName) {
  vrfName_.set({vrfId, vrfName});
}
void L3Status::vrfNameDel(VrfId vrfId) {
  vrfName_.del(vrfId);
}

void L3Status::vrfIs(L3::VrfName vrfName, VrfId vrfId) {
  Kiv::Ptr<L3Status> const keep(this);
  VrfId const* const published = vrfNameToId(vrfName);
  VrfId const before = published == nullptr ? vrfId : *published;
  vrfNameIs(vrfId, vrfName);
  try {
    vrfNameToIdIs(vrfName, vrfId);
  } catch (...) {
    idIsLeft(before, vrfName);
    throw;
  }
  idIsLeft(before, vrfName);
}

void L3Status::vrfDel(L3::VrfName vrfName) {
  VrfId const* const published = vrfNameToId(vrfName);
  if (published == nullptr) return;
  VrfId const vrfId = *published;
  Kiv::Ptr<L3Status> const keep(this);
  try {
    vrfNameToIdDel(vrfName);
  } catch (...) {
    idIsLeft(vrfId, vrfName);
    throw;
  }
  idIsLeft(vrfId, vrfName);
}

void L3Status::idIsLeft(VrfId vrfId, L3::VrfName vrfName) {
  VrfId const* const published = vrfNameToId(vrfName);
  if (published != nullptr && *published == vrfId) return;
  auto const* const named = vrfName_.find(vrfId);
  if (named == nullptr || named->value != vrfName) return;
  bool found = false;
  L3::VrfName smallest;
  auto walk = vrfNameToId_.cursor();
  while (auto const* const live = walk.next()) {
    if (live->value != vrfId || (found && !(live->key < smallest))) continue;
    found = true;
    smallest = live->key;
  }
  if (found) {
    vrfNameIs(vrfId, smallest);
  } else {
    vrfNameDel(vrfId);
  }
}

Kiv::Type const& L3Status::_kivType() {
  using T = L3Status;
  static Kiv::Type const type(
      "Pex::L3Status", &Kiv::Entity::_kivType(),
      {Kiv::describeCollection<&T::vrfNameToId_, &T::vrfNameToIdIs, &T::vrfNameToIdDel>(
           "vrfNameToId", kVrfNameToId.id),
       Kiv::describeCollection<&T::vrfName_, &T::vrfNameIs, &T::vrfNameDel>("vrfName",
                                                                            kVrfName.id)},
      Kiv::describeDefault<T>());
  return type;
}

}  // namespace Pex
