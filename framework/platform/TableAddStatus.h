// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Types.h"

namespace PexTypes {

/// The result of adding a row to a hardware table. The numbers are the forwarding layer's own.
enum class TableAddStatus : Kiv::U32 {
  Success = 0,
  ResourcesExhausted = 2,  ///< the table or the system has no room for it
};

}  // namespace PexTypes
