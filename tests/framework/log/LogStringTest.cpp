// SPDX-License-Identifier: Apache-2.0
#include "framework/log/LogString.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

namespace {

using Kiv::fillFormat;
using Kiv::LogString;
using Kiv::Impl::logArgsHash;
using ::testing::AllOf;
using ::testing::HasSubstr;

LogString args(std::vector<std::string> const& texts) {
  LogString made;
  for (size_t i = 0; i < texts.size(); ++i) made.strIs(i, texts[i]);
  return made;
}

TEST(FillFormat, PutsArgumentsInOrder) {
  EXPECT_EQ(fillFormat("VRF: %s source IP: %s.", args({"red", "10.0.0.1"})),
            "VRF: red source IP: 10.0.0.1.");
  EXPECT_EQ(fillFormat("%s%s", args({"a", "b"})), "ab");
  EXPECT_EQ(fillFormat("nothing", {}), "nothing");
  EXPECT_EQ(fillFormat("", args({"a"})), "");
}

TEST(FillFormat, NeverReadsAnArgumentAsAFormat) {
  EXPECT_EQ(fillFormat("a %s b %s c", args({"%s%n%d", "%%"})), "a %s%n%d b %% c");
}

TEST(FillFormat, PutsAnArgumentInThePlaceOfEveryConversion) {
  EXPECT_EQ(fillFormat("%d of %u, %-08.3lx: %s", args({"1", "2", "3", "4"})), "1 of 2, 3: 4");
  EXPECT_EQ(fillFormat("%c%hhu%.2f%p", args({"a", "b", "c", "d"})), "abcd");
  EXPECT_EQ(fillFormat("%d", {}), "<missing>");
}

TEST(FillFormat, KeepsWhatIsNoConversion) {
  EXPECT_EQ(fillFormat("100% done, %n %5 %-", args({"x"})), "100% done, %n %5 %-");
}

TEST(FillFormat, TakesTwoPerCentSignsForOneAndKeepsOthers) {
  EXPECT_EQ(fillFormat("100%% of %y at %", args({"x"})), "100% of %y at %");
  EXPECT_EQ(fillFormat("%%s", args({"x"})), "%s");
}

TEST(FillFormat, MarksAMissingArgument) {
  EXPECT_EQ(fillFormat("%s and %s", args({"one"})), "one and <missing>");
}

TEST(FillFormat, EscapesControlBytesSoThatAMessageStaysOneLine) {
  std::string const filled = fillFormat("VRF %s", args({"a\nwarning: FORGED"}));
  EXPECT_THAT(filled, AllOf(HasSubstr("FORGED"), ::testing::Not(HasSubstr("\n"))));
}

TEST(LogString, FillsTheGapBeforeAnArgumentWithEmptyTexts) {
  LogString string;
  string.strIs(2, "c");
  EXPECT_EQ(string.size(), 3U);
  EXPECT_EQ(string.str(0), "");
  EXPECT_EQ(string.str(2), "c");
  EXPECT_EQ(string.str(3), "");
}

TEST(LogArgsHash, DependsOnEveryArgumentItsBoundsAndTheSeed) {
  std::set<Kiv::U64> const hashes = {
      logArgsHash(args({"ab", "c"}), 1), logArgsHash(args({"a", "bc"}), 1),
      logArgsHash(args({"abc"}), 1),     logArgsHash(args({"ab", "c", ""}), 1),
      logArgsHash(args({"c", "ab"}), 1), logArgsHash(args({"ab", "c"}), 2),
      logArgsHash(args({}), 1),          logArgsHash(args({""}), 1),
      logArgsHash(args({}), 0),          logArgsHash(args({""}), 0)};
  EXPECT_EQ(hashes.size(), 10U);
  EXPECT_EQ(logArgsHash(args({"ab", "c"}), 1), logArgsHash(args({"ab", "c"}), 1));
}

TEST(LogStringDeathTest, RefusesAnIndexOutOfRange) {
  LogString string;
  EXPECT_DEATH(string.strIs(LogString::kMaxArgs, "x"),
               AllOf(HasSubstr("Failed(index < kMaxArgs) log argument 32"),
                     HasSubstr("\"index < kMaxArgs\" == nullptr")));
}

}  // namespace
