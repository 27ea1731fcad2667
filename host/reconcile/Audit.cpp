// SPDX-License-Identifier: Apache-2.0
#include "host/reconcile/Audit.h"

#include <algorithm>

namespace Host {

using BfnChip::ActionBytes;
using BfnChip::KeyBytes;
using BfnDriver::Status;

bool Audit::step(size_t rows) {
  if (phase_ == Phase::Done) return true;
  if (!table_.handle()) {
    status_ = Status::NotFound;
    phase_ = Phase::Done;
    return true;
  }
  rows = std::max(rows, BfnDriver::TableDriver::kWalkRoom);
  table_.flush();
  switch (phase_) {
    case Phase::Installed:
      stepInstalled(rows);
      break;
    case Phase::Wanted:
      stepWanted(rows);
      break;
    case Phase::Suspects:
      stepSuspects(rows);
      break;
    case Phase::Done:
      break;
  }
  return phase_ == Phase::Done;
}

void Audit::stepInstalled(size_t rows) {
  std::vector<KeyBytes> keys(rows);
  std::vector<ActionBytes> actions(rows);
  size_t found = 0;
  status_ =
      table_.chip().walk(*table_.handle(), cursor_, {keys[0].data(), rows * BfnChip::kKeyBytes},
                         {actions[0].data(), rows * BfnChip::kActionBytes}, found);
  if (status_ != Status::Ok) {
    phase_ = Phase::Done;
    return;
  }
  for (size_t i = 0; i < found; ++i) {
    Kiv::U64 const key = BfnChip::packed(keys[i]);
    if (!table_.seen(key, BfnChip::packed(actions[i]), mark_)) suspects_.push_back(key);
  }
  if (cursor_.ended) phase_ = Phase::Wanted;
}

void Audit::stepWanted(size_t rows) {
  for (; rows > 0; --rows) {
    BfnChip::RowTable::Slot const* const slot = table_.wantedRows().notBelow(place_);
    if (slot == nullptr) {
      phase_ = Phase::Suspects;
      return;
    }
    if (ReconciledTable::isDue(*slot) && !ReconciledTable::isSeen(*slot, mark_)) {
      suspects_.push_back(BfnChip::RowTable::keyOf(*slot));
    }
    place_ = slot->mixedKey + 1;
    if (place_ == 0) {
      phase_ = Phase::Suspects;
      return;
    }
  }
}

void Audit::stepSuspects(size_t rows) {
  for (; rows > 0 && checked_ < suspects_.size(); --rows, ++checked_) {
    std::optional<Finding> const finding = table_.compare(suspects_[checked_]);
    if (finding) findings_.push_back(*finding);
  }
  if (checked_ == suspects_.size()) phase_ = Phase::Done;
}

}  // namespace Host
