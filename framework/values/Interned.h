// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <compare>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

#include "framework/core/Exceptions.h"
#include "framework/core/Hash.h"
#include "framework/core/Strep.h"
#include "framework/core/String.h"
#include "framework/core/Types.h"

namespace Kiv {

/// The process-wide table of the texts that the 4-byte text handles refer to. It lives in this
/// library, so that a handle means the same text in every shared library of the process.
///
/// A text once seen stays for the life of the process, except for those of a form that is refused
/// (StrepAttempt). That is bounded by what the texts are, the interfaces and VRFs of one switch,
/// and it is what lets a record of the trace ring, which holds only the handle, be decoded long
/// after the last object with that name is gone. Entries never move. Used from the framework thread
/// only, like every object of the framework.
class InternPool {
 public:
  /// Index of the empty text.
  static constexpr U32 kEmpty = 0;

  /// The index of a text; equal texts have equal indexes. Expected constant time in the number of
  /// texts. Throws std::bad_alloc.
  static U32 intern(std::string_view text);

  static std::string_view text(U32 index) {
    Entry const& found = entry(index);
    return {found.bytes, found.size};
  }
  static char const* charPtr(U32 index) { return entry(index).bytes; }
  /// hashText() of the text.
  static U32 hash(U32 index) { return entry(index).hash; }

  /// How many texts there are, the empty one included.
  static U32 population();

 private:
  friend class InternPoolWriter;

  static void shrink(U32 population);

  struct Entry {
    char const* bytes;
    U32 size;
    U32 hash;
  };

  // Chunk n has room for 2^(n + kFirstChunkBits) entries: 32-bit indexes fit in few chunks.
  static constexpr unsigned kFirstChunkBits = 6;
  static constexpr U32 kFirstChunkSize = U32{1} << kFirstChunkBits;
  static constexpr size_t kChunks = 32 - kFirstChunkBits;
  static constexpr U32 kMaxPopulation = U32{0} - kFirstChunkSize;

  static constexpr unsigned chunkOf(U32 index) {
    return static_cast<unsigned>(std::bit_width((index >> kFirstChunkBits) + 1)) - 1;
  }
  static constexpr U32 chunkSize(unsigned chunk) { return kFirstChunkSize << chunk; }
  /// The first index of a chunk: the ones before it have room for one kFirstChunkSize less than it.
  static constexpr U32 chunkStart(unsigned chunk) { return chunkSize(chunk) - kFirstChunkSize; }

  static Entry& entry(U32 index) {
    unsigned const chunk = chunkOf(index);
    return chunks_[chunk][index - chunkStart(chunk)];
  }

  static Entry firstChunk_[kFirstChunkSize];
  static Entry* chunks_[kChunks];
};

/// A text as a 4-byte value: what IntfId and VrfName have in common. Copies are free, equality
/// compares integers, order is that of the bytes, the default is the empty text. `Self` says which
/// id it is, how long it may be (`maxLength`) and what to say of a longer one (`kTooLong`).
template <class Self>
class Interned {
 public:
  constexpr Interned() = default;
  /// Throws RangeException when the text is longer than Self::maxLength bytes.
  explicit Interned(std::string_view text) {
    if (text.size() > Self::maxLength) throwRangeException(Self::kTooLong);
    index_ = InternPool::intern(text);
  }
  /// Parses a quoted text.
  Interned(String::Iterator& it, String::Iterator const& end)
      : Interned(quotedFromStrep(it, end)) {}

  /// The text, NUL-terminated and valid for the life of the process.
  std::string_view view() const { return InternPool::text(index_); }
  explicit operator std::string_view() const { return view(); }
  char const* charPtr() const { return InternPool::charPtr(index_); }
  std::string stdString() const { return std::string(view()); }
  constexpr bool empty() const { return index_ == InternPool::kEmpty; }

  /// Of the text: equal in every run, in whatever order the texts were added.
  U32 hash() const { return InternPool::hash(index_); }
  /// The text in quotes, escaped so that every value comes back.
  String valueToStrep() const { return quotedToStrep(view()); }

  friend constexpr bool operator==(Self const& a, Self const& b) { return a.index_ == b.index_; }
  friend std::strong_ordering operator<=>(Self const& a, Self const& b) {
    if (a.index_ == b.index_) return std::strong_ordering::equal;
    return a.view() <=> b.view();
  }
  /// The text without quotes, escaped only when it has control bytes.
  friend std::ostream& operator<<(std::ostream& stream, Self const& value) {
    streamPlain(stream, value.view());
    return stream;
  }

 private:
  U32 index_ = InternPool::kEmpty;
};

}  // namespace Kiv
