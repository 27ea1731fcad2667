// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/PtrInterface.h"
#include "framework/corvo/Mount.h"

namespace Corvo {

/// The mounts that one agent asks for together. An interface, implemented by the state database.
class MountGroup : public Kiv::PtrInterface {
 public:
  /// Adds a mount to the group. Throws MountException when it can never be made; the group is then
  /// as it was.
  virtual void doMount(Mount const& mount) = 0;
};

}  // namespace Corvo
