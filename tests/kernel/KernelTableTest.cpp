// SPDX-License-Identifier: Apache-2.0
// Rows in the kernel's map, as the driver writes and counts them.
#include "kernel/KernelTable.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/bpf.h>
#include <set>

#include "tests/kernel/KernelFixture.h"
#include "tests/support/AllocationCount.h"

namespace {

using BfnDriver::Change;
using BfnDriver::EraseResult;
using BfnDriver::Status;
using BfnDriver::TableHandle;
using BfnDriver::WriteResult;
using BfnKernel::KernelProgram;
using BfnKernel::KernelTable;
using Kiv::U64;
using Kiv::U8;
using ::testing::Each;
using ::testing::ElementsAre;

using Bytes = std::array<U8, 8>;

Bytes bytesOf(U64 number) {
  Bytes bytes;
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

class KernelTableTest : public BfnTest::KernelFixture {
 protected:
  void openWith(size_t rows) {
    kernel_ = std::make_unique<KernelProgram>(options(rows));
    table_ = std::make_unique<KernelTable>(*kernel_);
    handle_ = *table_->open(address());
  }
  static BfnDriver::TableAddress address(Kiv::U32 session = 1) {
    return {session, 0, {}, "profile", KernelTable::kRewriteTable};
  }
  WriteResult write(U64 key, U64 action = 1) {
    return table_->write(handle_, bytesOf(key), bytesOf(action));
  }
  EraseResult erase(U64 key) { return table_->erase(handle_, bytesOf(key)); }
  U64 read(U64 key) {
    Bytes action{};
    EXPECT_EQ(table_->readRow(handle_, bytesOf(key), action), Status::Ok);
    U64 number = 0;
    std::memcpy(&number, action.data(), sizeof number);
    return number;
  }
  size_t count() const { return table_->entryCount(handle_); }
  // Another process with its own way to the map.
  void someoneWrites(U64 key, U64 action) {
    ASSERT_EQ(kernel_->rows().update(&key, &action, BPF_ANY), 0);
  }
  void someoneErases(U64 key) { ASSERT_EQ(kernel_->rows().erase(&key), 0); }

  std::multiset<U64> walked(size_t room = KernelTable::kWalkRoom) {
    std::multiset<U64> keys;
    BfnDriver::WalkCursor cursor;
    while (!cursor.ended) batch(cursor, room, keys);
    return keys;
  }
  void batch(BfnDriver::WalkCursor& cursor, size_t room, std::multiset<U64>& into) {
    std::vector<U8> keys(room * 8);
    std::vector<U8> actions(room * 8);
    size_t rows = 0;
    ASSERT_EQ(table_->walk(handle_, cursor, keys, actions, rows), Status::Ok);
    for (size_t i = 0; i < rows; ++i) {
      U64 key = 0;
      std::memcpy(&key, &keys[8 * i], sizeof key);
      into.insert(key);
    }
  }

  struct Batch {
    std::vector<Bytes> bytes;
    std::vector<Change> changes;
  };
  std::vector<Status> apply(std::vector<Change> const& changes) {
    std::vector<Status> results(changes.size(), Status::NotSupported);
    table_->apply(handle_, changes, results);
    return results;
  }

  std::unique_ptr<KernelProgram> kernel_;
  std::unique_ptr<KernelTable> table_;
  TableHandle handle_{};
};

TEST_F(KernelTableTest, RowIsTheBindingsBytesInTheMap) {
  openWith(10);
  ASSERT_EQ(write(0x0102030405060708, 0x1112131415161718), WriteResult::Ok);
  U64 const key = 0x0102030405060708;
  U64 action = 0;
  ASSERT_EQ(kernel_->rows().lookup(&key, &action), 0);
  EXPECT_EQ(action, 0x1112131415161718u);
  EXPECT_EQ(read(key), action);
}

TEST_F(KernelTableTest, FullIsDistinguishedFromOverwriteAndEndsWithAnErase) {
  for (size_t const rows : {1u, 2u, 20u, 1'000u}) {
    openWith(rows);
    for (U64 key = 0; key < rows; ++key) ASSERT_EQ(write(key), WriteResult::Ok) << rows;
    EXPECT_EQ(write(rows), WriteResult::TableFull) << rows;
    EXPECT_EQ(write(0, 2), WriteResult::Ok) << rows;
    EXPECT_EQ(count(), rows);
    EXPECT_EQ(erase(0), EraseResult::Ok);
    EXPECT_EQ(write(rows), WriteResult::Ok) << rows;
    EXPECT_EQ(write(0), WriteResult::TableFull) << rows;
    table_.reset();
    kernel_->remove();
  }
}

TEST_F(KernelTableTest, TableOfNoRowsIsFull) {
  openWith(0);
  EXPECT_EQ(table_->capacity(handle_), 0u);
  EXPECT_EQ(write(1), WriteResult::TableFull);
  EXPECT_EQ(erase(1), EraseResult::NotFound);
  EXPECT_EQ(table_->clear(handle_), Status::Ok);
  EXPECT_TRUE(walked().empty());
}

TEST_F(KernelTableTest, RowsOfAnEarlierProcessAreCounted) {
  openWith(5'000);
  for (U64 key = 0; key < 3'000; ++key) ASSERT_EQ(write(key), WriteResult::Ok);
  table_.reset();
  kernel_.reset();
  openWith(5'000);
  EXPECT_EQ(count(), 3'000u);
}

TEST_F(KernelTableTest, RowsThatOthersChangeAreFoundAtTheNextWrite) {
  openWith(10);
  someoneWrites(1, 7);
  EXPECT_EQ(read(1), 7u);
  EXPECT_EQ(count(), 0u);
  EXPECT_EQ(write(1, 8), WriteResult::Ok);
  EXPECT_EQ(count(), 1u);
  someoneErases(1);
  EXPECT_EQ(write(1, 9), WriteResult::Ok);
  EXPECT_EQ(read(1), 9u);
  EXPECT_EQ(count(), 1u);
}

TEST_F(KernelTableTest, RowsThatOthersChangeAreCountedByAWalk) {
  openWith(10);
  ASSERT_EQ(write(1), WriteResult::Ok);
  someoneWrites(2, 1);
  someoneWrites(3, 1);
  someoneErases(1);
  EXPECT_THAT(walked(), ElementsAre(2, 3));
  EXPECT_EQ(count(), 2u);
}

TEST_F(KernelTableTest, BatchContinuesAfterFailuresInItsMiddle) {
  openWith(3);
  ASSERT_EQ(write(1), WriteResult::Ok);
  std::array<Bytes, 6> const b{bytesOf(1), bytesOf(2), bytesOf(3),
                               bytesOf(4), bytesOf(5), bytesOf(6)};
  using enum Change::Kind;
  auto const narrow = BfnDriver::ByteView(b[5]).first(7);
  EXPECT_THAT(apply({{Write, b[1], b[0]},
                     {Write, b[2], b[0]},
                     {Write, b[3], b[0]},  // full
                     {Write, b[0], b[4]},  // there
                     {Write, narrow, b[0]},
                     {Write, b[4], b[0]},  // full
                     {Erase, b[5], {}},    // not there
                     {Erase, b[1], {}},
                     {Erase, b[1], {}},  // not there any more
                     {Erase, b[2], {}},
                     {Write, b[4], b[0]}}),
              ElementsAre(Status::Ok, Status::Ok, Status::TableFull, Status::Ok, Status::Error,
                          Status::TableFull, Status::NotFound, Status::Ok, Status::NotFound,
                          Status::Ok, Status::Ok));
  EXPECT_THAT(walked(), ElementsAre(1, 5));
  EXPECT_EQ(read(1), 5u);
  EXPECT_EQ(count(), 2u);
}

TEST_F(KernelTableTest, HitsGoWithRowsThatABatchErases) {
  openWith(100);
  std::vector<Bytes> keys;
  std::vector<Change> erases;
  for (U64 key = 0; key < 50; ++key) keys.push_back(bytesOf(key));
  std::vector<U64> const hit(BfnKernel::possibleCpus(), 1);
  for (U64 key = 0; key < 50; ++key) {
    ASSERT_EQ(write(key), WriteResult::Ok);
    if (key % 3 == 0) {
      ASSERT_EQ(kernel_->hits().update(&key, hit.data(), BPF_ANY), 0);
    }
    erases.push_back({Change::Kind::Erase, keys[key], {}});
  }
  EXPECT_THAT(apply(erases), Each(Status::Ok));
  U64 first = 0;
  EXPECT_EQ(kernel_->hits().nextKey(nullptr, &first), ENOENT);
}

TEST_F(KernelTableTest, WalkGivesEachRowThatStaysOnceWhateverChangesMeanwhile) {
  openWith(4'000);
  for (U64 key = 0; key < 2'000; ++key) ASSERT_EQ(write(key), WriteResult::Ok);
  std::multiset<U64> seen;
  BfnDriver::WalkCursor cursor;
  U64 added = 10'000;
  U64 removed = 1'000;
  while (!cursor.ended) {
    batch(cursor, KernelTable::kWalkRoom, seen);
    for (int i = 0; i < 20; ++i) {
      ASSERT_EQ(write(added++), WriteResult::Ok);
      if (removed < 2'000) {
        ASSERT_EQ(erase(removed++), EraseResult::Ok);
      }
    }
  }
  for (U64 key = 0; key < 1'000; ++key) EXPECT_EQ(seen.count(key), 1u) << key;
  EXPECT_EQ(count(), walked().size());
}

TEST_F(KernelTableTest, ClearTakesAllRowsAndHits) {
  openWith(4'000);
  for (U64 key = 0; key < 3'000; ++key) ASSERT_EQ(write(key), WriteResult::Ok);
  std::vector<U64> const hit(BfnKernel::possibleCpus(), 1);
  U64 const key = 7;
  ASSERT_EQ(kernel_->hits().update(&key, hit.data(), BPF_ANY), 0);
  EXPECT_EQ(table_->clear(handle_), Status::Ok);
  EXPECT_EQ(count(), 0u);
  EXPECT_TRUE(walked().empty());
  U64 first = 0;
  EXPECT_EQ(kernel_->hits().nextKey(nullptr, &first), ENOENT);
}

TEST_F(KernelTableTest, UnknownHandlesAndWidthsAreErrorsWithAText) {
  openWith(10);
  Bytes const bytes{};
  Bytes action{};
  EXPECT_EQ(table_->write(TableHandle{9}, bytes, bytes), WriteResult::Error);
  EXPECT_EQ(table_->lastError(), "unknown handle, or a key or an action of the wrong width");
  EXPECT_EQ(table_->erase(handle_, BfnDriver::ByteView(bytes).first(7)), EraseResult::Error);
  EXPECT_EQ(table_->readRow(handle_, bytes, std::span(action).first(7)), Status::Error);
  EXPECT_EQ(table_->readRow(handle_, bytes, action), Status::NotFound);
  EXPECT_EQ(table_->entryCount(TableHandle{9}), 0u);
}

TEST_F(KernelTableTest, HandlesOfAClosedSessionAreUnknown) {
  openWith(10);
  TableHandle const other = *table_->open(address(2));
  EXPECT_EQ(table_->open(address(2)), other);
  table_->closeSession(1);
  EXPECT_EQ(write(1), WriteResult::Error);
  EXPECT_EQ(table_->write(other, bytesOf(1), bytesOf(1)), WriteResult::Ok);
  handle_ = *table_->open(address(1));
  EXPECT_EQ(read(1), 1u);
}

TEST_F(KernelTableTest, EachDeviceHasItsTable) {
  openWith(10);
  KernelProgram second({directory() / "second", 10});
  table_->deviceIs(1, second);
  BfnDriver::TableAddress address1 = address();
  address1.device = 1;
  TableHandle const other = *table_->open(address1);
  ASSERT_EQ(write(1, 11), WriteResult::Ok);
  ASSERT_EQ(table_->write(other, bytesOf(1), bytesOf(22)), WriteResult::Ok);
  EXPECT_EQ(read(1), 11u);
  EXPECT_EQ(table_->entryCount(other), 1u);
  address1.device = 2;
  EXPECT_EQ(table_->open(address1), std::nullopt);
  address1 = address();
  address1.table = "other";
  EXPECT_EQ(table_->open(address1), std::nullopt);
}

TEST_F(KernelTableTest, WithoutMemoryAWriteHasNoResourcesAndChangesNothing) {
  openWith(1000);
  size_t without = 0;
  for (U64 key = 1; key <= 100; ++key) {
    WriteResult result;
    {
      BfnTest::NoMemory const none;
      result = write(key);
    }
    if (result != WriteResult::Ok) {
      ++without;
      EXPECT_EQ(result, WriteResult::NoSysResources);
      ASSERT_EQ(count(), key - 1);
      ASSERT_EQ(write(key), WriteResult::Ok);
    }
    ASSERT_EQ(count(), key);
  }
  EXPECT_GT(without, 0u);
  EXPECT_EQ(walked().size(), 100u);
}

TEST_F(KernelTableTest, WithoutMemoryManyChangesAreMadeOneByOne) {
  openWith(1000);
  std::vector<Bytes> keys;
  for (U64 key = 1; key <= 200; ++key) keys.push_back(bytesOf(key));
  std::vector<Change> changes;
  for (Bytes const& key : keys) changes.push_back({Change::Kind::Write, key, key});
  std::vector<Status> results(changes.size(), Status::Error);
  for (size_t spared = 0;; ++spared) {
    ASSERT_EQ(table_->clear(handle_), Status::Ok);
    {
      BfnTest::NoMemory const none(spared);
      table_->apply(handle_, changes, results);
    }
    auto const made = std::ranges::count(results, Status::Ok);
    EXPECT_EQ(made + std::ranges::count(results, Status::NoSysResources), 200);
    EXPECT_EQ(count(), static_cast<size_t>(made));
    EXPECT_EQ(walked().size(), static_cast<size_t>(made));
    if (!BfnTest::allocationFailed()) break;
  }
  EXPECT_THAT(results, Each(Status::Ok));
}

/// A table of 1,000 rows in a host that ends its turns.
class KernelTableCopy : public KernelTableTest {
 protected:
  void SetUp() override {
    KernelTableTest::SetUp();
    if (IsSkipped()) return;
    openWith(2000);
    for (U64 key = 1; key <= kRows; ++key) ASSERT_EQ(write(key, key), WriteResult::Ok);
    table_->turnEnded();
  }
  U64 announcedRead(U64 key) {
    table_->prefetch(handle_, bytesOf(key));
    return read(key);
  }
  // So many that the table has been copied.
  void announceAndReadAll() {
    for (U64 key = 1; key <= kRows; ++key) ASSERT_EQ(announcedRead(key), key);
  }

  static constexpr U64 kRows = 1000;
};

TEST_F(KernelTableCopy, AnnouncedRowsOfATurnAreReadFromOneCopyAndOthersFromTheKernel) {
  announceAndReadAll();
  someoneWrites(7, 70);
  EXPECT_EQ(announcedRead(7), 7u) << "as it was in this turn";
  EXPECT_EQ(read(7), 70u) << "not announced";
  table_->turnEnded();
  EXPECT_EQ(announcedRead(7), 70u);
}

TEST_F(KernelTableCopy, IsDroppedAtTheNextChange) {
  announceAndReadAll();
  someoneWrites(7, 70);
  ASSERT_EQ(write(8, 80), WriteResult::Ok);
  EXPECT_EQ(announcedRead(7), 70u);
  EXPECT_EQ(announcedRead(8), 80u);
}

TEST_F(KernelTableCopy, IsDroppedAtTheNextErase) {
  announceAndReadAll();
  someoneWrites(7, 70);
  ASSERT_EQ(erase(8), EraseResult::Ok);
  EXPECT_EQ(announcedRead(7), 70u);
}

TEST_F(KernelTableCopy, FewRowsOfATurnAreReadOneByOne) {
  for (int turn = 0; turn < 10; ++turn) {
    for (U64 key = 1; key <= 50; ++key) announcedRead(key);
    U64 const action = 100 + static_cast<U64>(turn);
    someoneWrites(7, action);
    EXPECT_EQ(announcedRead(7), action);
    table_->turnEnded();
  }
}

TEST_F(KernelTableCopy, AHostThatEndsNoTurnReadsEachRowFromTheKernel) {
  table_ = std::make_unique<KernelTable>(*kernel_);
  handle_ = *table_->open(address());
  announceAndReadAll();
  someoneWrites(7, 70);
  EXPECT_EQ(announcedRead(7), 70u);
}

}  // namespace
