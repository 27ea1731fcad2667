// SPDX-License-Identifier: Apache-2.0
#include "framework/values/Utf8.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "tests/support/Seed.h"

namespace {

using Kiv::bytesFromUtf8;
using Kiv::utf8FromBytes;

bool isUtf8(std::string const& text) {
  // Refuses what is not UTF-8.
  try {
    (void)nlohmann::json(text).dump();
    return true;
  } catch (nlohmann::json::type_error const&) {
    return false;
  }
}

TEST(Utf8, ValidTextIsKept) {
  for (std::string const text : {"", "plain", "gr\xC3\xBCn", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80",
                                 "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBD", "\xF0\x90\x80\x80",
                                 "\xF4\x8F\xBC\x80", "\xF4\x8F\xBD\xBF"}) {
    EXPECT_EQ(utf8FromBytes(text), text);
    EXPECT_EQ(bytesFromUtf8(text), text);
  }
}

TEST(Utf8, AByteThatIsNoUtf8IsACodePointAboveU10FF00) {
  EXPECT_EQ(utf8FromBytes("a\x80z"), "a\xF4\x8F\xBE\x80z");
  EXPECT_EQ(utf8FromBytes("\xFF"), "\xF4\x8F\xBF\xBF");
  EXPECT_EQ(utf8FromBytes("\xE2\x82"), "\xF4\x8F\xBF\xA2\xF4\x8F\xBE\x82");
}

TEST(Utf8, TheCodePointsThatStandForBytesAreFourBytesEach) {
  EXPECT_EQ(utf8FromBytes("\xF4\x8F\xBF\xBF"),
            "\xF4\x8F\xBF\xB4\xF4\x8F\xBE\x8F\xF4\x8F\xBE\xBF\xF4\x8F\xBE\xBF");
  EXPECT_EQ(bytesFromUtf8(utf8FromBytes("\xF4\x8F\xBE\x80")), "\xF4\x8F\xBE\x80");
}

TEST(Utf8, EveryRunOfTwoBytesComesBack) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      std::string const bytes = {static_cast<char>(first), static_cast<char>(second)};
      std::string const text = utf8FromBytes(bytes);
      ASSERT_TRUE(isUtf8(text));
      ASSERT_EQ(bytesFromUtf8(text), bytes);
    }
  }
}

TEST(Utf8, RandomBytesComeBack) {
  unsigned const seed = BfnTest::testSeed(std::random_device{}());
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  constexpr std::string_view kLikely = "\x7F\x80\x8F\x9F\xA0\xBC\xBE\xBF\xC2\xE0\xED\xEF\xF0\xF4";
  for (int round = 0; round < 20'000; ++round) {
    std::string bytes(random() % 20, ' ');
    for (char& c : bytes) {
      c = random() % 4 != 0 ? kLikely[random() % kLikely.size()] : static_cast<char>(random());
    }
    std::string const text = utf8FromBytes(bytes);
    ASSERT_TRUE(isUtf8(text));
    ASSERT_EQ(bytesFromUtf8(text), bytes);
  }
}

}  // namespace
