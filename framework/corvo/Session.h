// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Ptr.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"
#include "framework/corvo/EntityManager.h"
#include "framework/corvo/MountRequest.h"

namespace Corvo {

/// One agent's access to the state database, with the host's operations: mounting and unmounting.
/// An interface: the database may be in this process (EmbeddedSession) or elsewhere.
///
/// Several agents may mount one path. A write through one of them reaches all others before the
/// mutator returns, each with its normal notifications, whatever another one's handlers throw; the
/// first exception reaches the mutator's caller afterwards. An entity that is mounted for reading
/// only is to be held as a pointer to const; a write to it throws ReadOnlyException.
///
/// A database that mirrors a store elsewhere changes only when the store does: what is to be kept
/// is written to the store, in the host's own way, and arrives here in the store's order, with the
/// changes of other processes, while no handler runs. A mount for writing gives the mirror's
/// object; a write to it is seen in this process at once and reaches the store only where the host
/// keeps the path written behind. While the store is away, connected() is false and every entity
/// stays as it was last known; afterwards the same objects follow what has changed meanwhile.
class Session : public EntityManager {
 public:
  /// Notifies with the path whenever getEntity(path) would return something else.
  static constexpr Kiv::Attr<Kiv::String, Session> kEntity{130};
  static constexpr Kiv::Attr<void, Session> kConnected{131};

  /// A new request without mounts.
  virtual Kiv::Ptr<MountRequest> mountRequest() = 0;
  /// Unmounts `path`; nothing mounted: nothing. An entity that was mounted for reading stays with
  /// its holders, no longer follows the database and may be written. One that was mounted for
  /// writing is still the database's.
  virtual void unmount(Kiv::String const& path) = 0;

  /// Whether the entities are current: false while the database cannot reach the store that it
  /// mirrors. Always true for a database that mirrors none.
  virtual bool connected() const { return true; }
};

}  // namespace Corvo
