// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/Duolog.h"

#include <memory>
#include <new>

#include "framework/trace/TraceHelper.h"

namespace Duolog {

bool RinglogConverter::enter(Kiv::TraceHandle& handle, Ringlog::Statement const& statement,
                             Ringlog::MsgId& msgId, Format format) noexcept {
  try {
    handle.signOn();
    auto desc = std::make_unique<Ringlog::MsgDesc>(handle.traceFile(), &msgId, statement.file,
                                                   statement.line);
    desc->statementIs(statement);
    for (Ringlog::MsgDesc::Piece const& piece : format) *desc << piece;
    desc->enter();
    (void)desc.release();
    return true;
  } catch (std::bad_alloc const&) {
    return false;
  }
}

void RinglogConverter::writeText(Kiv::TraceHandle const& handle,
                                 Ringlog::Statement const& statement, Ringlog::MsgId msgId,
                                 Ringlog::WordReader arguments) noexcept {
  // Tracing does not affect the code that traces: a text that cannot be made or written is lost,
  // and the record remains.
  try {
    Kiv::TraceHelper helper(handle, statement.level);
    handle.traceFile().message(msgId)->render(helper.stream(), arguments);
    helper.trace(statement.file, statement.line, statement.function);
  } catch (...) {
    return;
  }
}

}  // namespace Duolog
