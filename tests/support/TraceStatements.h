// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "framework/trace/MsgDesc.h"

namespace BfnTest {

/// The trace statements of a facility that have run in this process, sorted: "<level> <function>:
/// <format>".
inline std::vector<std::string> traceStatements(std::string_view facility) {
  std::vector<std::string> lines;
  for (Ringlog::MsgDesc const* const statement : Ringlog::MsgDesc::find(facility)) {
    lines.push_back(std::to_string(statement->level()) + ' ' + statement->function() + ": " +
                    statement->format());
  }
  std::ranges::sort(lines);
  return lines;
}

}  // namespace BfnTest
