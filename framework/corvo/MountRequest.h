#pragma once

#include "framework/core/Types.h"
#include "framework/corvo/MountGroup.h"

namespace Corvo {

/// A MountGroup as the host has it, who lets its agents add their mounts and then waits. An
/// interface, as Session is.
///
/// The host closes the group when all mounts are in, and goes on when the group says that it is
/// mounted: at once, or later, when the last entity that it waits for is there. Whoever would know
/// of the moment watches kMounted.
class MountRequest : public MountGroup {
 public:
  static constexpr Kiv::Attr<> kMounted{130};

  /// No more mounts will come: a later doMount throws MountException. Closing again does nothing.
  virtual void close() = 0;
  /// Whether the group is closed and every entity in it is there.
  virtual bool mounted() const = 0;
};

}  // namespace Corvo
