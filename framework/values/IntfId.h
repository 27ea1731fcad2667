// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/values/Interned.h"

namespace Ovra {

/// An interface id such as Ethernet1. The empty id means no interface. Ids order by their text.
class IntfId : public Kiv::Interned<IntfId> {
 public:
  /// In bytes; far above what any interface is called.
  static constexpr size_t maxLength = 65535;
  static constexpr char kTooLong[] = "IntfId::value::bytes > IntfId::maxLength not allowed";

  using Interned::Interned;

  constexpr explicit operator bool() const { return !empty(); }
};

}  // namespace Ovra
