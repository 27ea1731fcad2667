// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <sstream>
#include <string>

#include "framework/trace/TraceHandle.h"

namespace Kiv {

/// One line of the text trace. The pointers are valid for the life of the process.
struct TraceLine {
  char const* facility;
  unsigned level;
  char const* file;
  U32 line;
  char const* function;
  /// The function's signature, ": " and the message; no line end.
  std::string text;
};

/// Collects the text of one trace and emits it.
class TraceHelper {
 public:
  using Sink = std::function<void(TraceLine const&)>;

  TraceHelper(TraceHandle const& handle, unsigned level) : handle_(handle), level_(level) {}

  std::ostream& stream() { return stream_; }
  /// Emits what the stream holds. What the sink itself traces stays out of the text trace.
  void trace(char const* file, U32 line, char const* function);

  /// Where text traces go, process-wide. An empty one restores the default: the text as a line on
  /// standard error, in a single write.
  static void sinkIs(Sink sink);

 private:
  TraceHandle const& handle_;
  unsigned level_;
  std::ostringstream stream_;
};

}  // namespace Kiv
