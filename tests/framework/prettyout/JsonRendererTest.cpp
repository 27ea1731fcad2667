// SPDX-License-Identifier: Apache-2.0
#include "framework/prettyout/JsonRenderer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <string>

#include "framework/values/Utf8.h"
#include "tests/framework/prettyout/Capture.h"
#include "tests/support/Seed.h"

namespace {

using namespace prettyout;

using BfnTest::Output;
using nlohmann::json;

std::string render(std::string_view vrf) {
  Output output(Format::Json);
  Renderer& renderer = output.renderer();
  renderer.start();
  renderer.startDict(vrf);
  BfnTest::printRow(renderer, vrf, "10.0.0.1", "02:00:00:00:00:01");
  renderer.endDict();
  renderer.end();
  return output.flushed();
}

/// The key of `render(name)`, parsed back.
std::string readBack(std::string_view name) {
  json const document = json::parse(render(name));
  EXPECT_EQ(document.size(), 1u);
  EXPECT_EQ(document.begin()->at("10.0.0.1").at("vrfName"), document.begin().key());
  return document.begin().key();
}

TEST(JsonRenderer, NestsDictionariesEntriesAndAttributesByteForByte) {
  Output output(Format::Json);
  Renderer& renderer = output.renderer();
  renderer.start();
  renderer.startDict("vrfs");
  for (char const* vrf : {"blue", "red"}) {
    renderer.startDict(vrf);
    renderer.startDict("addresses");
    BfnTest::printRow(renderer, vrf, "10.0.0.1", "02:00:00:00:00:01");
    BfnTest::printRow(renderer, vrf, "10.0.0.2", "02:00:00:00:00:02");
    renderer.endDict();
    renderer.endDict();
  }
  renderer.endDict();
  renderer.end();
  EXPECT_EQ(output.flushed(),
            R"({"vrfs":{)"
            R"("blue":{"addresses":{)"
            R"("10.0.0.1":{"vrfName":"blue","sip":"10.0.0.1","smac":"02:00:00:00:00:01"},)"
            R"("10.0.0.2":{"vrfName":"blue","sip":"10.0.0.2","smac":"02:00:00:00:00:02"}}},)"
            R"("red":{"addresses":{)"
            R"("10.0.0.1":{"vrfName":"red","sip":"10.0.0.1","smac":"02:00:00:00:00:01"},)"
            R"("10.0.0.2":{"vrfName":"red","sip":"10.0.0.2","smac":"02:00:00:00:00:02"}}}}})"
            "\n");
}

TEST(JsonRenderer, FrillsPrintNothing) {
  Output output(Format::Json);
  output.renderer().start();
  BfnTest::printHeader(output.renderer());
  output.renderer().end();
  EXPECT_EQ(output.flushed(), "{}\n");
}

TEST(JsonRenderer, AttributesOutsideAnyDictionaryAreMembersOfTheOutput) {
  Output output(Format::Json);
  Renderer& renderer = output.renderer();
  renderer.start();
  renderer.addAttributes("%s\n", 1, Attribute{"rows", "7"});
  renderer.startDict("more");
  renderer.endDict();
  renderer.addAttributes("%s %s\n", 2, Attribute{"used", "1"}, Attribute{"free", "2"});
  renderer.end();
  EXPECT_EQ(output.flushed(), "{\"rows\":\"7\",\"more\":{},\"used\":\"1\",\"free\":\"2\"}\n");
}

TEST(JsonRenderer, EveryAsciiByteReadsBackAsItself) {
  for (int byte = 0; byte < 0x80; ++byte) {
    std::string const name = std::string("a") + static_cast<char>(byte) + "b";
    EXPECT_EQ(readBack(name), name) << "byte " << byte;
  }
}

TEST(JsonRenderer, EscapesQuotesBackslashesAndControlBytes) {
  using namespace std::string_view_literals;
  EXPECT_NE(render("\"\\\n\r\t\b\0\x1f"sv).find(R"("\"\\\n\r\t\u0008\u0000\u001f")"),
            std::string::npos);
}

TEST(JsonRenderer, WellFormedUtf8PassesAsItIs) {
  for (std::string const& name :
       {std::string("\xC2\x80"), std::string("\xDF\xBF"), std::string("\xE0\xA0\x80"),
        std::string("\xED\x9F\xBF"), std::string("\xEE\x80\x80"), std::string("\xEF\xBF\xBF"),
        std::string("\xF0\x90\x80\x80"), std::string("\xF4\x8F\xBD\xBF"),
        std::string("gr\xC3\xBCn")}) {
    EXPECT_EQ(readBack(name), name);
    EXPECT_NE(render(name).find(name), std::string::npos);
  }
}

/// The bytes, each as the code point U+10FF00 + byte.
std::string escaped(std::string_view bytes) {
  std::string text;
  for (char const c : bytes) {
    auto const byte = static_cast<unsigned char>(c);
    text += {'\xF4', '\x8F', static_cast<char>(0xBC | byte >> 6),
             static_cast<char>(0x80 | (byte & 0x3F))};
  }
  return text;
}

TEST(JsonRenderer, EachByteOutsideValidUtf8BecomesACodePointOfItsOwn) {
  // Lone continuation, overlong forms, a surrogate, above 10FFFF, cut sequences, never-valid bytes,
  // and the code points that such bytes take.
  for (std::string_view const name :
       {"\x80", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82",
        "\xFF\xFE", "\xF4\x8F\xBE\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(readBack(name), escaped(name)) << escaped(name);
  }
  EXPECT_EQ(readBack("\xC3("), escaped("\xC3") + "(");
  EXPECT_EQ(readBack("\xE2\x82\xE2\x82\xAC"), escaped("\xE2\x82") + "\xE2\x82\xAC");
}

TEST(JsonRenderer, GivesEveryNameAKeyOfItsOwn) {
  std::set<std::string> names = {"\xFF", "\xC3\xBF", "\xF4\x8F\xBF\xBF", "\xEF\xBF\xBD", ""};
  names.insert(escaped("\xFF"));
  for (int byte = 0; byte < 256; ++byte) {
    names.insert(std::string(1, static_cast<char>(byte)));
    names.insert(std::string("\xE2") + static_cast<char>(byte));
    names.insert(escaped(std::string(1, static_cast<char>(byte))));
  }
  Output output(Format::Json);
  Renderer& renderer = output.renderer();
  renderer.start();
  for (std::string const& name : names) {
    renderer.startDict(name);
    renderer.endDict();
  }
  renderer.end();
  json const document = json::parse(output.flushed());
  EXPECT_EQ(document.size(), names.size());
  std::set<std::string> readBackNames;
  for (auto const& member : document.items()) {
    readBackNames.insert(Kiv::bytesFromUtf8(member.key()));
  }
  EXPECT_EQ(readBackNames, names);
}

TEST(JsonRenderer, StaysValidWhateverBytesANameHolds) {
  unsigned const seed = BfnTest::testSeed(std::random_device{}());
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  // Bytes that start, continue and break sequences, more often than chance would have them.
  constexpr std::string_view kLikely =
      "\"\\/{}[],:\x01\x7F\x80\xBF\xC0\xC2\xE0\xED\xEF\xF0\xF4\xF5\xFF";
  for (int round = 0; round < 20000; ++round) {
    std::string name(random() % 100, ' ');
    for (char& c : name) {
      c = random() % 2 == 0 ? kLikely[random() % kLikely.size()] : static_cast<char>(random());
    }
    std::string const text = render(name);
    ASSERT_TRUE(json::accept(text)) << text;
    ASSERT_EQ(Kiv::bytesFromUtf8(readBack(name)), name);
  }
}

TEST(JsonRenderer, StaysValidOverManyDrainsOfATinyBuffer) {
  Output output(Format::Json, 1);
  output.capture.perCall = 7;
  Renderer& renderer = output.renderer();
  renderer.start();
  renderer.startDict("vrfs");
  for (int vrf = 0; vrf < 50; ++vrf) {
    renderer.startDict(std::to_string(vrf));
    for (int row = 0; row < vrf; ++row) {
      BfnTest::printRow(renderer, "v\xFF", std::to_string(row), "02:00:00:00:00:01");
    }
    renderer.endDict();
    renderer.ioflush();
  }
  renderer.endDict();
  renderer.end();
  while (output.printer->buffer().waiting() > 0) renderer.ioflush();
  json const document = json::parse(output.capture.bytes);
  ASSERT_EQ(document.at("vrfs").size(), 50u);
  EXPECT_EQ(document.at("vrfs").at("0").size(), 0u);
  EXPECT_EQ(document.at("vrfs").at("49").size(), 49u);
  EXPECT_EQ(document.at("vrfs").at("49").at("48").at("sip"), "48");
}

}  // namespace
