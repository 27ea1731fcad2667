// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "framework/trace/TraceFile.h"
#include "framework/trace/WordReader.h"

namespace Ringlog {

/// The compile-time description of one trace statement.
struct Statement {
  unsigned level;  // below Kiv::TraceHandle::kLevels
  char const* file;
  U32 line;
  char const* function;
  /// The function's full signature, as the compiler writes it.
  char const* signature;
};

/// Everything about one trace statement that is the same each time it runs, and how to read its
/// arguments back. Built once, on the statement's first run, and never destroyed once entered.
///
///   auto desc = std::make_unique<MsgDesc>(traceFile, &msgId, file, line);
///   desc->statementIs(statement) << "vrfId: " << &ArgTraits<Pex::VrfId>::render;
///   desc->enter();
///   desc.release();
class MsgDesc {
 public:
  /// Reads one argument of a record and writes it as text.
  using Render = void (*)(std::ostream& stream, WordReader& words);
  /// A piece of the format: an argument, or else a text that outlives the message.
  struct Piece {
    std::string_view text;
    Render argument;
  };

  /// The statements of a facility that have run, those of a function of that name only if one is
  /// given; in no particular order.
  static std::vector<MsgDesc const*> find(std::string_view facility,
                                          std::string_view function = {});

  /// For the statement whose id `msgId` is; enter() fills it in.
  MsgDesc(TraceFile& traceFile, MsgId* msgId, char const* file, U32 line)
      : traceFile_(traceFile), msgId_(msgId), file_(file), line_(line) {}
  MsgDesc(MsgDesc const&) = delete;
  MsgDesc& operator=(MsgDesc const&) = delete;

  MsgDesc& statementIs(Statement const& statement);
  /// The next piece of the format.
  MsgDesc& operator<<(Piece const& piece);
  MsgDesc& operator<<(std::string_view text) { return *this << Piece{text, nullptr}; }
  MsgDesc& operator<<(Render argument) { return *this << Piece{{}, argument}; }
  /// Enters the complete message in its file's list and fills in the statement's `msgId`. Throws
  /// std::bad_alloc, and then has done neither.
  void enter();

  std::string const& facility() const { return traceFile_.facility(); }
  unsigned level() const { return level_; }
  char const* file() const { return file_; }
  U32 line() const { return line_; }
  char const* function() const { return function_; }
  char const* signature() const { return signature_; }
  /// The text after the signature, with "%s" for each argument. For reading; it is not used as a
  /// format.
  std::string format() const;

  /// Writes the line of a record with these arguments: the signature, ": " and the text.
  void render(std::ostream& stream, WordReader arguments) const;

 private:
  TraceFile& traceFile_;
  MsgId* msgId_;
  char const* file_;
  U32 line_;
  unsigned level_ = 0;
  char const* function_ = "";
  char const* signature_ = "";
  std::vector<Piece> pieces_;
};

}  // namespace Ringlog
