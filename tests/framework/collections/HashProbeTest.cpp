// SPDX-License-Identifier: Apache-2.0
#include "framework/collections/HashProbe.h"

#include <array>
#include <gtest/gtest.h>
#include <random>

namespace {

using namespace Kiv;

TEST(HashProbe, FindsTheLanesThatAreEqualAndBelow) {
  std::array<U32, 4> const hashes{5, 0x8000'0000, 5, 0xFFFF'FFFF};
  EXPECT_EQ(HashProbe::equal(hashes.data(), 5), 0b0101u);
  EXPECT_EQ(HashProbe::below(hashes.data(), 0x8000'0000), 0b0101u);
  EXPECT_EQ(HashProbe::below(hashes.data(), 0x8000'0001), 0b0111u);
  EXPECT_EQ(HashProbe::below(hashes.data(), 0), 0u);
  EXPECT_EQ(HashProbe::used(hashes.data()), 0b0111u);
}

TEST(HashProbe, GivesWhatThePortableFormGives) {
  constexpr U32 kSeed = 4711;
  SCOPED_TRACE(::testing::Message() << "seed " << kSeed);
  std::mt19937 random(kSeed);
  constexpr std::array<U32, 6> kEdges{0, 1, 0x7FFF'FFFF, 0x8000'0000, 0xFFFF'FFFE, 0xFFFF'FFFF};
  auto const draw = [&] {
    U32 const any = static_cast<U32>(random());
    return random() % 2 == 0 ? kEdges.at(any % kEdges.size()) : any;
  };
  for (int step = 0; step < 200'000; ++step) {
    std::array<U32, 4> const hashes{draw(), draw(), draw(), draw()};
    U32 const hash = draw();
    ASSERT_EQ(HashProbe::equal(hashes.data(), hash),
              HashProbe::Portable::equal(hashes.data(), hash));
    ASSERT_EQ(HashProbe::below(hashes.data(), hash),
              HashProbe::Portable::below(hashes.data(), hash));
  }
}

}  // namespace
