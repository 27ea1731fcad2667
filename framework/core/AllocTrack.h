// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <typeinfo>
#include <vector>

#include "framework/core/Types.h"

namespace Kiv {

/// How many objects of one framework type are alive. The counts are the process's own bookkeeping:
/// a test that begins and ends with the same counts has leaked no framework object.
struct AllocTrackTypeInfo {
  std::string typeName;
  U64 allocated = 0;
  U64 deallocated = 0;

  U64 live() const { return allocated - deallocated; }

  /// Counts one object under its run-time type. Called by the framework once an object's
  /// constructor has finished, and just before its destructor runs.
  static void trackAllocation(std::type_info const& type);
  static void trackDeallocation(std::type_info const& type);

  /// Every type seen so far, by name. A shared library whose types were counted must still be
  /// loaded, since it holds the names.
  static std::vector<AllocTrackTypeInfo> snapshot();
  /// The number of framework objects alive now, all types together.
  static U64 liveObjects();
};

}  // namespace Kiv
