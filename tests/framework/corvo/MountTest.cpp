// SPDX-License-Identifier: Apache-2.0
#include "framework/corvo/Mount.h"

#include <gtest/gtest.h>

#include "framework/core/Exceptions.h"

namespace {

using Corvo::AllMountFlags;
using Corvo::Mount;
using Corvo::MountFilter;

TEST(Mount, CarriesWhatItWasMadeOf) {
  Mount const mount("a/b", "X::Y", "r", AllMountFlags(0), MountFilter(false));
  EXPECT_EQ(mount.path(), "a/b");
  EXPECT_EQ(mount.typeName(), "X::Y");
  EXPECT_EQ(mount.mode(), "r");
  EXPECT_EQ(mount.flags().value(), 0u);
  EXPECT_FALSE(mount.filter().filtered());
}

TEST(Mount, TheModeCountsOnlyOnceItsFlagsAreHandled) {
  Mount mount("a", "X", "w");
  EXPECT_FALSE(mount.flags().has(AllMountFlags::kWrite));
  mount.handleFlags(mount.mode());
  EXPECT_TRUE(mount.flags().has(AllMountFlags::kWrite));
}

TEST(Mount, ReadingDoesNotIncludeWritingButWritingIncludesReading) {
  Mount reading("a", "X", "r");
  reading.handleFlags("r");
  EXPECT_TRUE(reading.flags().has(AllMountFlags::kRead));
  EXPECT_FALSE(reading.flags().has(AllMountFlags::kWrite));
  Mount writing("a", "X", "w");
  writing.handleFlags("w");
  EXPECT_TRUE(writing.flags().has(AllMountFlags::kRead));
  EXPECT_TRUE(writing.flags().has(AllMountFlags::kWrite));
}

TEST(Mount, AnUnknownOrEmptyModeIsRefusedAndTheFlagsStay) {
  Mount mount("a", "X", "rx");
  mount.handleFlags("r");
  AllMountFlags const before = mount.flags();
  for (char const* mode : {"wx", "W", " ", ""}) {
    SCOPED_TRACE(mode);
    EXPECT_THROW(mount.handleFlags(mode), Kiv::RangeException);
    EXPECT_EQ(mount.flags(), before);
  }
}

}  // namespace
