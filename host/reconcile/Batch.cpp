// SPDX-License-Identifier: Apache-2.0
#include "host/reconcile/Batch.h"

#include "framework/core/Fatal.h"

namespace Host {

using BfnDriver::Change;

Batch::Batch(size_t room) {
  rows_.reserve(room);
  changes_.reserve(room);
  results_.reserve(room);
}

void Batch::write(Kiv::U64 key, Kiv::U64 action) {
  KIV_CHECK(rows_.size() < rows_.capacity(), rows_.size());
  Row const& row = rows_.emplace_back(Row{BfnChip::unpacked(key), BfnChip::unpacked(action)});
  changes_.push_back({Change::Kind::Write, row.key, row.action});
}

void Batch::erase(Kiv::U64 key) {
  KIV_CHECK(rows_.size() < rows_.capacity(), rows_.size());
  Row const& row = rows_.emplace_back(Row{BfnChip::unpacked(key), {}});
  changes_.push_back({Change::Kind::Erase, row.key, {}});
}

void Batch::clear() {
  rows_.clear();
  changes_.clear();
}

std::span<BfnDriver::Status const> Batch::apply(BfnDriver::TableDriver& chip,
                                                BfnDriver::TableHandle table) {
  results_.assign(rows_.size(), BfnDriver::Status::Error);
  chip.apply(table, changes_, results_);
  return results_;
}

}  // namespace Host
