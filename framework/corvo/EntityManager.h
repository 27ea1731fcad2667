// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Entity.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"
#include "framework/core/String.h"

namespace Corvo {

/// One agent's view of the state database: the entities that it has mounted, by path. An interface,
/// as MountGroup is.
class EntityManager : public Kiv::PtrInterface {
 public:
  /// The entity mounted at `path`; null when nothing is mounted there, or the entity does not exist
  /// or is of another type than the mount's.
  virtual Kiv::Ptr<Kiv::Entity> getEntity(Kiv::String const& path) const = 0;
};

}  // namespace Corvo
