// SPDX-License-Identifier: Apache-2.0
#include "kernel/RowCopy.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "framework/core/Prefetch.h"

namespace BfnKernel {

using Kiv::U64;

namespace {

constexpr U64 kSpread = 0x9E3779B97F4A7C15;

}  // namespace

void RowCopy::clear() {
  slots_ = {};
}

void RowCopy::roomIs(size_t rows) {
  slots_ = std::vector<Slot>(std::bit_ceil(rows + rows / 2 + 2));
  room_ = rows;
  came_ = gone_ = taken_ = 0;
}

bool RowCopy::add(std::span<U64 const> keys, std::span<U64 const> actions) {
  if (keys.size() > room_) return false;
  room_ -= keys.size();
  constexpr size_t kFetched = 16;
  for (size_t i = 0; i < keys.size(); ++i) {
    if (i + kFetched < keys.size()) Kiv::prefetch(&slots_[home(keys[i + kFetched])]);
    if (keys[i] != 0) slots_[placeOf(keys[i])] = {keys[i], actions[i]};
  }
  return true;
}

void RowCopy::hint(U64 key) {
  Kiv::prefetch(&slots_[home(key)]);
  announced_[came_++ % kAhead] = key;
  gone_ = std::max(gone_, came_ - std::min(came_, kAhead));
}

// Rows are read in the order in which they were announced; those before this one are not read.
std::optional<U64> RowCopy::take(U64 key) {
  if (empty() || key == 0) return std::nullopt;
  size_t at = gone_;
  while (at < came_ && announced_[at % kAhead] != key) ++at;
  if (at == came_) return std::nullopt;
  gone_ = at + 1;
  Slot const& slot = slots_[placeOf(key)];
  if (slot.key != key) return std::nullopt;
  ++taken_;
  return slot.action;
}

size_t RowCopy::home(U64 key) const {
  return static_cast<size_t>(key * kSpread >> (64 - std::countr_zero(slots_.size())));
}

size_t RowCopy::placeOf(U64 key) const {
  size_t at = home(key);
  while (slots_[at].key != key && slots_[at].key != 0) at = (at + 1) & (slots_.size() - 1);
  return at;
}

}  // namespace BfnKernel
