// SPDX-License-Identifier: Apache-2.0
#include "chip/Journal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using BfnChip::Journal;
using BfnChip::JournalEntry;
using BfnChip::Operation;
using BfnChip::Outcome;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

JournalEntry entry(int n) {
  return {{5, static_cast<Kiv::U8>(n), 0, 10, 0, 0, 1, 1},
          {0x22, 0x11, 0x02, 0, 0x55, 0x44, 0x33, 0},
          {},
          0,
          Operation::Write,
          Outcome::Ok};
}

TEST(Journal, IsOnWithABoundedLimit) {
  Journal journal;
  EXPECT_EQ(journal.limit(), Journal::kDefaultLimit);
  journal.append(entry(1));
  EXPECT_EQ(journal.size(), 1u);
}

TEST(Journal, TakeReturnsEntriesInOrderAndEmptiesIt) {
  Journal journal;
  for (int n : {1, 2, 3}) journal.append(entry(n));
  EXPECT_THAT(journal.take(), ElementsAre(entry(1), entry(2), entry(3)));
  EXPECT_THAT(journal.take(), IsEmpty());
}

TEST(Journal, WhenFullEachNewEntryPushesOutTheOldest) {
  Journal journal;
  journal.limitIs(3);
  for (int n : {1, 2, 3, 4, 5}) journal.append(entry(n));
  EXPECT_EQ(journal.dropped(), 2u);
  EXPECT_EQ(journal.at(0), entry(3));
  EXPECT_EQ(journal.at(2), entry(5));
  EXPECT_THAT(journal.take(), ElementsAre(entry(3), entry(4), entry(5)));
  EXPECT_EQ(journal.dropped(), 0u);
}

TEST(Journal, LoweredLimitKeepsTheNewest) {
  Journal journal;
  journal.limitIs(3);
  for (int n : {1, 2, 3, 4}) journal.append(entry(n));
  journal.limitIs(2);
  EXPECT_EQ(journal.dropped(), 2u);
  journal.append(entry(5));
  EXPECT_THAT(journal.take(), ElementsAre(entry(4), entry(5)));
}

TEST(Journal, RaisedLimitKeepsTheOrderOfAFullJournal) {
  Journal journal;
  journal.limitIs(3);
  for (int n : {1, 2, 3, 4}) journal.append(entry(n));
  journal.limitIs(5);
  for (int n : {5, 6}) journal.append(entry(n));
  EXPECT_THAT(journal.take(), ElementsAre(entry(2), entry(3), entry(4), entry(5), entry(6)));
}

TEST(Journal, LimitZeroOnlyCounts) {
  Journal journal;
  journal.limitIs(0);
  journal.append(entry(1));
  EXPECT_EQ(journal.size(), 0u);
  EXPECT_EQ(journal.dropped(), 1u);
}

TEST(Journal, EntriesPrintAsHexWithTheirOutcome) {
  std::ostringstream out;
  JournalEntry erased = entry(7);
  erased.operation = Operation::Erase;
  erased.outcome = Outcome::NotFound;
  out << entry(7) << '\n' << erased;
  EXPECT_EQ(out.str(),
            "write 0507000a00000101 <- 2211020055443300 ok\n"
            "erase 0507000a00000101 not-found");
}

}  // namespace
