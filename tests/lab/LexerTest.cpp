#include "lab/language/Lexer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lab/language/InputError.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Lexer, WordsStandBetweenBlanks) {
  EXPECT_THAT(Lab::splitWords("  host\tvrf red  \r"), ElementsAre("host", "vrf", "red"));
}

TEST(Lexer, AHashAtTheStartOfAWordBeginsAComment) {
  EXPECT_THAT(Lab::splitWords("# all of it"), IsEmpty());
  EXPECT_THAT(Lab::splitWords("exit # the rest"), ElementsAre("exit"));
  EXPECT_THAT(Lab::splitWords("vrf a#b"), ElementsAre("vrf", "a#b"));
}

TEST(Lexer, AQuotedWordMayHoldAnything) {
  EXPECT_THAT(Lab::splitWords(R"(vrf "a b # \"c\" \\ \x07")"),
              ElementsAre("vrf", "a b # \"c\" \\ \x07"));
  EXPECT_THAT(Lab::splitWords("\"\""), ElementsAre(""));
}

TEST(Lexer, BehindTwoEqualSignsTheRestIsOneWord) {
  EXPECT_THAT(Lab::splitWords(R"(expect dump chip ==  [ {"a": "b # c"} ] )"),
              ElementsAre("expect", "dump", "chip", "==", R"([ {"a": "b # c"} ])"));
  EXPECT_THAT(Lab::splitWords("a == "), ElementsAre("a", "=="));
}

TEST(Lexer, RefusesAnOpenQuoteAndAWrongEscape) {
  EXPECT_THROW(Lab::splitWords("vrf \"a"), Lab::InputError);
  EXPECT_THROW(Lab::splitWords("vrf \"a\"b"), Lab::InputError);
  EXPECT_THROW(Lab::splitWords(R"(vrf "\n")"), Lab::InputError);
  EXPECT_THROW(Lab::splitWords(R"(vrf "\x1")"), Lab::InputError);
  EXPECT_THROW(Lab::splitWords(R"(vrf "\)"), Lab::InputError);
}

TEST(Lexer, AQuotedWordIsReadBackAsItWas) {
  for (std::string const word :
       {"plain", "", "a b", "\"", "#x", "a\\b", "\x01\x7f", "caf\xc3\xa9"}) {
    EXPECT_THAT(Lab::splitWords(Lab::quotedWord(word)), ElementsAre(word));
  }
}

}  // namespace
