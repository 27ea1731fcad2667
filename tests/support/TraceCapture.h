// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "framework/trace/Decode.h"

namespace BfnTest {

/// Reads back what was traced since it was made, from the process's ring, whatever levels are
/// enabled. One at a time: it forgets everything traced before.
class TraceCapture {
 public:
  TraceCapture() { clear(); }
  TraceCapture(TraceCapture const&) = delete;
  TraceCapture& operator=(TraceCapture const&) = delete;

  static void clear() { Ringlog::defaultRinglogHandle.clear(); }
  static std::vector<Ringlog::Record> records() { return Ringlog::decode(); }

  /// The lines: signature, ": " and message.
  static std::vector<std::string> texts() {
    std::vector<std::string> texts;
    for (Ringlog::Record& record : records()) texts.push_back(std::move(record.text));
    return texts;
  }
};

}  // namespace BfnTest
