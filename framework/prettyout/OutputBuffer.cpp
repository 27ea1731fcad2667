// SPDX-License-Identifier: Apache-2.0
#include "framework/prettyout/OutputBuffer.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "framework/core/Fatal.h"

namespace prettyout {

namespace {

// Small outputs, by far the most, never need more.
constexpr size_t kFirstStorage = 4096;

}  // namespace

OutputBuffer::OutputBuffer(size_t limit, Sink sink) : limit_(limit), sink_(std::move(sink)) {
  KIV_CHECK(limit > 0);
  KIV_CHECK(sink_ != nullptr);
}

void OutputBuffer::limitIs(size_t limit) {
  KIV_CHECK(limit > 0);
  limit_ = limit;
  updateSoftEnd();
}

void OutputBuffer::append(std::string_view text) {
  if (text.empty()) return;
  std::memcpy(room(text.size()), text.data(), text.size());
  commit(text.size());
}

size_t OutputBuffer::drain() {
  size_t const offered = waiting();
  if (offered == 0) return 0;
  size_t const accepted = sink_(std::string_view(begin_, offered));
  KIV_CHECK(accepted <= offered, "the sink took ", accepted, " of ", offered, " bytes");
  begin_ += accepted;
  taken_ += accepted;
  if (begin_ == end_) {
    if (storageSize_ > std::max(limit_, kFirstStorage)) {
      storage_.reset();
      storageSize_ = 0;
    }
    begin_ = end_ = storage_.get();
    updateSoftEnd();
  }
  return accepted;
}

// Calls the sink once when the limit is passed and then only before storage grows again, so a sink
// that refuses costs a call per doubling, not one per row.
void OutputBuffer::makeRoom(size_t size) {
  if (waiting() + size > limit_) drain();
  size_t const kept = waiting();
  size_t const needed = kept + size;
  if (needed > storageSize_) {
    size_t const newSize = std::max({needed, 2 * storageSize_, kFirstStorage});
    auto grown = std::make_unique_for_overwrite<char[]>(newSize + kOverrun);
    if (kept > 0) std::memcpy(grown.get(), begin_, kept);
    storage_ = std::move(grown);
    storageSize_ = newSize;
  } else if (kept > 0 && begin_ != storage_.get()) {
    std::memmove(storage_.get(), begin_, kept);
  }
  begin_ = storage_.get();
  end_ = begin_ + kept;
  updateSoftEnd();
  // Past the limit: what the sink refused may use up the storage before the sink is asked again,
  // but one append that is larger than the limit by itself is no reason to stop asking.
  if (static_cast<size_t>(softEnd_ - end_) < size) {
    softEnd_ = kept > 0 ? begin_ + storageSize_ : end_ + size;
  }
}

void OutputBuffer::updateSoftEnd() {
  softEnd_ =
      storage_ == nullptr ? end_ : std::max(end_, storage_.get() + std::min(storageSize_, limit_));
}

}  // namespace prettyout
