// SPDX-License-Identifier: Apache-2.0
#include "framework/corvo/Mount.h"

#include <string>
#include <utility>

#include "framework/core/Exceptions.h"

namespace Corvo {

Mount::Mount(Kiv::String path, Kiv::String typeName, Kiv::String mode, AllMountFlags flags,
             MountFilter filter)
    : path_(std::move(path)),
      typeName_(std::move(typeName)),
      mode_(std::move(mode)),
      flags_(flags),
      filter_(filter) {}

void Mount::handleFlags(std::string_view mode) {
  AllMountFlags flags = flags_;
  for (char const letter : mode) {
    switch (letter) {
      case 'r':
        flags.add(AllMountFlags::kRead);
        break;
      case 'w':
        flags.add(AllMountFlags::kRead | AllMountFlags::kWrite);
        break;
      default:
        Kiv::throwRangeException("unknown mount mode \"" + std::string(mode) + "\"");
    }
  }
  if (mode.empty()) Kiv::throwRangeException("empty mount mode");
  flags_ = flags;
}

}  // namespace Corvo
