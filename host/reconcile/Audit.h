// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "host/reconcile/ReconciledTable.h"

namespace Host {

/// Compares what is wanted of a table with what its chip holds, in slices, and changes nothing.
///
///   Audit audit(reconciler.table(0));
///   while (!audit.step()) runTheLoop();
///   use(audit.findings());
///
/// Rows may change between the slices. What looks wrong is read again before it is reported, so
/// that an equal chip has no finding however many changes there are. Rows that wait for room are
/// not missing. A row whose write or removal failed and waits for its retry is reported.
///
/// The table must outlive it. Cost: at most `rows` rows a slice.
class Audit {
 public:
  static constexpr size_t kRowsPerStep = 4096;

  explicit Audit(ReconciledTable& table) : table_(table), mark_(table.auditStarted()) {}

  /// One slice. True when there is no more to do. Throws what the chip's driver throws; the slice
  /// can then be repeated.
  bool step(size_t rows = kRowsPerStep);
  /// Ok, or why the table could not be walked: then there are no findings.
  BfnDriver::Status status() const { return status_; }
  std::vector<Finding> const& findings() const { return findings_; }

 private:
  enum class Phase : Kiv::U8 { Installed, Wanted, Suspects, Done };

  void stepInstalled(size_t rows);
  void stepWanted(size_t rows);
  void stepSuspects(size_t rows);

  ReconciledTable& table_;
  Kiv::U64 const mark_;
  BfnDriver::Status status_ = BfnDriver::Status::Ok;
  Phase phase_ = Phase::Installed;
  BfnDriver::WalkCursor cursor_;
  Kiv::U64 place_ = 0;  // of the next wanted row
  std::vector<Kiv::U64> suspects_;
  size_t checked_ = 0;
  std::vector<Finding> findings_;
};

}  // namespace Host
