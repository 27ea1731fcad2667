// SPDX-License-Identifier: Apache-2.0
#include "chip/Journal.h"

#include <algorithm>
#include <span>
#include <utility>

#include "framework/core/Fatal.h"
#include "framework/core/HexDigits.h"

namespace BfnChip {

namespace {

void printHex(std::ostream& out, std::span<Kiv::U8 const> bytes) {
  for (unsigned const byte : bytes) {
    out << Kiv::kHexDigits[byte >> 4] << Kiv::kHexDigits[byte & 15];
  }
}

}  // namespace

std::ostream& operator<<(std::ostream& out, Operation operation) {
  return out << (operation == Operation::Write ? "write" : "erase");
}

std::ostream& operator<<(std::ostream& out, Outcome outcome) {
  switch (outcome) {
    case Outcome::Ok:
      return out << "ok";
    case Outcome::TableFull:
      return out << "full";
    case Outcome::NoSysResources:
      return out << "no-resources";
    case Outcome::Error:
      return out << "error";
    case Outcome::Exception:
      return out << "exception";
    case Outcome::NotFound:
      return out << "not-found";
  }
  return out << static_cast<unsigned>(outcome);
}

std::ostream& operator<<(std::ostream& out, JournalEntry const& entry) {
  out << entry.operation << ' ';
  printHex(out, entry.key);
  if (entry.operation == Operation::Write) {
    out << " <- ";
    printHex(out, entry.action);
  }
  return out << ' ' << entry.outcome;
}

JournalEntry const& Journal::at(size_t i) const {
  KIV_CHECK(i < entries_.size(), "journal entry ", i, " of ", entries_.size());
  size_t const at = oldest_ + i;
  return entries_[at < entries_.size() ? at : at - entries_.size()];
}

void Journal::append(JournalEntry const& entry) {
  if (entries_.size() < limit_) {
    entries_.push_back(entry);
    return;
  }
  ++dropped_;
  if (limit_ == 0) return;
  entries_[oldest_] = entry;
  if (++oldest_ == limit_) oldest_ = 0;
}

void Journal::grow() {
  constexpr size_t kFirst = 64;
  entries_.reserve(std::min(limit_, std::max(kFirst, 2 * entries_.capacity())));
}

void Journal::straighten() {
  std::rotate(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(oldest_),
              entries_.end());
  oldest_ = 0;
}

void Journal::limitIs(size_t limit) {
  straighten();
  if (limit < entries_.size()) {
    size_t const excess = entries_.size() - limit;
    entries_.erase(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(excess));
    entries_.shrink_to_fit();
    dropped_ += excess;
  }
  limit_ = limit;
}

std::vector<JournalEntry> Journal::take() {
  straighten();
  dropped_ = 0;
  return std::exchange(entries_, {});
}

void Journal::clear() {
  take();
}

}  // namespace BfnChip
