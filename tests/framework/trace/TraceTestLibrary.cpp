// SPDX-License-Identifier: Apache-2.0
#include "tests/framework/trace/TraceTestLibrary.h"

#include "framework/trace/Trace.h"

KIV_TRACE_FACILITY("TraceTestLibrary")

void traceFromTheLibrary(int number) {
  KIV_TRACE(9, "number ", number);
}
