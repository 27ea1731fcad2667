// SPDX-License-Identifier: Apache-2.0
#include <cwchar>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

#include "framework/core/Format.h"
#include "framework/core/Name.h"

namespace {

TEST(Format, RendersAsPrintfDoes) {
  EXPECT_EQ(Kiv::format("%s %u %02x", "abc", 7u, 10u), "abc 7 0a");
  EXPECT_EQ(Kiv::format("%s", ""), "");
}

TEST(Format, KeepsAnyLength) {
  for (size_t const size : {254u, 255u, 256u, 257u, 100'000u}) {
    std::string const text(size, 'x');
    EXPECT_EQ(Kiv::format("%s", text.c_str()), text) << size;
    EXPECT_EQ(Kiv::format("%s%d", text.c_str(), 5), text + '5') << size;
  }
}

TEST(FormatDeathTest, EndsTheProcessWhenTheFormatCannotBeRendered) {
  auto const unrepresentable = static_cast<std::wint_t>(0x100);
  EXPECT_DEATH(Kiv::format("%lc", unrepresentable), "the format cannot be rendered: %lc");
}

TEST(Name, ComparesWithTextsAndStreams) {
  Kiv::Name const name("config");
  EXPECT_TRUE(name == "config");
  EXPECT_TRUE(name == Kiv::String("config"));
  EXPECT_TRUE(name == Kiv::Name(std::string("config")));
  EXPECT_FALSE(name == "status");
  EXPECT_LT(name, Kiv::Name("status"));
  EXPECT_EQ(name.stdString(), "config");
  EXPECT_STREQ(name.charPtr(), "config");
  std::ostringstream stream;
  stream << name;
  EXPECT_EQ(stream.str(), "config");
}

TEST(Name, IsEmptyByDefault) {
  EXPECT_TRUE(Kiv::Name().empty());
  EXPECT_EQ(Kiv::Name(), "");
}

}  // namespace
