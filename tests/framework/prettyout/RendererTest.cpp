// SPDX-License-Identifier: Apache-2.0
#include "framework/prettyout/Renderer.h"

#include <gtest/gtest.h>
#include <type_traits>

#include "tests/framework/prettyout/Capture.h"

namespace {

using namespace prettyout;

using BfnTest::Output;

// Only literals are formats; a text that is made at run time does not convert.
static_assert(!std::is_convertible_v<std::string, ColumnFormat<0>>);
static_assert(!std::is_convertible_v<char const*, ColumnFormat<0>>);
static_assert(!std::is_convertible_v<std::string_view, ColumnFormat<0>>);

TEST(ColumnFormat, KnowsLiteralsWidthAndAlignment) {
  ColumnFormat<3> const format = "a %-15s%s--%7s\n";
  Columns const columns = format.columns();
  ASSERT_EQ(columns.columns.size(), 3u);
  EXPECT_EQ(columns.columns[0].literal, "a ");
  EXPECT_EQ(columns.columns[0].width, 15u);
  EXPECT_TRUE(columns.columns[0].left);
  EXPECT_EQ(columns.columns[1].literal, "");
  EXPECT_EQ(columns.columns[1].width, 0u);
  EXPECT_EQ(columns.columns[2].literal, "--");
  EXPECT_EQ(columns.columns[2].width, 7u);
  EXPECT_FALSE(columns.columns[2].left);
  EXPECT_EQ(columns.tail, "\n");
}

TEST(Printer, RendersInTheFormItWasMadeFor) {
  for (Format form : {Format::Text, Format::Json}) {
    Output output(form);
    EXPECT_EQ(output.printer->format(), form);
    output.renderer().start();
    output.renderer().addFrills("text");
    output.renderer().end();
    EXPECT_EQ(output.flushed(), form == Format::Text ? "text" : "{}\n");
  }
}

TEST(Renderer, IoflushOffersOnceAndKeepsWhatIsRefused) {
  Output output(Format::Text);
  output.capture.perCall = 2;
  output.renderer().start();
  output.renderer().addFrills("abc");
  output.renderer().ioflush();
  EXPECT_EQ(output.capture.bytes, "ab");
  EXPECT_EQ(output.printer->buffer().waiting(), 1u);
}

class RendererDeathTest : public testing::TestWithParam<Format> {
 protected:
  Output output_{GetParam()};
  Renderer& renderer_ = output_.renderer();
};

TEST_P(RendererDeathTest, EndDictWithoutStartIsFatal) {
  renderer_.start();
  EXPECT_DEATH(renderer_.endDict(), R"(Failed\(inDict\(\)\) no dictionary to end here)");
}

TEST_P(RendererDeathTest, EndWithAnOpenDictionaryIsFatal) {
  renderer_.start();
  renderer_.startDict("vrfs");
  EXPECT_DEATH(renderer_.end(), R"(Failed\(depth\(\) == 0\) 1 dictionaries or entries)");
}

TEST_P(RendererDeathTest, ADictionaryAndAnEntryAreEndedAsWhatTheyAre) {
  renderer_.start();
  renderer_.startDict("vrfs");
  EXPECT_DEATH(renderer_.endDictEntry(), R"(Failed\(inDictEntry\(\)\) no entry to end here)");
  renderer_.startDictEntry({"sip", "10.0.0.1"});
  EXPECT_DEATH(renderer_.endDict(), R"(Failed\(inDict\(\)\) no dictionary to end here)");
}

TEST_P(RendererDeathTest, AnEntryOutsideADictionaryIsFatal) {
  renderer_.start();
  EXPECT_DEATH(renderer_.startDictEntry({"sip", "10.0.0.1"}), R"(Failed\(inDict\(\)\))");
}

TEST_P(RendererDeathTest, OutputBeforeStartIsFatal) {
  EXPECT_DEATH(renderer_.startDict("vrfs"), "started.*ended");
  EXPECT_DEATH(renderer_.addFrills("\n"), "started.*ended");
  EXPECT_DEATH(renderer_.addAttributes("%s", 1, Attribute{"a", "b"}), "started.*ended");
  EXPECT_DEATH(renderer_.end(), "started.*ended");
}

TEST_P(RendererDeathTest, OutputAfterEndIsFatal) {
  renderer_.start();
  renderer_.end();
  EXPECT_DEATH(renderer_.addFrills("\n"), "started.*ended");
  EXPECT_DEATH(renderer_.start(), R"(Failed\(!started\(\)\))");
}

TEST_P(RendererDeathTest, AWrongAttributeCountIsFatal) {
  renderer_.start();
  EXPECT_DEATH(renderer_.addAttributes("%s", 2, Attribute{"a", "b"}), "2 attributes announced");
}

TEST_P(RendererDeathTest, NestingIsBounded) {
  renderer_.start();
  for (size_t i = 0; i < Renderer::kMaxDepth; ++i) renderer_.startDict("d");
  EXPECT_DEATH(renderer_.startDict("d"), "nested too deeply");
}

INSTANTIATE_TEST_SUITE_P(EveryForm, RendererDeathTest, testing::Values(Format::Text, Format::Json),
                         [](auto const& form) {
                           return form.param == Format::Text ? "Text" : "Json";
                         });

}  // namespace
