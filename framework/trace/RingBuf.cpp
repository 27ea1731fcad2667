// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/RingBuf.h"

namespace Ringlog {

namespace {

constinit U64 defaultWords[RingBuf::kDefaultBytes / sizeof(U64)] = {};

}  // namespace

// Ready before any static constructor runs, and still there after the last destructor.
constinit RingBuf defaultRinglogHandle(defaultWords);

}  // namespace Ringlog
