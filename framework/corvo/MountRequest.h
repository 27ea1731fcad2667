// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Types.h"
#include "framework/corvo/MountGroup.h"

namespace Corvo {

/// The host's side of a MountGroup: closes it and learns when all mounts are complete. An
/// interface, as Session is.
///
/// A mount is complete when the database has answered, also with nothing: the entity of a path that
/// no agent has written yet is null, and Session::kEntity notifies when it comes. The group is
/// mounted at once or later; kMounted notifies then.
class MountRequest : public MountGroup {
 public:
  static constexpr Kiv::Attr<void, MountRequest> kMounted{130};

  /// No more mounts will come: a later doMount throws MountException. Closing again does nothing.
  virtual void close() = 0;
  /// Whether the group is closed and every mount in it is complete.
  virtual bool mounted() const = 0;
};

}  // namespace Corvo
