// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Traces the number at level 9 under the facility "TraceTestLibrary".
void traceFromTheLibrary(int number);
