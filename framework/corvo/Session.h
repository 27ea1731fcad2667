#pragma once

#include "framework/core/Ptr.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"
#include "framework/corvo/EntityManager.h"
#include "framework/corvo/MountRequest.h"

namespace Corvo {

/// One agent's way to the state database: its EntityManager as the host has it, who mounts and
/// unmounts. An interface: the database may stand in this process (EmbeddedSession) or elsewhere.
///
/// Several agents may mount one path. A write through one of them reaches all others before the
/// mutator returns, each with its normal notifications. An entity that is mounted for reading only
/// is to be held as a pointer to const; who writes to it all the same meets a ReadOnlyException.
class Session : public EntityManager {
 public:
  /// Told with the path when what getEntity() gives there comes, changes or goes.
  static constexpr Kiv::Attr<Kiv::String> kEntity{130};

  /// A new request without mounts.
  virtual Kiv::Ptr<MountRequest> mountRequest() = 0;
  /// Gives up what is mounted at `path`; nothing mounted: nothing. An entity that was mounted for
  /// reading stays with whoever holds it, follows the database no more and may be written. One that
  /// was mounted for writing is still the database's.
  virtual void unmount(Kiv::String const& path) = 0;
};

}  // namespace Corvo
