// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "framework/values/IntfId.h"

/// Another shared library of the same process, which makes and reads ids of its own.
namespace BfnTest {

Ovra::IntfId intfId(char const* text);
std::string textOf(Ovra::IntfId id);

}  // namespace BfnTest
