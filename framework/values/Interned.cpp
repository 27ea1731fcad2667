// SPDX-License-Identifier: Apache-2.0
#include "framework/values/Interned.h"

#include <cstring>
#include <utility>

#include "framework/core/Fatal.h"

namespace Kiv {

// The pool needs no constructor and has no destructor: ids may be made and read by static objects
// of any library, in any order.
constinit InternPool::Entry InternPool::firstChunk_[kFirstChunkSize] = {
    {.bytes = "", .size = 0, .hash = Hash(0).hashMix(U64{0}).result()}};
constinit InternPool::Entry* InternPool::chunks_[kChunks] = {firstChunk_};

/// The side of the pool that adds texts: an open-addressing table from hash to index, at most half
/// full, and blocks of memory that texts are copied into.
class InternPoolWriter {
 public:
  constexpr InternPoolWriter() = default;

  U32 intern(std::string_view text);
  U32 population() const { return population_; }
  /// Removes the texts added last.
  void shrink(U32 population);

 private:
  // A slot with index 0 is free: the empty text is never looked up here.
  struct Slot {
    U32 hash = 0;
    U32 index = 0;
  };

  U32 add(std::string_view text, U32 hash);
  char const* keep(std::string_view text);
  void release(std::string_view text);
  void grow();
  Slot& freeSlot(U32 hash);

  static bool hasOwnBlock(size_t size) { return size + 1 > kBlockBytes / 4; }

  static constexpr size_t kFirstSlots = 128;
  static constexpr size_t kBlockBytes = 4096;

  Slot* slots_ = nullptr;
  size_t slotMask_ = 0;
  U32 population_ = 1;
  char* block_ = nullptr;
  size_t blockLeft_ = 0;
};

U32 InternPoolWriter::intern(std::string_view text) {
  if (text.empty()) return InternPool::kEmpty;
  U32 const hash = hashText(text);
  if (slots_ != nullptr) {
    for (size_t at = hash & slotMask_; slots_[at].index != 0; at = (at + 1) & slotMask_) {
      if (slots_[at].hash == hash && InternPool::text(slots_[at].index) == text) {
        return slots_[at].index;
      }
    }
  }
  return add(text, hash);
}

U32 InternPoolWriter::add(std::string_view text, U32 hash) {
  KIV_CHECK(population_ < InternPool::kMaxPopulation, "too many texts");
  StrepAttempt::namesAre({InternPool::population, InternPool::shrink});
  if (slots_ == nullptr || population_ * size_t{2} > slotMask_) grow();
  U32 const index = population_;
  InternPool::Entry*& chunk = InternPool::chunks_[InternPool::chunkOf(index)];
  if (chunk == nullptr)
    chunk = new InternPool::Entry[InternPool::chunkSize(InternPool::chunkOf(index))];
  InternPool::entry(index) = {keep(text), static_cast<U32>(text.size()), hash};
  freeSlot(hash) = {hash, index};
  ++population_;
  return index;
}

// A full block is abandoned; its texts stay where they are. A long text has a block of its own.
char const* InternPoolWriter::keep(std::string_view text) {
  size_t const needed = text.size() + 1;
  char* place = nullptr;
  if (hasOwnBlock(text.size())) {
    place = new char[needed];
  } else {
    if (needed > blockLeft_) {
      block_ = new char[kBlockBytes];
      blockLeft_ = kBlockBytes;
    }
    place = block_;
    block_ += needed;
    blockLeft_ -= needed;
  }
  std::memcpy(place, text.data(), text.size());
  place[text.size()] = '\0';
  return place;
}

// A text that is not at the end of the block in use stays where it is: it was the last one of an
// earlier block.
void InternPoolWriter::release(std::string_view text) {
  if (hasOwnBlock(text.size())) {
    delete[] text.data();
  } else if (size_t const size = text.size() + 1; text.data() + size == block_) {
    block_ -= size;
    blockLeft_ += size;
  }
}

// No other text of the table was displaced by the one added last, so its slot can be freed.
void InternPoolWriter::shrink(U32 population) {
  while (population_ > population) {
    U32 const index = --population_;
    size_t at = InternPool::hash(index) & slotMask_;
    while (slots_[at].index != index) at = (at + 1) & slotMask_;
    slots_[at] = {};
    release(InternPool::text(index));
    InternPool::entry(index) = {"", 0, 0};
  }
}

void InternPoolWriter::grow() {
  size_t const size = slots_ == nullptr ? kFirstSlots : (slotMask_ + 1) * 2;
  delete[] std::exchange(slots_, new Slot[size]);
  slotMask_ = size - 1;
  for (U32 index = 1; index < population_; ++index) {
    U32 const hash = InternPool::hash(index);
    freeSlot(hash) = {hash, index};
  }
}

InternPoolWriter::Slot& InternPoolWriter::freeSlot(U32 hash) {
  size_t at = hash & slotMask_;
  while (slots_[at].index != 0) at = (at + 1) & slotMask_;
  return slots_[at];
}

namespace {

constinit InternPoolWriter writer;

}  // namespace

U32 InternPool::intern(std::string_view text) {
  return writer.intern(text);
}

U32 InternPool::population() {
  return writer.population();
}

void InternPool::shrink(U32 population) {
  writer.shrink(population);
}

}  // namespace Kiv
