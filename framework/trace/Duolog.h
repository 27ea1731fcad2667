#pragma once

#include <cstddef>
#include <type_traits>

#include "framework/trace/ArgTraits.h"
#include "framework/trace/MsgDesc.h"
#include "framework/trace/RingBuf.h"
#include "framework/trace/TraceHandle.h"

namespace Duolog {

/// A string literal among the pieces of a trace: part of the format, not an argument.
template <class Piece>
struct IsStaticText : std::false_type {};
template <size_t N>
struct IsStaticText<char const (&)[N]> : std::true_type {};

template <class Piece>
inline constexpr bool isStaticText = IsStaticText<Piece&&>::value;

template <class Piece>
using Traits = Ringlog::ArgTraits<std::decay_t<Piece>>;

/// The most words that a piece takes in a record.
template <class Piece>
consteval Kiv::U32 maxWords() {
  if constexpr (isStaticText<Piece>) {
    return 0;
  } else {
    return Traits<Piece>::kMaxWords;
  }
}

/// Writes both halves of a trace: the record in the ring, always, and the line of text when its
/// level is enabled. The text is rendered from the record, so that the arguments cannot differ.
class RinglogConverter {
 public:
  RinglogConverter(Kiv::TraceHandle const& handle, Ringlog::Statement const& statement,
                   Ringlog::MsgId& msgId)
      : handle_(handle), statement_(statement), msgId_(msgId) {}

  template <class... Pieces>
  [[gnu::always_inline]] void trace(Pieces&&... pieces) {
    constexpr Kiv::U32 kMaxWords =
        Ringlog::RecordLayout::kHeaderWords + (maxWords<Pieces>() + ... + 0);
    static_assert(kMaxWords <= Ringlog::RecordLayout::kMaxWords, "too many arguments for a trace");
    if (msgId_ == 0) [[unlikely]]
      describe<Pieces...>(handle_, statement_, msgId_, pieces...);
    Ringlog::RingBuf& ring = Ringlog::defaultRinglogHandle;
    Ringlog::Message message = ring.startMsg(handle_.traceFile(), msgId_, kMaxWords);
    (put<Pieces>(message, pieces), ...);
    ring.endMsg(message);
    if (handle_.enabled(statement_.level)) [[unlikely]] {
      writeText(handle_, statement_, msgId_, message.arguments());
    }
  }

 private:
  // The rare paths take everything as arguments, so that the converter itself stays in registers.
  template <class... Pieces>
  [[gnu::cold, gnu::noinline]] static void describe(
      Kiv::TraceHandle const& handle, Ringlog::Statement const& statement, Ringlog::MsgId& msgId,
      std::remove_reference_t<Pieces> const&... pieces) {
    auto& desc = *new Ringlog::MsgDesc(handle.traceFile(), &msgId, statement.file, statement.line);
    desc.statementIs(statement);
    (describePiece<Pieces>(desc, pieces), ...);
  }

  template <class Piece>
  static void describePiece(Ringlog::MsgDesc& desc, std::remove_reference_t<Piece> const& piece) {
    if constexpr (isStaticText<Piece>) {
      desc << std::string_view(piece);
    } else {
      desc << &Traits<Piece>::render;
    }
  }

  template <class Piece>
  [[gnu::always_inline]] static void put(Ringlog::Message& message,
                                         std::remove_reference_t<Piece> const& piece) {
    if constexpr (!isStaticText<Piece>) Traits<Piece>::put(message, piece);
  }

  [[gnu::cold]] static void writeText(Kiv::TraceHandle const& handle,
                                      Ringlog::Statement const& statement, Ringlog::MsgId msgId,
                                      Ringlog::WordReader arguments) noexcept;

  Kiv::TraceHandle const& handle_;
  Ringlog::Statement const& statement_;
  Ringlog::MsgId& msgId_;
};

}  // namespace Duolog
