// SPDX-License-Identifier: Apache-2.0
#include "host/language/JsonText.h"

#include <gtest/gtest.h>
#include <set>
#include <string>

namespace {

using Host::jsonText;
using Host::parsedJson;
using nlohmann::json;

std::set<std::string> const kNames = {
    "plain", "\xff", "\xc3\xbf", "\xef\xbf\xbd", "\xf4\x8f\xbf\xbf", "cut \xe2\x82"};

TEST(JsonText, KeepsKeysThatDifferApartWhateverBytesTheyHold) {
  json byName = json::object();
  for (std::string const& name : kNames) byName[name] = {{"names", {name, 7, nullptr}}};
  std::string const text = jsonText(byName);
  EXPECT_EQ(json::parse(text).size(), kNames.size());
  EXPECT_EQ(parsedJson(text), byName);
}

TEST(JsonText, WritesAByteThatIsNoUtf8AsACodePoint) {
  EXPECT_EQ(jsonText("\xff"), "\"\xf4\x8f\xbf\xbf\"");
  EXPECT_EQ(jsonText({{"gr\xc3\xbcn", {true, 1.5}}}), "{\"gr\xc3\xbcn\":[true,1.5]}");
  EXPECT_EQ(parsedJson("\"\\udbff\\udfff\""), json("\xff"));
}

TEST(JsonText, ReadsWhatIsNoJsonAsDiscarded) {
  EXPECT_TRUE(parsedJson("{").is_discarded());
  EXPECT_TRUE(parsedJson("\"\xff\"").is_discarded());
}

}  // namespace
