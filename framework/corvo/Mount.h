// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "framework/core/String.h"
#include "framework/core/Types.h"

namespace Corvo {

/// What may be done through a mount, as a set of bits.
class AllMountFlags {
 public:
  static constexpr Kiv::U32 kRead = 1;
  static constexpr Kiv::U32 kWrite = 2;

  constexpr explicit AllMountFlags(Kiv::U32 value) : value_(value) {}
  constexpr Kiv::U32 value() const { return value_; }
  constexpr bool has(Kiv::U32 flag) const { return (value_ & flag) != 0; }
  constexpr void add(Kiv::U32 flag) { value_ |= flag; }

  friend constexpr bool operator==(AllMountFlags, AllMountFlags) = default;

 private:
  Kiv::U32 value_;
};

/// Whether a mount takes in a part of its entity only. The embedded database mounts entities whole.
class MountFilter {
 public:
  constexpr explicit MountFilter(bool filtered) : filtered_(filtered) {}
  constexpr bool filtered() const { return filtered_; }

 private:
  bool filtered_;
};

/// A request for one entity of the state database: its path, its type's name and how it will be
/// used.
class Mount {
 public:
  Mount(Kiv::String path, Kiv::String typeName, Kiv::String mode,
        AllMountFlags flags = AllMountFlags(0), MountFilter filter = MountFilter(false));

  Kiv::String const& path() const { return path_; }
  Kiv::String const& typeName() const { return typeName_; }
  Kiv::String const& mode() const { return mode_; }
  AllMountFlags flags() const { return flags_; }
  MountFilter filter() const { return filter_; }

  /// Adds what each letter of `mode` means: 'r' reading, 'w' writing, which includes reading.
  /// Throws Kiv::RangeException for any other letter and for an empty mode; the flags are then as
  /// they were.
  void handleFlags(std::string_view mode);

 private:
  Kiv::String path_;
  Kiv::String typeName_;
  Kiv::String mode_;
  AllMountFlags flags_;
  MountFilter filter_;
};

}  // namespace Corvo
