// SPDX-License-Identifier: Apache-2.0
#include "chip/FaultPlan.h"

#include <stdexcept>
#include <utility>

namespace BfnChip {

void FaultPlan::failNext(Kiv::U64 count, Fault fault) {
  if (count > 0) runs_.push_back({count, std::move(fault)});
}

void FaultPlan::failNth(Kiv::U64 n, Fault fault) {
  if (n > 0) nth_.insert_or_assign(calls_ + n, std::move(fault));
}

void FaultPlan::clear() {
  calls_ = 0;
  nth_.clear();
  runs_.clear();
}

std::optional<Fault> FaultPlan::onPlannedCall() {
  if (auto node = nth_.extract(calls_)) return std::move(node.mapped());
  if (runs_.empty()) return std::nullopt;
  Fault fault = runs_.front().fault;
  if (--runs_.front().left == 0) runs_.pop_front();
  return fault;
}

void throwFault(Fault const& fault) {
  if (fault.exception) std::rethrow_exception(fault.exception);
  throw std::runtime_error("injected fault of the chip model");
}

}  // namespace BfnChip
