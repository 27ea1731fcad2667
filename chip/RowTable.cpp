// SPDX-License-Identifier: Apache-2.0
#include "chip/RowTable.h"

#include <algorithm>
#include <utility>

#include "framework/core/Fatal.h"

namespace BfnChip {

namespace {

using Kiv::U64;

// Doubled, it gives tables of 2^n rows a fill of two thirds.
constexpr size_t kFirstHomes = 12;
// Overflow places after the last home; more are added when they are needed.
constexpr size_t kSpill = 16;

// The number whose product with the odd number x is 1, modulo 2^64; each step doubles the bits.
constexpr U64 inverse(U64 x) {
  U64 y = x;
  for (int step = 0; step < 6; ++step) y *= 2 - x * y;
  return y;
}

}  // namespace

U64 RowTable::unmix(U64 mixed) {
  static_assert(inverse(kSpread) * kSpread == 1 && inverse(kFold) * kFold == 1);
  mixed *= inverse(kFold);
  mixed ^= mixed >> 32;
  return mixed * inverse(kSpread);
}

// Moves every row from the new one's place up to the next free slot by one.
RowTable::Slot& RowTable::insert(U64 key, U64 action) {
  if (4 * (size_ + 1) > 3 * homes_) grow();
  U64 const mixed = mix(key);
  size_t const at = placeOf(mixed);
  size_t end = at;
  while (slots_[end].word != kFree) ++end;
  if (end + 1 == slots_.size()) slots_.emplace_back();
  auto const first = slots_.begin() + static_cast<std::ptrdiff_t>(at);
  auto const last = slots_.begin() + static_cast<std::ptrdiff_t>(end);
  std::move_backward(first, last, last + 1);
  slots_[at] = {mixed, action, 0};
  ++size_;
  return slots_[at];
}

// Moves every following row that was displaced from its home back by one.
bool RowTable::erase(U64 key) {
  if (size_ == 0) return false;
  U64 const mixed = mix(key);
  size_t at = placeOf(mixed);
  if (slots_[at].mixedKey != mixed || slots_[at].word == kFree) return false;
  while (slots_[at + 1].word != kFree && home(slots_[at + 1].mixedKey) <= at) {
    slots_[at] = slots_[at + 1];
    ++at;
  }
  slots_[at] = Slot();
  --size_;
  return true;
}

// In order, so each row is placed at its home or right after the previous row.
void RowTable::grow() {
  size_t const homes = homes_ == 0 ? kFirstHomes : 2 * homes_;
  std::vector<Slot> larger;
  larger.reserve(homes + kSpill);
  larger.resize(homes + 1);
  size_t next = 0;
  for (Slot const& slot : slots_) {
    if (slot.word == kFree) continue;
    next = std::max(next, home(slot.mixedKey, homes));
    if (next + 1 == larger.size()) larger.emplace_back();
    larger[next++] = slot;
  }
  slots_ = std::move(larger);
  homes_ = homes;
}

RowTable::Slot const* RowTable::notBelow(U64 place) const {
  if (size_ == 0) return nullptr;
  for (size_t at = placeOf(place); at < slots_.size(); ++at) {
    if (slots_[at].word != kFree) return &slots_[at];
  }
  return nullptr;
}

std::vector<Row> RowTable::sorted() const {
  std::vector<Row> rows;
  rows.reserve(size_);
  for (Slot const& slot : slots_) {
    if (slot.word == kFree) continue;
    rows.push_back({unpacked(unmix(slot.mixedKey)), unpacked(slot.action), slot.word});
  }
  std::ranges::sort(rows, {}, &Row::key);
  return rows;
}

void RowTable::hitsClear() {
  for (Slot& slot : slots_) {
    if (slot.word != kFree) slot.word = 0;
  }
}

std::vector<Kiv::U64> RowTable::hits() const {
  std::vector<Kiv::U64> hits;
  hits.reserve(slots_.size());
  for (Slot const& slot : slots_) hits.push_back(slot.word);
  return hits;
}

void RowTable::hitsIs(std::vector<Kiv::U64> const& hits) {
  KIV_CHECK(hits.size() == slots_.size(), hits.size());
  for (size_t i = 0; i < slots_.size(); ++i) slots_[i].word = hits[i];
}

}  // namespace BfnChip
