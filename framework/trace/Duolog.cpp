#include "framework/trace/Duolog.h"

#include "framework/trace/TraceHelper.h"

namespace Duolog {

void RinglogConverter::writeText(Kiv::TraceHandle const& handle,
                                 Ringlog::Statement const& statement, Ringlog::MsgId msgId,
                                 Ringlog::WordReader arguments) noexcept {
  // Tracing changes nothing for the code that traces: a text that cannot be made or written is
  // lost, and the record remains.
  try {
    Kiv::TraceHelper helper(handle, statement.level);
    handle.traceFile().message(msgId)->render(helper.stream(), arguments);
    helper.trace(statement.file, statement.line, statement.function);
  } catch (...) {
    return;
  }
}

}  // namespace Duolog
