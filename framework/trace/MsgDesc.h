#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "framework/trace/TraceFile.h"
#include "framework/trace/WordReader.h"

namespace Ringlog {

/// What the compiler knows of one trace statement.
struct Statement {
  unsigned level;
  char const* file;
  U32 line;
  char const* function;
  /// The function's full signature, as the compiler writes it.
  char const* signature;
};

/// Everything about one trace statement that is the same each time it runs, and how to read its
/// arguments back. Built once, on the statement's first run, and never destroyed.
class MsgDesc {
 public:
  /// Reads one argument of a record and writes it as text.
  using Render = void (*)(std::ostream& stream, WordReader& words);

  /// The statements of a facility that have run, those of a function of that name only if one is
  /// given; in no particular order.
  static std::vector<MsgDesc const*> find(std::string_view facility,
                                          std::string_view function = {});

  /// Enters the message in its file's list and fills in the statement's `msgId`.
  MsgDesc(TraceFile& traceFile, MsgId* msgId, char const* file, U32 line);
  MsgDesc(MsgDesc const&) = delete;
  MsgDesc& operator=(MsgDesc const&) = delete;

  MsgDesc& statementIs(Statement const& statement);
  /// The next piece of the format: a text that outlives the message, or an argument.
  MsgDesc& operator<<(std::string_view text);
  MsgDesc& operator<<(Render argument);

  std::string const& facility() const { return traceFile_.facility(); }
  unsigned level() const { return level_; }
  char const* file() const { return file_; }
  U32 line() const { return line_; }
  char const* function() const { return function_; }
  char const* signature() const { return signature_; }
  /// The text after the signature, with "%s" for each argument. To be read, not to be printed by.
  std::string format() const;

  /// Writes the line of a record with these arguments: the signature, ": " and the text.
  void render(std::ostream& stream, WordReader arguments) const;

 private:
  struct Piece {
    std::string_view text;
    Render argument;
  };

  TraceFile& traceFile_;
  char const* file_;
  U32 line_;
  unsigned level_ = 0;
  char const* function_ = "";
  char const* signature_ = "";
  std::vector<Piece> pieces_;
};

}  // namespace Ringlog
