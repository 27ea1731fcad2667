// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/Decode.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <ostream>
#include <sstream>

namespace Ringlog {

namespace {

/// What the ring held at one moment. The writer may have written while it was copied; records that
/// were torn fail their check.
class Snapshot {
 public:
  explicit Snapshot(RingBuf const& ring)
      : head_(ring.head()), begin_(ring.begin()), words_(ring.words().begin(), ring.words().end()) {
    if (head_ > words_.size()) begin_ = std::max(begin_, head_ - words_.size());
  }

  /// The positions of the whole records, oldest first.
  std::vector<U64> records() const {
    std::vector<U64> found;
    for (U64 position = begin_; position < head_;) {
      U32 const words = sizeOfRecordAt(position);
      if (words > 0) found.push_back(position);
      position += std::max(words, U32{1});
    }
    return found;
  }

  Record record(U64 position, TimeLine const& timeLine) const {
    auto const identity = identityAt(position);
    MsgDesc const& statement = *statementOf(identity);
    std::ostringstream text;
    U64 const* const first = &words_[offset(position)];
    WordReader const arguments(
        {first + RecordLayout::kHeaderWords, identity.words - RecordLayout::kHeaderWords});
    try {
      statement.render(text, arguments);
    } catch (...) {
      text << "<an argument cannot be shown>";  // the other records still can
    }
    return {&statement, identity.sequence, first[1], timeLine.at(first[1]), text.str()};
  }

 private:
  size_t offset(U64 position) const { return position & (words_.size() - 1); }

  RecordLayout::Identity identityAt(U64 position) const {
    return RecordLayout::unpack(words_[offset(position) + 2]);
  }

  static MsgDesc const* statementOf(RecordLayout::Identity const& identity) {
    TraceFile const* const file = TraceFile::find(identity.file);
    return file != nullptr ? file->message(identity.msg) : nullptr;
  }

  /// In words; 0 when there is no whole record.
  U32 sizeOfRecordAt(U64 position) const {
    size_t const at = offset(position);
    if (words_.size() - at < RecordLayout::kHeaderWords) return 0;
    auto const identity = identityAt(position);
    if (identity.words < RecordLayout::kHeaderWords || identity.words > words_.size() - at ||
        identity.words > head_ - position || statementOf(identity) == nullptr) {
      return 0;
    }
    U64 check = RecordLayout::start(position, words_[at + 1]);
    for (size_t i = RecordLayout::kHeaderWords; i < identity.words; ++i) {
      check = RecordLayout::mix(check, words_[at + i]);
    }
    check = RecordLayout::mix(check, words_[at + 2]);
    return check == words_[at] ? identity.words : 0;
  }

  U64 head_;
  U64 begin_;
  std::vector<U64> words_;
};

void printTime(std::ostream& stream, TimeLine::Wall time) {
  auto const seconds = std::chrono::floor<std::chrono::seconds>(time);
  auto const micros = std::chrono::floor<std::chrono::microseconds>(time - seconds).count();
  std::time_t const whole = std::chrono::system_clock::to_time_t(seconds);
  std::tm utc{};
  gmtime_r(&whole, &utc);
  std::array<char, 32> text{};
  size_t const length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(text.data() + length, text.size() - length, ".%06dZ", static_cast<int>(micros));
  stream << text.data();
}

}  // namespace

std::vector<Record> decode(RingBuf const& ring, size_t last) {
  Snapshot const snapshot(ring);
  TimeLine const timeLine = TimeLine::current();
  std::vector<U64> const positions = snapshot.records();
  size_t const skipped = positions.size() > last ? positions.size() - last : 0;
  std::vector<Record> records;
  records.reserve(positions.size() - skipped);
  for (size_t i = skipped; i < positions.size(); ++i) {
    records.push_back(snapshot.record(positions[i], timeLine));
  }
  return records;
}

std::vector<U64> wholeRecords(RingBuf const& ring) {
  return Snapshot(ring).records();
}

std::ostream& operator<<(std::ostream& stream, Record const& record) {
  printTime(stream, record.time);
  MsgDesc const& statement = *record.statement;
  return stream << ' ' << statement.facility() << ':' << statement.level() << ' '
                << statement.file() << ':' << statement.line() << ' ' << record.text;
}

void print(std::ostream& stream, RingBuf const& ring, size_t last) {
  std::vector<Record> const records = decode(ring, last);
  for (size_t i = 0; i < records.size(); ++i) {
    if (i > 0) {
      U32 const missing = records[i].sequence - records[i - 1].sequence - 1;
      if (missing > 0) stream << "(" << missing << " skipped)\n";
    }
    stream << records[i] << '\n';
  }
}

}  // namespace Ringlog
