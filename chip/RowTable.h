// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <utility>
#include <vector>

#include "framework/core/Prefetch.h"
#include "framework/core/Types.h"

namespace BfnChip {

inline constexpr size_t kKeyBytes = 8;
inline constexpr size_t kActionBytes = 8;

using KeyBytes = std::array<Kiv::U8, kKeyBytes>;
using ActionBytes = std::array<Kiv::U8, kActionBytes>;

/// Eight bytes as one number, the first byte lowest; and back. Rows are stored and compared in this
/// form.
template <size_t N>
constexpr Kiv::U64 packed(std::array<Kiv::U8, N> const& bytes) {
  static_assert(N <= 8);
  if constexpr (N == 8 && std::endian::native == std::endian::little) {
    return std::bit_cast<Kiv::U64>(bytes);
  } else {
    Kiv::U64 word = 0;
    for (size_t i = 0; i < N; ++i) word |= Kiv::U64{bytes[i]} << (8 * i);
    return word;
  }
}
constexpr KeyBytes unpacked(Kiv::U64 word) {
  static_assert(kKeyBytes == 8 && kActionBytes == 8);
  if constexpr (std::endian::native == std::endian::little) {
    return std::bit_cast<KeyBytes>(word);
  } else {
    KeyBytes bytes{};
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<Kiv::U8>(word >> (8 * i));
    return bytes;
  }
}

/// One row as the chip holds it.
struct Row {
  KeyBytes key{};
  ActionBytes action{};
  Kiv::U64 hits = 0;
};

/// An exact-match table of rows of eight bytes each for key and action.
///
/// The rows are in one array, sorted by their mixed keys, each at or shortly after the home of its
/// mixed key. A look-up, also an unsuccessful one, therefore touches one place in memory. Mixing
/// can be undone: a row keeps its mixed key only.
///
/// Costs 32 to 64 bytes a row (36 at 65,536). Find, insert and erase are constant time apart from
/// growth, which copies the array once from front to back. A pointer to a slot is good until the
/// next insert or erase. An insert that throws std::bad_alloc has changed nothing.
///
/// The order of the rows is that of their mixed keys, whatever the capacity: a walk that remembers
/// the next mixed key stays correct after any change.
class RowTable {
 public:
  struct Slot {
    Kiv::U64 mixedKey = ~Kiv::U64{0};
    Kiv::U64 action = 0;
    /// The owner's number for the row: the chip model counts hits in it. Any value but kFree, which
    /// marks a slot without a row.
    Kiv::U64 word = kFree;
  };

  size_t size() const { return size_; }

  /// Keys and actions are packed. Null when there is no such row.
  Slot* find(Kiv::U64 key) { return const_cast<Slot*>(std::as_const(*this).find(key)); }
  Slot const* find(Kiv::U64 key) const {
    if (size_ == 0) return nullptr;
    Kiv::U64 const mixed = mix(key);
    Slot const& slot = slots_[placeOf(mixed)];
    return slot.mixedKey == mixed && slot.word != kFree ? &slot : nullptr;
  }
  /// Prefetches the memory where the row would be, for a look-up soon after.
  void prefetch(Kiv::U64 key) const {
    if (size_ != 0) Kiv::prefetch(&slots_[home(mix(key))]);
  }
  /// Adds a row whose word is 0. The key must not be there.
  Slot& insert(Kiv::U64 key, Kiv::U64 action);
  /// False when there is no such row.
  bool erase(Kiv::U64 key);

  /// The first row whose mixed key is not below `place`, or null. Walks begin at 0 and continue
  /// with the row's mixed key plus 1.
  Slot const* notBelow(Kiv::U64 place) const;
  /// The packed key of a row.
  static Kiv::U64 keyOf(Slot const& slot) { return unmix(slot.mixedKey); }

  /// Copies of all rows in ascending order of their key bytes.
  std::vector<Row> sorted() const;
  void hitsClear();
  /// The hit counts of all slots, for hitsIs(); they fit the table until its next insert or erase.
  std::vector<Kiv::U64> hits() const;
  void hitsIs(std::vector<Kiv::U64> const& hits);

 private:
  static constexpr Kiv::U64 kFree = ~Kiv::U64{0};

  static constexpr Kiv::U64 kSpread = 0x9E3779B97F4A7C15;
  static constexpr Kiv::U64 kFold = 0xD6E8FEB86659FD93;
  __extension__ using Wide = unsigned __int128;

  static constexpr Kiv::U64 mix(Kiv::U64 key) {
    key *= kSpread;
    key ^= key >> 32;
    return key * kFold;
  }
  static Kiv::U64 unmix(Kiv::U64 mixed);

  static size_t home(Kiv::U64 mixed, size_t homes) {
    return static_cast<size_t>(static_cast<Wide>(mixed) * homes >> 64);
  }
  size_t home(Kiv::U64 mixed) const { return home(mixed, homes_); }
  /// The index of the row, or where it would be inserted. A free slot's mixed key ends the search.
  size_t placeOf(Kiv::U64 mixed) const {
    size_t at = home(mixed);
    while (slots_[at].mixedKey < mixed) ++at;
    return at;
  }
  void grow();

  /// homes_ places to point at, then an overflow for rows displaced from the last ones. The last
  /// one is always free.
  std::vector<Slot> slots_;
  size_t homes_ = 0;
  size_t size_ = 0;
};

}  // namespace BfnChip
