// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "framework/trace/RecordLayout.h"

namespace Ringlog {

class MsgDesc;

/// One source file with trace statements: the list of its messages, which the records in a ring
/// refer to by number. Made when the file's trace handle is made and never destroyed, as a record
/// may be decoded at any later time. For the same reason a shared library that has traced stays
/// loaded for as long as its records are decoded.
class TraceFile {
 public:
  /// A new file; several may be of one facility. At most RecordLayout::kMaxFiles in a process.
  /// Throws std::bad_alloc, and then there is no new file.
  static TraceFile& create(std::string_view facility);
  /// The file of that number, or null.
  static TraceFile const* find(U32 number);
  /// Files are numbered from 0 to count() - 1 in the order of their creation.
  static U32 count();

  TraceFile(TraceFile const&) = delete;
  TraceFile& operator=(TraceFile const&) = delete;

  U32 number() const { return number_; }
  std::string const& facility() const { return facility_; }

  /// Adds a message and returns its number, from 1. At most RecordLayout::kMaxMsgs - 1. Throws
  /// std::bad_alloc, and then the message is not added.
  MsgId add(MsgDesc const& message);
  /// The message of that number, or null.
  MsgDesc const* message(MsgId id) const;
  /// The messages whose statements have run at least once, in the order of their first runs.
  std::vector<MsgDesc const*> const& messages() const { return messages_; }

 private:
  TraceFile(U32 number, std::string_view facility) : number_(number), facility_(facility) {}

  U32 number_;
  std::string facility_;
  std::vector<MsgDesc const*> messages_;
};

}  // namespace Ringlog
