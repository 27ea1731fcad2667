// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <bit>
#include <cstring>
#include <span>

#include "framework/core/Fatal.h"
#include "framework/trace/Counter.h"
#include "framework/trace/RecordLayout.h"
#include "framework/trace/TraceFile.h"
#include "framework/trace/WordReader.h"

namespace Ringlog {

/// A record that is being written: between startMsg and endMsg. Meant to live in registers.
class Message {
 public:
  [[gnu::always_inline]] void word(U64 value) noexcept {
    *at_++ = value;
    check_ = RecordLayout::mix(check_, value);
  }

  /// `size` bytes, the last word filled up with zeroes. At most kMaxArgBytes.
  [[gnu::always_inline]] void bytes(char const* from, size_t size) noexcept {
    for (; size >= sizeof(U64); from += sizeof(U64), size -= sizeof(U64)) word(load(from));
    if (size > 0) word(loadShort(from, size));
  }

  /// What has been written so far.
  WordReader arguments() const noexcept {
    U64 const* const first = record_ + RecordLayout::kHeaderWords;
    return WordReader({first, static_cast<size_t>(at_ - first)});
  }

 private:
  friend class RingBuf;

  Message(U64* record, U64 position, U64 time, U32 identity) noexcept
      : record_(record),
        at_(record + RecordLayout::kHeaderWords),
        position_(position),
        check_(RecordLayout::start(position, time)),
        identity_(identity) {
    record[1] = time;
  }

  static U64 load(char const* from) noexcept {
    U64 value;
    std::memcpy(&value, from, sizeof value);
    return value;
  }
  template <class T>
  static U64 loadPart(char const* from) noexcept {
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
  }
  /// 1 to 7 bytes, by two loads that may overlap; in memory order where bytes are little-endian.
  [[gnu::always_inline]] static U64 loadShort(char const* from, size_t size) noexcept {
    if constexpr (std::endian::native == std::endian::little) {
      if (size >= 4) {
        return loadPart<U32>(from) | loadPart<U32>(from + size - 4) << (8 * (size - 4));
      }
      if (size >= 2) {
        return loadPart<Kiv::U16>(from) | loadPart<Kiv::U16>(from + size - 2) << (8 * (size - 2));
      }
      return loadPart<Kiv::U8>(from);
    } else {
      U64 value = 0;
      std::memcpy(&value, from, size);
      return value;
    }
  }

  U64* record_;
  U64* at_;
  U64 position_;
  U64 check_;
  U32 identity_;
};

/// The binary trace: the most recent records, in a fixed buffer that wraps. Writing allocates
/// nothing and throws nothing.
///
/// One thread writes. A reader may read at any moment, also in a signal handler or at a memory
/// image of a process that died while it wrote: a record counts only when its check fits its bytes
/// and its position, so one that is half-written, partly overwritten or left over from an earlier
/// round is skipped, never misread. A message that is never ended leaves no record. Positions start
/// at a secret one (startIs), so that bytes of an argument are never taken for a record either.
class RingBuf {
 public:
  static constexpr size_t kDefaultBytes = size_t{1} << 20;
  static constexpr size_t kMinWords = RecordLayout::kMaxWords + 1;

  /// Writes into `words`, which outlives the ring; their number is a power of two and at least
  /// kMinWords.
  constexpr explicit RingBuf(std::span<U64> words)
      : words_(words.data()), size_(words.size()), head_(0) {
    KIV_CHECK(std::has_single_bit(words.size()) && words.size() >= kMinWords,
              "the ring buffer has ", words.size(), " words");
  }
  RingBuf(RingBuf const&) = delete;
  RingBuf& operator=(RingBuf const&) = delete;
  ~RingBuf() = default;

  /// Opens a record of at most `maxWords` words, header included. Only one is open at a time.
  [[gnu::always_inline]] Message startMsg(TraceFile const& traceFile, MsgId msgId,
                                          U32 maxWords = RecordLayout::kMaxWords) noexcept {
    U64 position = head_.load(std::memory_order_relaxed);
    U64 const mask = size_ - 1;
    // A record never wraps; what is left of the round stays unused.
    if ((position & mask) + maxWords > size_) [[unlikely]]
      position = (position | mask) + 1;
    return {words_ + (position & mask), position, EventScope::now(),
            static_cast<U32>(RecordLayout::pack({0, 0, traceFile.number(), msgId}))};
  }

  /// Makes the record readable.
  [[gnu::always_inline]] void endMsg(Message const& message) noexcept {
    auto const words = static_cast<U32>(message.at_ - message.record_);
    U64 const identity = RecordLayout::pack({sequence_, words, 0, 0}) | message.identity_;
    message.record_[2] = identity;
    std::atomic_ref(message.record_[0])
        .store(RecordLayout::mix(message.check_, identity), std::memory_order_release);
    ++sequence_;
    head_.store(message.position_ + words, std::memory_order_release);
  }

  /// Forgets what was written so far and counts positions from `secret`, rounded to whole rounds of
  /// the ring. What may be traced must not depend on it.
  void startIs(U64 secret) noexcept {
    begin_ = secret >> 1 & ~(size_ - 1);  // far from the end of the numbers
    head_.store(begin_, std::memory_order_relaxed);
  }

  /// Forgets what was written so far.
  void clear() noexcept { begin_ = head_.load(std::memory_order_relaxed); }

  /// Records written since the start, those overwritten and forgotten included; modulo 2^32.
  U32 written() const { return sequence_; }

  // For the decoder. Positions count words and are never reused.
  U64 begin() const { return begin_; }
  U64 head() const { return head_.load(std::memory_order_acquire); }
  std::span<U64 const> words() const { return {words_, size_}; }

 private:
  U64* words_;
  U64 size_;
  std::atomic<U64> head_;
  U64 begin_ = 0;
  U32 sequence_ = 0;
};

/// The ring that every trace statement of the process writes to, of RingBuf::kDefaultBytes. Its
/// start is drawn at random when the process's first TraceFile is made.
extern RingBuf defaultRinglogHandle;

}  // namespace Ringlog
