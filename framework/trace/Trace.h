// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/trace/Duolog.h"
#include "framework/trace/Literals.h"
#include "framework/trace/TraceHandle.h"

/// Names the trace facility of a source file. Once, near the top of a .cpp file that traces,
/// outside of every namespace; no semicolon:
///
///   KIV_TRACE_FACILITY("BfnMacRewriteSm")
#define KIV_TRACE_FACILITY(name)                                                     \
  namespace {                                                                        \
  [[maybe_unused, gnu::always_inline]] inline ::Kiv::TraceHandle& kivTraceHandle() { \
    static ::Kiv::TraceHandle handle(name, false);                                   \
    return handle;                                                                   \
  }                                                                                  \
  }  // namespace

/// Traces the signature of the running function, ": " and the pieces: string literals verbatim, any
/// other piece as an argument by its stream operator, bytes as numbers. Nothing in an argument is
/// ever taken for a format. A text is cut after Ringlog::kMaxArgBytes, an array of char at its
/// first NUL. A raw pointer that is no text does not compile.
///
///   KIV_TRACE(9);
///   KIV_TRACE(9, "vrfId: ", vrfId, ", ipAddr: ", ip, " intfId: ", intfId);
///
/// Level 9 is for the entry to a handler, level 4 for notable decisions. A record always goes to
/// the ring; nothing is rendered unless the level is enabled. Tracing throws nothing beyond what
/// making an argument throws. Not for headers or lambdas.
#define KIV_TRACE(level, ...)                                                               \
  do {                                                                                      \
    static_assert((level) < ::Kiv::TraceHandle::kLevels, "there is no such trace level");   \
    static constexpr ::Duolog::Literals kivLiterals = ::Duolog::literalsOf(#__VA_ARGS__);   \
    static constexpr ::Ringlog::Statement kivStatement{level, __FILE__, __LINE__, __func__, \
                                                       __PRETTY_FUNCTION__};                \
    static constinit ::Ringlog::MsgId kivMsgId = 0;                                         \
    ::Duolog::RinglogConverter(kivTraceHandle(), kivStatement, kivMsgId)                    \
        .trace<kivLiterals.mask, kivLiterals.pieces>(__VA_ARGS__);                          \
  } while (false)
