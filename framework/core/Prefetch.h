// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace Kiv {

/// Prefetches the cache line at `address`, which need not be valid.
[[gnu::always_inline]] inline void prefetch(void const* address) {
  __builtin_prefetch(address);
  // A function that only prefetches counts as one without effect, and g++ drops calls of it; an
  // empty statement that counts as an effect keeps them.
  asm volatile("");
}

}  // namespace Kiv
