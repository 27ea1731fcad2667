// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/MsgDesc.h"

#include <ostream>

#include "framework/trace/Counter.h"

namespace Ringlog {

std::vector<MsgDesc const*> MsgDesc::find(std::string_view facility, std::string_view function) {
  std::vector<MsgDesc const*> found;
  for (U32 number = 0; number < TraceFile::count(); ++number) {
    TraceFile const& file = *TraceFile::find(number);
    if (file.facility() != facility) continue;
    for (MsgDesc const* message : file.messages()) {
      if (function.empty() || function == message->function()) found.push_back(message);
    }
  }
  return found;
}

MsgDesc& MsgDesc::statementIs(Statement const& statement) {
  level_ = statement.level;
  function_ = statement.function;
  signature_ = statement.signature;
  return *this;
}

MsgDesc& MsgDesc::operator<<(Piece const& piece) {
  if (piece.argument != nullptr || !piece.text.empty()) pieces_.push_back(piece);
  return *this;
}

void MsgDesc::enter() {
  TimeLine::begin();
  *msgId_ = traceFile_.add(*this);
}

std::string MsgDesc::format() const {
  std::string format;
  for (Piece const& piece : pieces_) {
    format += piece.argument != nullptr ? std::string_view("%s") : piece.text;
  }
  return format;
}

void MsgDesc::render(std::ostream& stream, WordReader arguments) const {
  stream << signature_ << ": ";
  for (Piece const& piece : pieces_) {
    if (piece.argument != nullptr) {
      piece.argument(stream, arguments);
    } else {
      stream << piece.text;
    }
  }
}

}  // namespace Ringlog
