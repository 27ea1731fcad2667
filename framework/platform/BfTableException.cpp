// SPDX-License-Identifier: Apache-2.0
#include "framework/platform/BfTableException.h"

// The destructors are defined here so that each type has one home, whichever library throws or
// catches.
namespace BfTable {

BfTableException::~BfTableException() = default;
BfTableFull::~BfTableFull() = default;
BfNoSysResources::~BfNoSysResources() = default;

}  // namespace BfTable
