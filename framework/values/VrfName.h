// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/values/Interned.h"

namespace L3 {

/// The name of a VRF, at most 100 bytes. Names order by their bytes.
class VrfName : public Kiv::Interned<VrfName> {
 public:
  /// In bytes.
  static constexpr size_t maxLength = 100;
  static constexpr char kTooLong[] = "VrfName::value::bytes > VrfName::maxLength not allowed";

  using Interned::Interned;
};

}  // namespace L3
