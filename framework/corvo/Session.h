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
class Session : public EntityManager {
 public:
  /// Notifies with the path whenever getEntity(path) would return something else.
  static constexpr Kiv::Attr<Kiv::String, Session> kEntity{130};

  /// A new request without mounts.
  virtual Kiv::Ptr<MountRequest> mountRequest() = 0;
  /// Unmounts `path`; nothing mounted: nothing. An entity that was mounted for reading stays with
  /// its holders, no longer follows the database and may be written. One that was mounted for
  /// writing is still the database's.
  virtual void unmount(Kiv::String const& path) = 0;
};

}  // namespace Corvo
