// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/TraceFile.h"

#include <memory>
#include <unistd.h>

#include "framework/core/Fatal.h"
#include "framework/trace/RingBuf.h"

namespace Ringlog {

namespace {

// Never destroyed: traces are written and decoded until the very end of the process.
std::vector<TraceFile*>& files() {
  static auto* files = new std::vector<TraceFile*>;
  return *files;
}

U64 randomStart() {
  U64 start = 0;
  if (::getentropy(&start, sizeof start) != 0) start = readCounter() << 20;
  return start;
}

}  // namespace

TraceFile& TraceFile::create(std::string_view facility) {
  auto const number = static_cast<U32>(files().size());
  KIV_CHECK(number < RecordLayout::kMaxFiles, "too many trace files, the last is ", facility);
  if (number == 0) defaultRinglogHandle.startIs(randomStart());
  auto made = std::unique_ptr<TraceFile>(new TraceFile(number, facility));
  files().push_back(made.get());
  return *made.release();
}

TraceFile const* TraceFile::find(U32 number) {
  return number < files().size() ? files()[number] : nullptr;
}

U32 TraceFile::count() {
  return static_cast<U32>(files().size());
}

MsgId TraceFile::add(MsgDesc const& message) {
  auto const id = static_cast<MsgId>(messages_.size() + 1);
  KIV_CHECK(id < RecordLayout::kMaxMsgs, "too many trace statements in ", facility_);
  messages_.push_back(&message);
  return id;
}

MsgDesc const* TraceFile::message(MsgId id) const {
  return id >= 1 && id <= messages_.size() ? messages_[id - 1] : nullptr;
}

}  // namespace Ringlog
