// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>

#include "framework/core/Types.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

/// Looks at four neighbouring hashes of a HashTable at once. Bit i of each result is about at[i].
namespace Kiv::HashProbe {

/// The value in place of the hash of an unused slot: above every hash that a table stores.
inline constexpr U32 kUnused = 0xFFFF'FFFF;
inline constexpr unsigned kLanes = 4;
inline constexpr unsigned kAllLanes = (1U << kLanes) - 1;

/// The portable form.
namespace Portable {
inline unsigned equal(U32 const* at, U32 hash) {
  unsigned lanes = 0;
  for (unsigned i = 0; i < kLanes; ++i) lanes |= static_cast<unsigned>(at[i] == hash) << i;
  return lanes;
}
inline unsigned below(U32 const* at, U32 hash) {
  unsigned lanes = 0;
  for (unsigned i = 0; i < kLanes; ++i) lanes |= static_cast<unsigned>(at[i] < hash) << i;
  return lanes;
}
}  // namespace Portable

#ifdef __SSE2__

inline __m128i load(U32 const* at) {
  return _mm_loadu_si128(static_cast<__m128i const*>(static_cast<void const*>(at)));
}
inline unsigned mask(__m128i lanes) {
  return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(lanes)));
}
inline unsigned equal(U32 const* at, U32 hash) {
  return mask(_mm_cmpeq_epi32(load(at), _mm_set1_epi32(static_cast<int>(hash))));
}
inline unsigned below(U32 const* at, U32 hash) {
  // The comparison is a signed one; moving both sides by half the range makes it unsigned.
  constexpr U32 kHalf = 0x8000'0000;
  __m128i const moved = _mm_xor_si128(load(at), _mm_set1_epi32(static_cast<int>(kHalf)));
  return mask(_mm_cmplt_epi32(moved, _mm_set1_epi32(static_cast<int>(hash ^ kHalf))));
}

#else

using Portable::below;
using Portable::equal;

#endif

inline unsigned used(U32 const* at) {
  return equal(at, kUnused) ^ kAllLanes;
}
inline unsigned first(unsigned lanes) {
  return static_cast<unsigned>(std::countr_zero(lanes));
}

}  // namespace Kiv::HashProbe
