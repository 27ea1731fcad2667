// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Hash.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using Kiv::Hash;
using Kiv::hashSingleAttr;
using Kiv::U16;
using Kiv::U32;
using Kiv::U64;
using Kiv::U8;

// By how many standard deviations the spread of `keys` keys over 2^bits home slots, taken from the
// top bits, is off from that of random numbers.
template <class KeyAt>
double slotDeviation(KeyAt keyAt, U32 keys, unsigned bits, U32 seed) {
  std::vector<U32> load(size_t{1} << bits);
  for (U32 i = 0; i < keys; ++i) ++load[hashSingleAttr(seed, keyAt(i)) >> (32 - bits)];
  double const expected = double(keys) / double(load.size());
  double chiSquare = 0;
  for (U32 const n : load) chiSquare += (n - expected) * (n - expected) / expected;
  double const freedom = double(load.size()) - 1;
  return (chiSquare - freedom) / std::sqrt(2 * freedom);
}

struct TwoWords {
  U32 first;
  U32 second;
  U32 hash(unsigned seed) const { return Hash(seed).hashMix(first).hashMix(second).result(); }
};

TEST(Hash, SpreadsRegularKeysOverHomeSlotsLikeRandomNumbers) {
  std::mt19937 random(20260715);
  constexpr U32 kKeys = 65536;
  for (U32 const stride : {1u, 2u, 3u, 4u, 7u, 16u, 64u, 100u, 256u, 641u, 1000u, 4096u, 65537u}) {
    for (int run = 0; run < 3; ++run) {
      U32 const seed = static_cast<U32>(random());
      U32 const base = run == 0 ? 0 : static_cast<U32>(random());
      for (unsigned const bits : {10u, 13u, 16u}) {
        double const off =
            slotDeviation([&](U32 i) { return base + i * stride; }, kKeys, bits, seed);
        EXPECT_LT(std::abs(off), 6) << "stride " << stride << " bits " << bits << " seed " << seed;
      }
    }
  }
}

TEST(Hash, SpreadsPairsOfSmallNumbersLikeRandomNumbers) {
  std::mt19937 random(4);
  for (int run = 0; run < 5; ++run) {
    U32 const seed = static_cast<U32>(random());
    auto const pairAt = [](U32 i) { return TwoWords{i / 256, 0x0A000000 + i % 256}; };
    EXPECT_LT(std::abs(slotDeviation(pairAt, 65536, 13, seed)), 6) << "seed " << seed;
  }
}

TEST(Hash, SpreadsNumberedTextsLikeRandomNumbers) {
  std::vector<std::string> texts;
  texts.reserve(65536);
  for (int i = 0; i < 65536; ++i) texts.push_back("Ethernet" + std::to_string(i));
  auto const hashAt = [&](U32 i) { return Kiv::hashText(texts[i]); };
  EXPECT_LT(std::abs(slotDeviation(hashAt, 65536, 13, 1)), 6);
  std::vector<U32> load(8192);
  for (auto const& text : texts) ++load[Kiv::hashText(text) & 8191];
  EXPECT_LT(*std::max_element(load.begin(), load.end()), 40u);
}

// Flips each bit of the input of `hash` and counts how often each bit of the result flips: half of
// the time, within six standard deviations.
template <class HashOf>
void expectAvalanche(HashOf hash, int inputBits, char const* what) {
  constexpr int kSamples = 20000;
  std::mt19937_64 random(99);
  for (int in = 0; in < inputBits; ++in) {
    std::array<int, 32> flips{};
    for (int sample = 0; sample < kSamples; ++sample) {
      U64 const input = random();
      U32 const changed = hash(input) ^ hash(input ^ U64{1} << in);
      for (unsigned out = 0; out < 32; ++out) flips[out] += static_cast<int>(changed >> out & 1);
    }
    for (size_t out = 0; out < 32; ++out) {
      EXPECT_NEAR(double(flips[out]) / kSamples, 0.5, 6 * 0.5 / std::sqrt(kSamples))
          << what << ": in " << in << " out " << out;
    }
  }
}

TEST(Hash, EveryBitOfKeyAndSeedFlipsEveryBitOfTheResultHalfOfTheTime) {
  expectAvalanche([](U64 x) { return hashSingleAttr(0x2C8B2578u, static_cast<U32>(x)); }, 32,
                  "one word, fixed seed");
  expectAvalanche([](U64 x) { return Hash(0).hashMix(x).result(); }, 64, "one long word");
  expectAvalanche(
      [](U64 x) { return hashSingleAttr(static_cast<U32>(x), static_cast<U32>(x >> 32)); }, 64,
      "seed and word");
  expectAvalanche(
      [](U64 x) {
        return TwoWords{static_cast<U32>(x), static_cast<U32>(x >> 32)}.hash(1);
      },
      64, "two words");
  expectAvalanche(
      [](U64 x) { return Hash(static_cast<U32>(x >> 8)).hashMix(static_cast<U8>(x)).result(); }, 40,
      "a byte under a seed");
  expectAvalanche([](U64 x) { return Hash(3).hashMix(&x, sizeof x).result(); }, 64, "eight bytes");
  expectAvalanche([](U64 x) { return Hash(3).hashMix(&x, 5).result(); }, 40, "five bytes");
}

TEST(Hash, CollidesNoMoreOftenThanRandomNumbersDo) {
  constexpr U32 kKeys = 1'000'000;
  std::vector<U32> hashes(kKeys);
  for (U32 i = 0; i < kKeys; ++i) hashes[i] = hashSingleAttr(77u, 0x0A000000 + i);
  std::sort(hashes.begin(), hashes.end());
  auto const unique = std::unique(hashes.begin(), hashes.end()) - hashes.begin();
  EXPECT_NEAR(double(kKeys - unique), 116, 65);  // n^2 / 2^33, within six standard deviations
}

TEST(Hash, DependsOnTheOrderOfFields) {
  EXPECT_NE(Hash(1).hashMix(2u).hashMix(3u).result(), Hash(1).hashMix(3u).hashMix(2u).result());
}

TEST(Hash, DependsOnTheLastByteFieldAlone) {
  EXPECT_NE(Hash(1).hashMix(2u).hashMix(true).result(),
            Hash(1).hashMix(2u).hashMix(false).result());
}

TEST(Hash, TakesNumbersByValueWhateverTheirWidthUpTo32Bits) {
  EXPECT_EQ(Hash(1).hashMix(U8{9}).result(), Hash(1).hashMix(U32{9}).result());
  EXPECT_EQ(Hash(1).hashMix(U16{9}).result(), Hash(1).hashMix(U32{9}).result());
  enum class Colour { kRed = 9 };
  EXPECT_EQ(hashSingleAttr(1u, Colour::kRed), hashSingleAttr(1u, 9));
}

TEST(Hash, DistinguishesNeighbouringByteRuns) {
  std::set<U32> results;
  std::array<char, 40> const zeros{};
  for (size_t size = 0; size <= zeros.size(); ++size) {
    results.insert(Hash(1).hashMix(zeros.data(), size).result());
  }
  EXPECT_EQ(results.size(), zeros.size() + 1);
  EXPECT_NE(Hash(1).hashMix("ab", 2).hashMix("c", 1).result(),
            Hash(1).hashMix("a", 1).hashMix("bc", 2).result());
}

TEST(Hash, IsTheSameOnEveryAlignment) {
  alignas(8) std::array<char, 32> buffer{};
  std::string const text = "Port-Channel1000.4094";
  for (size_t offset = 0; offset < 8; ++offset) {
    std::copy(text.begin(), text.end(), buffer.begin() + static_cast<std::ptrdiff_t>(offset));
    EXPECT_EQ(Kiv::hashText({buffer.data() + offset, text.size()}), Kiv::hashText(text));
  }
}

struct OwnHash {
  U32 hash() const { return 5; }
};
struct SeededHash {
  U32 hash() const { return 5; }
  U32 hash(unsigned seed) const { return seed + 1; }
};

TEST(HashSingleAttr, MixesTheFourBytesOfAnUnseededHash) {
  EXPECT_EQ(hashSingleAttr(3u, OwnHash{}), Hash(3).hashMix(5u).result());
}

TEST(HashSingleAttr, UsesASeededHashAsItIs) {
  EXPECT_EQ(hashSingleAttr(3u, SeededHash{}), 4u);
}

TEST(HashSingleAttr, IsAConstantExpressionForNumbers) {
  static_assert(hashSingleAttr(1u, 2u) != hashSingleAttr(1u, 3u));
  static_assert(hashSingleAttr(1u, true) != hashSingleAttr(1u, false));
}

}  // namespace
