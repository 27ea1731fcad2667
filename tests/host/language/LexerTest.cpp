// SPDX-License-Identifier: Apache-2.0
#include "host/language/Lexer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/language/InputError.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Lexer, WordsStandBetweenBlanks) {
  EXPECT_THAT(Host::splitWords("  host\tvrf red  \r"), ElementsAre("host", "vrf", "red"));
}

TEST(Lexer, AHashAtTheStartOfAWordBeginsAComment) {
  EXPECT_THAT(Host::splitWords("# all of it"), IsEmpty());
  EXPECT_THAT(Host::splitWords("exit # the rest"), ElementsAre("exit"));
  EXPECT_THAT(Host::splitWords("vrf a#b"), ElementsAre("vrf", "a#b"));
}

TEST(Lexer, AQuotedWordMayHoldAnything) {
  EXPECT_THAT(Host::splitWords(R"(vrf "a b # \"c\" \\ \x07")"),
              ElementsAre("vrf", "a b # \"c\" \\ \x07"));
  EXPECT_THAT(Host::splitWords("\"\""), ElementsAre(""));
}

TEST(Lexer, AfterTwoEqualSignsTheRestIsOneWord) {
  EXPECT_THAT(Host::splitWords(R"(expect dump chip ==  [ {"a": "b # c"} ] )"),
              ElementsAre("expect", "dump", "chip", "==", R"([ {"a": "b # c"} ])"));
  EXPECT_THAT(Host::splitWords("a == "), ElementsAre("a", "=="));
}

TEST(Lexer, RefusesAnOpenQuoteAndAWrongEscape) {
  EXPECT_THROW(Host::splitWords("vrf \"a"), Host::InputError);
  EXPECT_THROW(Host::splitWords("vrf \"a\"b"), Host::InputError);
  EXPECT_THROW(Host::splitWords(R"(vrf "\n")"), Host::InputError);
  EXPECT_THROW(Host::splitWords(R"(vrf "\x1")"), Host::InputError);
  EXPECT_THROW(Host::splitWords(R"(vrf "\)"), Host::InputError);
}

TEST(Lexer, AQuotedWordIsReadBackAsItWas) {
  for (std::string const word :
       {"plain", "==", "", "a b", "\"", "#x", "a\\b", "\x01\x7f", "caf\xc3\xa9"}) {
    EXPECT_THAT(Host::splitWords(Host::quotedWord(word)), ElementsAre(word));
  }
}

TEST(Lexer, AnExcerptHasSixtyCharactersAndSaysThatThereIsMore) {
  EXPECT_EQ(Host::excerpt(std::string(60, 'x')), std::string(60, 'x'));
  EXPECT_EQ(Host::excerpt(std::string(61, 'x')), std::string(60, 'x') + "...");
  std::string umlauts;
  for (int i = 0; i < 61; ++i) umlauts += "\xc3\xbc";
  EXPECT_EQ(Host::excerpt(umlauts), Host::quotedWord(umlauts.substr(0, 120)) + "...");
  EXPECT_EQ(Host::excerpt(std::string(300, '\x80')).size(), 60u * 4 + 5);
  EXPECT_EQ(Host::excerpt("a b"), "\"a b\"");
}

TEST(LexerTest, ALineOfWordsIsReadBackAsTheWords) {
  for (std::string const line : {"print \"a b\" z\xc3\xbcrich \"\"",
                                 "expect dump chip == [1, \"x\"]", "print \"#\" \"a\\x01\""}) {
    auto const words = Host::splitWords(line);
    EXPECT_EQ(Host::lineOf(words), line);
    EXPECT_EQ(Host::splitWords(Host::lineOf(words)), words);
  }
}

}  // namespace
