// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Strep.h"

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <sstream>

namespace {

using Kiv::RangeException;
using Kiv::strepToValue;
using Kiv::String;
using Kiv::U16;
using Kiv::U32;
using Kiv::U64;
using Kiv::U8;
using Kiv::valueToStrep;
using ::testing::StartsWith;

template <class Work>
std::string rangeErrorOf(Work work) {
  try {
    work();
  } catch (RangeException const& exception) {
    return exception.what();
  }
  return "no RangeException";
}

template <class T>
std::string errorOf(String const& strep) {
  return rangeErrorOf([&] { (void)strepToValue<T>(strep); });
}

TEST(Strep, WritesAndReadsBools) {
  EXPECT_EQ(valueToStrep(true), "True");
  EXPECT_EQ(valueToStrep(false), "False");
  EXPECT_TRUE(strepToValue<bool>("True"));
  EXPECT_FALSE(strepToValue<bool>("False"));
  for (char const* bad : {"", "true", "T", "Tru", "TRUE", "1", "0", "Truee", " True"}) {
    EXPECT_THROW(strepToValue<bool>(bad), RangeException) << bad;
  }
}

template <class T>
void expectLimitsRoundTrip() {
  for (T const value :
       {std::numeric_limits<T>::min(), T{0}, T{1}, T{10}, std::numeric_limits<T>::max()}) {
    EXPECT_EQ(valueToStrep(value), std::to_string(value));
    EXPECT_EQ(strepToValue<T>(valueToStrep(value)), value);
  }
}

TEST(Strep, WritesAndReadsIntegersUpToTheirLimits) {
  expectLimitsRoundTrip<U8>();
  expectLimitsRoundTrip<U16>();
  expectLimitsRoundTrip<U32>();
  expectLimitsRoundTrip<U64>();
  expectLimitsRoundTrip<std::int8_t>();
  expectLimitsRoundTrip<std::int32_t>();
  expectLimitsRoundTrip<std::int64_t>();
}

TEST(Strep, RefusesIntegersBeyondTheirLimits) {
  EXPECT_EQ(errorOf<U8>("256"), "expected a number not above 255, found '256'");
  EXPECT_THROW(strepToValue<U8>("999"), RangeException);
  EXPECT_THROW(strepToValue<U16>("65536"), RangeException);
  EXPECT_THROW(strepToValue<U32>("4294967296"), RangeException);
  EXPECT_THROW(strepToValue<U64>("18446744073709551616"), RangeException);
  EXPECT_THROW(strepToValue<std::int8_t>("128"), RangeException);
  EXPECT_THROW(strepToValue<std::int8_t>("-129"), RangeException);
  EXPECT_THROW(strepToValue<std::int64_t>("9223372036854775808"), RangeException);
  EXPECT_THROW(strepToValue<std::int64_t>("-9223372036854775809"), RangeException);
}

TEST(Strep, ReadsEachIntegerFromOneSpellingOnly) {
  for (char const* bad : {"", "-", "+1", "-1", " 1", "1 ", "01", "00", "0x1", "1.0", "one"}) {
    EXPECT_THROW(strepToValue<U32>(bad), RangeException) << bad;
  }
  for (char const* bad : {"-0", "--1", "-01", "-", "+1"}) {
    EXPECT_THROW(strepToValue<std::int32_t>(bad), RangeException) << bad;
  }
}

TEST(Strep, QuotesAndEscapesTexts) {
  EXPECT_EQ(Kiv::quotedToStrep(""), "''");
  EXPECT_EQ(Kiv::quotedToStrep("Ethernet1"), "'Ethernet1'");
  EXPECT_EQ(Kiv::quotedToStrep("a'b\\c"), R"('a\'b\\c')");
  EXPECT_EQ(Kiv::quotedToStrep({"\0\n\x7f\x80\xff ~", 7}), R"('\x00\x0a\x7f\x80\xff ~')");
}

TEST(Strep, ReadsBackEveryByteInEveryPosition) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      std::string const text = {static_cast<char>(first), static_cast<char>(second)};
      ASSERT_EQ(strepToValue<String>(Kiv::quotedToStrep(text)), text) << first << ' ' << second;
    }
  }
}

TEST(Strep, ReadsBackRandomTexts) {
  constexpr unsigned kSeed = 31;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int run = 0; run < 20'000; ++run) {
    std::string text(random() % 40, '\0');
    for (char& c : text)
      c = random() % 2 != 0 ? static_cast<char>(random()) : "'\\x,{}\n0"[random() % 8];
    ASSERT_EQ(strepToValue<String>(Kiv::quotedToStrep(text)), text);
  }
}

TEST(Strep, ReadsHexEscapesOfEitherCaseAndRawBytes) {
  EXPECT_EQ(strepToValue<String>(R"('\x4a\x4A\x41')"), "JJA");
  EXPECT_EQ(strepToValue<String>("'\n\xc3\xa9'"), "\n\xc3\xa9");
}

TEST(Strep, RefusesMalformedQuotedTexts) {
  for (char const* bad : {"", "'", "abc", "'abc", "abc'", "'a'b'", R"('\)", R"('\')", R"('\n')",
                          R"('\x')", R"('\x1')", R"('\x1g')", R"('\xg1')", R"('\X41')", "\"a\""}) {
    EXPECT_THROW(strepToValue<String>(bad), RangeException) << bad;
  }
}

TEST(Strep, NeedStringConsumesExactlyTheLiteral) {
  String const text("abcdef");
  String::Iterator it = text.begin();
  Kiv::needString(it, text.end(), "abc");
  EXPECT_EQ(it - text.begin(), 3);
}

TEST(Strep, NeedStringNamesWhatWasExpectedAndWhatWasFound) {
  auto const need = [](String const& text) {
    return rangeErrorOf([&] {
      String::Iterator it = text.begin();
      Kiv::needString(it, text.end(), "'ipAddr': ");
    });
  };
  EXPECT_EQ(need("'ipAddr':"), "expected 'ipAddr': , found '\\'ipAddr\\':'");
  EXPECT_EQ(need(""), "expected 'ipAddr': , found the end of the text");
  EXPECT_EQ(need("\n"), "expected 'ipAddr': , found '\\x0a'");
  EXPECT_EQ(need(std::string(1000, 'z')),
            "expected 'ipAddr': , found 'zzzzzzzzzzzzzzzzzzzzzzzz'...");
}

TEST(Strep, RefusesAnythingAfterTheValue) {
  EXPECT_EQ(errorOf<U32>("12x"), "expected the end of the text, found 'x'");
  EXPECT_EQ(errorOf<String>("'a' "), "expected the end of the text, found ' '");
  EXPECT_EQ(errorOf<bool>(String("True\0", 5)), "expected the end of the text, found '\\x00'");
}

TEST(Strep, RaisesAFieldsErrorUnderTheFieldsName) {
  String const text("Maybe");
  EXPECT_EQ(rangeErrorOf([&] {
              String::Iterator it = text.begin();
              (void)Kiv::strepToAttr<bool>(it, text.end(), "selfIp");
            }),
            "selfIp: expected True or False, found 'Maybe'");
}

struct Pair {
  Pair(U32 n, bool f) : number(n), flag(f) {}
  Pair(String::Iterator& it, String::Iterator const& end) {
    Kiv::StrepReader in(it, end, "Test::Pair");
    number = in.field<U32>("number");
    flag = in.field<bool>("flag");
    in.close();
  }
  String valueToStrep() const {
    return Kiv::StrepWriter("Test::Pair").field("number", number).field("flag", flag).close();
  }
  U32 number;
  bool flag;
};

struct Outer {
  Outer(String::Iterator& it, String::Iterator const& end) {
    Kiv::StrepReader in(it, end, "Test::Outer");
    pair = in.field<Pair>("pair");
    in.close();
  }
  Pair pair{0, false};
};

TEST(StrepRecord, WritesAndReadsNamedFields) {
  String const strep = valueToStrep(Pair(7, true));
  EXPECT_EQ(strep, "Value('Test::Pair', ** {'number': 7, 'flag': True})");
  Pair const pair = strepToValue<Pair>(strep);
  EXPECT_EQ(pair.number, 7u);
  EXPECT_TRUE(pair.flag);
}

TEST(StrepRecord, NamesTheLiteralThatIsMissing) {
  EXPECT_EQ(errorOf<Pair>("Value('Test::Pear', ** {'number': 7, 'flag': True})"),
            "expected Value('Test::Pair', ** {, found 'Value(\\'Test::Pear\\', ** {'...");
  EXPECT_EQ(errorOf<Pair>("Value('Test::Pair', ** {'numbr': 7, 'flag': True})"),
            "expected 'number': , found '\\'numbr\\': 7, \\'flag\\': True'...");
  EXPECT_EQ(errorOf<Pair>("Value('Test::Pair', ** {'number': 7,'flag': True})"),
            "expected , 'flag': , found ',\\'flag\\': True})'");
  EXPECT_EQ(errorOf<Pair>("Value('Test::Pair', ** {'number': 7, 'flag': True}"),
            "expected }), found '}'");
}

TEST(StrepRecord, NamesTheFieldThatDoesNotParse) {
  EXPECT_EQ(errorOf<Pair>("Value('Test::Pair', ** {'number': -7, 'flag': True})"),
            "number: expected a number, found '-7, \\'flag\\': True})'");
  EXPECT_EQ(errorOf<Pair>("Value('Test::Pair', ** {'number': 7, 'flag': 1})"),
            "flag: expected True or False, found '1})'");
}

TEST(StrepRecord, NamesThePathToAFieldOfAField) {
  EXPECT_THAT(errorOf<Outer>("Value('Test::Outer', ** {'pair': Value('Test::Pair', ** "
                             "{'number': 7, 'flag': 1})})"),
              StartsWith("pair: flag: expected True or False"));
}

TEST(Strep, RefusesLongMalformedTexts) {
  constexpr size_t kSize = 4'000'000;
  for (char const filler : {'\'', '\\', '0', '1', 'T', '{', '(', '\0'}) {
    std::string const text(kSize, filler);
    EXPECT_THROW(strepToValue<U64>(text), RangeException);
    EXPECT_THROW(strepToValue<bool>(text), RangeException);
    EXPECT_THROW(strepToValue<String>(text), RangeException);
    EXPECT_THROW(strepToValue<String>("'x" + text), RangeException);
    EXPECT_THROW(strepToValue<Pair>(text), RangeException);
  }
}

TEST(StreamPlain, EscapesOnlyTextsWithControlBytes) {
  std::ostringstream stream;
  Kiv::streamPlain(stream, "Ethernet1/1'\xc3\xa9");
  stream << '|';
  Kiv::streamPlain(stream, "a\nb\\");
  EXPECT_EQ(stream.str(), "Ethernet1/1'\xc3\xa9|a\\x0ab\\\\");
}

}  // namespace
