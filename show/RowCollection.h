// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <bit>
#include <vector>

#include "framework/core/Prefetch.h"
#include "show/SortedIpToMac.h"
#include "tablemgr/BfnMacRewriteTableMgr.h"

// What the collection phase of the show command works with.
namespace BfnMacRewrite {

/// Caches, within one slice, an interface's VRF and that VRF's map in the snapshot: nothing changes
/// within a slice, and many rows share an interface.
class VrfCache {
 public:
  struct Vrf {
    Ovra::IntfId intfId;
    L3::VrfName name;
    U32 slice = 0;                    // the slice in which this was read; 0: none
    SortedIpToMac* sorted = nullptr;  // null until a row is kept
  };

  explicit VrfCache(OverlaySrcMacRewriteManager const& manager) : manager_(manager) {}

  /// Forgets everything.
  void startSlice() {
    if (++slice_ == 0) {
      vrfs_.fill({});
      slice_ = 1;
    }
  }
  Vrf& of(Ovra::IntfId intfId) {
    // Interface ids are consecutive numbers; the multiplication spreads them.
    Vrf& vrf = vrfs_[std::bit_cast<U32>(intfId) * 0x9E3779B1u >> (32 - kBits)];
    if (vrf.slice != slice_ || vrf.intfId != intfId) [[unlikely]]
      vrf = {intfId, manager_.intfIdToVrfName(intfId), slice_, nullptr};
    return vrf;
  }

 private:
  static constexpr unsigned kBits = 11;
  OverlaySrcMacRewriteManager const& manager_;
  U32 slice_ = 0;
  std::array<Vrf, size_t{1} << kBits> vrfs_;
};

/// Sorts rows by address before they are inserted into the snapshot, so that most insertions are
/// next to the one before. The walk gives rows in the order of their hashes.
class RowBatch {
 public:
  /// Small enough that inserting a batch is a small part of a slice.
  static constexpr size_t kSize = 4096;

  /// Inserts the batch first when it is full.
  void add(SortedIpToMac& sorted, Ovra::IpAddr ip, Ovra::EthAddr const& mac) {
    if (rows_.size() == kSize) insert();
    order_.push_back(Kiv::U64{ip.value()} << 32 | rows_.size());
    rows_.push_back({&sorted, mac});
  }
  /// Moves the rows into the snapshot. Of two rows with one address, the later one stays.
  void insert();

 private:
  struct Row {
    SortedIpToMac* sorted;
    Ovra::EthAddr mac;
  };
  // Address and number of each row: the keys differ, so the sort keeps the order of equal
  // addresses.
  std::vector<Kiv::U64> order_;
  std::vector<Row> rows_;
};

/// Prefetches records, their match specs and the chip's rows some steps ahead of a walk, so that
/// their cache misses overlap.
template <class Iterator>
class FetchAhead {
 public:
  FetchAhead(OverlaySrcMacRewriteManager::Table const& table, Iterator const& from,
             Iterator const& end)
      : table_(table), records_(from), specs_(from), rows_(from), end_(end) {
    for (int i = 0; i < kRecordsAhead; ++i) fetchRecord();
    for (int i = 0; i < kSpecsAhead; ++i) fetchSpec();
    for (int i = 0; i < kRowsAhead; ++i) fetchRow();
  }
  void step() {
    fetchRecord();
    fetchSpec();
    fetchRow();
  }

 private:
  static constexpr int kRowsAhead = 6;
  static constexpr int kSpecsAhead = 12;
  static constexpr int kRecordsAhead = 18;

  static void fetch(void const* object) {
    Kiv::prefetch(object);
    Kiv::prefetch(static_cast<char const*>(object) + 64);
  }
  void fetchRecord() {
    if (records_ == end_) return;
    fetch(*records_);
    ++records_;
  }
  void fetchSpec() {
    if (specs_ == end_) return;
    fetch((*specs_)->overlaySrcMacRewriteMatchSpec().get());
    ++specs_;
  }
  void fetchRow() {
    if (rows_ == end_) return;
    table_.prefetch(*(*rows_)->overlaySrcMacRewriteMatchSpec());
    ++rows_;
  }

  OverlaySrcMacRewriteManager::Table const& table_;
  Iterator records_;
  Iterator specs_;
  Iterator rows_;
  Iterator const end_;
};

}  // namespace BfnMacRewrite
