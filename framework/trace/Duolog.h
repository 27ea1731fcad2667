// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

#include "framework/trace/ArgTraits.h"
#include "framework/trace/Literals.h"
#include "framework/trace/MsgDesc.h"
#include "framework/trace/RingBuf.h"
#include "framework/trace/TraceHandle.h"

namespace Duolog {

template <class Piece>
using Traits = Ringlog::ArgTraits<std::decay_t<Piece>>;

/// The most words that a piece takes in a record.
template <class Piece, bool IsLiteral>
consteval U32 maxWords() {
  if constexpr (IsLiteral) {
    return 0;
  } else {
    static_assert(Ringlog::TraceArg<std::decay_t<Piece>>,
                  "a trace takes texts, numbers, enumerators and small trivially copyable values "
                  "with a stream operator; no raw pointer, since its object may be gone when the "
                  "trace is read");
    return Traits<Piece>::kMaxWords;
  }
}

/// Writes both halves of a trace: the record in the ring, always, and the line of text when its
/// level is enabled. The text is rendered from the record, so that the arguments cannot differ.
/// Throws nothing: a statement that cannot be described for lack of memory leaves no trace, and is
/// described by its next run.
class RinglogConverter {
 public:
  RinglogConverter(Kiv::TraceHandle& handle, Ringlog::Statement const& statement,
                   Ringlog::MsgId& msgId)
      : handle_(handle), statement_(statement), msgId_(msgId) {}

  /// `kLiterals` and `kCount` are what literalsOf() found.
  template <U64 kLiterals, size_t kCount, class... Pieces>
  [[gnu::always_inline]] void trace(Pieces&&... pieces) {
    static_assert(kCount == sizeof...(Pieces) && kCount <= 64,
                  "put a piece that has a comma or a raw literal into parentheses");
    traceNumbered<kLiterals, Pieces...>(std::index_sequence_for<Pieces...>(), pieces...);
  }

 private:
  using Format = std::span<Ringlog::MsgDesc::Piece const>;

  static constexpr bool hasBit(U64 mask, size_t bit) { return (mask >> bit & 1) != 0; }

  template <U64 kLiterals, class... Pieces, size_t... kNumbers>
  [[gnu::always_inline]] void traceNumbered(std::index_sequence<kNumbers...> numbers,
                                            std::remove_reference_t<Pieces> const&... pieces) {
    constexpr U32 kMaxWords = Ringlog::RecordLayout::kHeaderWords +
                              (maxWords<Pieces, hasBit(kLiterals, kNumbers)>() + ... + 0);
    static_assert(kMaxWords <= Ringlog::RecordLayout::kMaxWords, "too many arguments for a trace");
    if (msgId_ == 0) [[unlikely]] {
      if (!describe<kLiterals, Pieces...>(handle_, statement_, msgId_, numbers, pieces...)) return;
    }
    Ringlog::RingBuf& ring = Ringlog::defaultRinglogHandle;
    Ringlog::Message message = ring.startMsg(handle_.traceFile(), msgId_, kMaxWords);
    (put<Pieces, hasBit(kLiterals, kNumbers)>(message, pieces), ...);
    ring.endMsg(message);
    if (handle_.enabled(statement_.level)) [[unlikely]] {
      writeText(handle_, statement_, msgId_, message.arguments());
    }
  }

  // The rare paths take everything as arguments, so that the converter itself stays in registers.
  template <U64 kLiterals, class... Pieces, size_t... kNumbers>
  [[gnu::cold, gnu::noinline]] static bool describe(
      Kiv::TraceHandle& handle, Ringlog::Statement const& statement, Ringlog::MsgId& msgId,
      std::index_sequence<kNumbers...>, std::remove_reference_t<Pieces> const&... pieces) noexcept {
    std::array<Ringlog::MsgDesc::Piece, sizeof...(Pieces)> const format{
        describePiece<Pieces, hasBit(kLiterals, kNumbers)>(pieces)...};
    return enter(handle, statement, msgId, format);
  }

  template <class Piece, bool isLiteral>
  static Ringlog::MsgDesc::Piece describePiece(std::remove_reference_t<Piece> const& piece) {
    if constexpr (isLiteral) {
      return {piece, nullptr};
    } else {
      return {{}, &Traits<Piece>::render};
    }
  }

  template <class Piece, bool isLiteral>
  [[gnu::always_inline]] static void put(Ringlog::Message& message,
                                         std::remove_reference_t<Piece> const& piece) {
    if constexpr (isLiteral) {
      return;
    } else if constexpr (std::is_array_v<std::remove_reference_t<Piece>>) {
      Traits<Piece>::TextArgTraits::put(message, {piece, ::strnlen(piece, std::size(piece))});
    } else {
      Traits<Piece>::put(message, piece);
    }
  }

  [[gnu::cold]] static bool enter(Kiv::TraceHandle& handle, Ringlog::Statement const& statement,
                                  Ringlog::MsgId& msgId, Format format) noexcept;
  [[gnu::cold]] static void writeText(Kiv::TraceHandle const& handle,
                                      Ringlog::Statement const& statement, Ringlog::MsgId msgId,
                                      Ringlog::WordReader arguments) noexcept;

  Kiv::TraceHandle& handle_;
  Ringlog::Statement const& statement_;
  Ringlog::MsgId& msgId_;
};

}  // namespace Duolog
