// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

#include "framework/core/Types.h"

namespace prettyout {

/// Takes as many of the offered bytes as it can at once and says how many: all, some, or none
/// (back-pressure), like a write to a non-blocking socket. It must not write to the buffer that
/// calls it.
using Sink = std::function<size_t(std::string_view)>;

/// The bytes that have been rendered and that the sink has not taken yet.
///
/// Bounds. The limit is soft: an append always succeeds, and `full()` asks the producer to stop at
/// its next opportunity. An append that would pass the limit first offers the waiting bytes to the
/// sink; storage grows beyond the limit only by what the sink refuses, and shrinks back once the
/// sink has taken everything. While a sink refuses, a producer that honours `full()` therefore
/// holds at most the limit plus what it prints between two calls of `full()`, rounded up to a
/// doubling.
///
/// An exception from the sink passes through; no waiting byte is lost by it.
class OutputBuffer {
 public:
  /// Bytes that may be written past the requested room, so that columns can be filled in blocks.
  static constexpr size_t kOverrun = 64;

  /// `limit` in bytes, at least 1.
  OutputBuffer(size_t limit, Sink sink);
  OutputBuffer(OutputBuffer const&) = delete;
  OutputBuffer& operator=(OutputBuffer const&) = delete;
  ~OutputBuffer() = default;

  size_t limit() const { return limit_; }
  /// Changes the limit for what is appended from now on; bytes at least 1.
  void limitIs(size_t limit);

  size_t waiting() const { return static_cast<size_t>(end_ - begin_); }
  bool full() const { return waiting() >= limit_; }
  /// Bytes that the sink has taken so far.
  Kiv::U64 taken() const { return taken_; }
  /// Bytes of storage now held; for the tests of the bounds.
  size_t storage() const { return storageSize_; }

  /// Room for `size` bytes, and kOverrun more that may be overwritten; valid until the next call.
  char* room(size_t size) {
    if (static_cast<size_t>(softEnd_ - end_) < size) makeRoom(size);
    return end_;
  }
  /// Appends the first `size` bytes of the room just asked for.
  void commit(size_t size) { end_ += size; }
  void append(std::string_view text);

  /// Offers all waiting bytes to the sink, once. Returns the number of bytes taken.
  size_t drain();

 private:
  [[gnu::noinline]] void makeRoom(size_t size);
  void updateSoftEnd();

  size_t limit_;
  Sink sink_;
  std::unique_ptr<char[]> storage_;
  size_t storageSize_ = 0;  // without the overrun
  char* begin_ = nullptr;
  char* end_ = nullptr;
  char* softEnd_ = nullptr;  // room() needs no help up to here
  Kiv::U64 taken_ = 0;
};

}  // namespace prettyout
