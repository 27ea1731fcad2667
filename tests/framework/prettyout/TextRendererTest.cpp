// SPDX-License-Identifier: Apache-2.0
#include "framework/prettyout/TextRenderer.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "tests/framework/prettyout/Capture.h"
#include "tests/support/Seed.h"

namespace {

using namespace prettyout;

using BfnTest::Output;

TEST(TextRenderer, PrintsHeaderRowsAndTrailingBlanksByteForByte) {
  Output output(Format::Text);
  Renderer& renderer = output.renderer();
  renderer.start();
  BfnTest::printHeader(renderer);
  renderer.startDict("vrfs");
  renderer.startDict("red");
  renderer.startDict("addresses");
  BfnTest::printRow(renderer, "red", "10.0.0.1", "02:00:00:00:00:01");
  renderer.endDict();
  renderer.endDict();
  renderer.endDict();
  renderer.addFrills("\n");
  renderer.end();
  EXPECT_EQ(output.flushed(),
            "\n"
            "VRF name        Source IP            Source MAC          \n"
            "------------------------------------------------------------\n"
            "red             10.0.0.1             02:00:00:00:00:01   \n"
            "\n");
}

TEST(TextRenderer, DictionariesAndEntriesPrintNothing) {
  Output output(Format::Text);
  Renderer& renderer = output.renderer();
  renderer.start();
  renderer.startDict("vrfs");
  renderer.startDictEntry({"sip", "10.0.0.1"});
  renderer.endDictEntry();
  renderer.endDict();
  renderer.end();
  EXPECT_EQ(output.flushed(), "");
}

TEST(TextRenderer, AValueLongerThanItsColumnIsNotCut) {
  Output output(Format::Text);
  output.renderer().start();
  output.renderer().startDict("addresses");
  BfnTest::printRow(output.renderer(), "a-name-of-more-than-15-bytes", "255.255.255.255",
                    "02:00:00:00:00:01");
  EXPECT_EQ(output.flushed(),
            "a-name-of-more-than-15-bytes 255.255.255.255      02:00:00:00:00:01   \n");
}

TEST(TextRenderer, ArgumentsAreDataAndNeverFormats) {
  Output output(Format::Text);
  output.renderer().start();
  output.renderer().addFrills("[%s] [%6s] [%-6s]\n", "%s%n", "%d", std::string("%%"));
  EXPECT_EQ(output.flushed(), "[%s%n] [    %d] [%%    ]\n");
}

TEST(TextRenderer, BytesOfAnyValueAreWrittenAsTheyAre) {
  using namespace std::string_view_literals;
  Output output(Format::Text);
  output.renderer().start();
  output.renderer().addFrills("%-4s|\n", "\0\xFF\n"sv);
  EXPECT_EQ(output.flushed(), "\0\xFF\n |\n"sv);
}

TEST(TextRenderer, AnEmptyValueFillsItsColumn) {
  Output output(Format::Text);
  output.renderer().start();
  output.renderer().addFrills("%3s|%-3s|%s|\n", "", std::string_view(), "");
  EXPECT_EQ(output.flushed(), "   |   ||\n");
}

TEST(TextRenderer, PadsLikeTheCLibraryForEveryLengthAndBothAlignments) {
  unsigned const seed = BfnTest::testSeed(std::random_device{}());
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  Output output(Format::Text, 256);
  output.renderer().start();
  std::string expected;
  auto text = [&random] {
    std::string made(random() % 70, ' ');
    for (char& c : made) c = static_cast<char>('!' + random() % 90);
    return made;
  };
  for (int row = 0; row < 5000; ++row) {
    std::string const a = text();
    std::string const b = text();
    std::string const c = text();
    output.renderer().addFrills("<%-20s, %33s and some literal text %-1s>\n", a, b, c);
    char line[512];
    std::snprintf(line, sizeof line, "<%-20s, %33s and some literal text %-1s>\n", a.c_str(),
                  b.c_str(), c.c_str());
    expected += line;
  }
  EXPECT_EQ(output.flushed(), expected);
}

}  // namespace
