// SPDX-License-Identifier: Apache-2.0
#include "framework/core/String.h"

#include <gtest/gtest.h>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <thread>
#include <type_traits>

#include "framework/core/Hash.h"
#include "framework/core/PtrInterface.h"
#include "tests/support/AllocationCount.h"

namespace {

using Kiv::String;

static_assert(sizeof(String) == sizeof(void*));
static_assert(std::contiguous_iterator<String::Iterator>);
static_assert(!std::is_constructible_v<String, std::nullptr_t>);
static_assert(std::is_nothrow_move_constructible_v<String>);

template <class Work>
size_t blocksLeftBy(Work work) {
  size_t const before = BfnTest::liveAllocations();
  auto const kept = work();
  size_t const after = BfnTest::liveAllocations();
  (void)kept;
  return after - before;
}

TEST(String, EmptyStringAllocatesNothing) {
  EXPECT_EQ(blocksLeftBy([] { return String(); }), 0u);
  EXPECT_EQ(blocksLeftBy([] { return String(""); }), 0u);
  EXPECT_EQ(blocksLeftBy([] { return String("abc", 0); }), 0u);
  EXPECT_EQ(blocksLeftBy([] { return String("abc"); }), 1u);
  EXPECT_STREQ(String().charPtr(), "");
  EXPECT_TRUE(String("").empty());
}

TEST(String, CopiesShareOneBlockThatTheLastOneFrees) {
  size_t const before = BfnTest::liveAllocations();
  {
    String a("a text of some length");
    String b = a;
    String c;
    c = b;
    EXPECT_EQ(BfnTest::liveAllocations(), before + 1);
    EXPECT_EQ(a.charPtr(), c.charPtr());
    a = String();
    b = a;
    EXPECT_EQ(BfnTest::liveAllocations(), before + 1);
    EXPECT_EQ(c, "a text of some length");
  }
  EXPECT_EQ(BfnTest::liveAllocations(), before);
}

TEST(String, ThreadsMayCopyOneStringWhileCountingIsAtomic) {
  size_t const before = BfnTest::liveAllocations();
  Kiv::VFPtrInterface::threadSafePointers_ = true;
  {
    String const shared("shared text");
    auto const copyOften = [shared] {
      String copy;
      for (int i = 0; i < 200'000; ++i) {
        copy = shared;
        copy = String();
      }
    };
    std::thread other(copyOften);
    copyOften();
    other.join();
    EXPECT_EQ(shared, "shared text");
  }
  Kiv::VFPtrInterface::threadSafePointers_ = false;
  EXPECT_EQ(BfnTest::liveAllocations(), before);
}

TEST(StringDeathTest, NullIsFatalInDebugBuilds) {
  if (!Kiv::kDebugBuild) GTEST_SKIP() << "debug builds check it";
  char const* const null = nullptr;
  EXPECT_DEATH((void)String(null), "^Failed\\(text != nullptr\\) a Kiv::String of null");
}

TEST(String, SurvivesAssignmentToItself) {
  String a("abc");
  String const& same = a;
  a = same;
  EXPECT_EQ(a, "abc");
  a = std::move(const_cast<String&>(same));
  EXPECT_EQ(a, "abc");
}

TEST(String, IsEmptyAfterAMove) {
  String a("abc");
  String const b = std::move(a);
  EXPECT_EQ(b, "abc");
  EXPECT_TRUE(a.empty());  // NOLINT(bugprone-use-after-move): the contract
}

TEST(String, KeepsEmbeddedNulFromPointerAndLength) {
  String const s("a\0b", 3);
  EXPECT_EQ(s.size(), 3u);
  EXPECT_EQ(s.length(), 3u);
  EXPECT_EQ(s.stdString(), std::string("a\0b", 3));
  EXPECT_NE(s, "a");
  EXPECT_EQ(s.charPtr()[3], '\0');
}

TEST(String, EqualsTextsOfEveryKind) {
  String const s("abc");
  EXPECT_TRUE(s == "abc");
  EXPECT_TRUE("abc" == s);
  EXPECT_TRUE(s == std::string("abc"));
  EXPECT_TRUE(s == std::string_view("abc"));
  EXPECT_TRUE(s == String("abc"));
  EXPECT_FALSE(s == "abd");
  EXPECT_TRUE(s != "ab");
}

TEST(String, OrdersByBytesAsUnsigned) {
  EXPECT_LT(String("a"), String("b"));
  EXPECT_LT(String(), String("a"));
  EXPECT_LT(String("a"), "ab");
  EXPECT_LT(String("a"), String("\xff"));
  EXPECT_GT(String("a\0b", 3), String("a"));
}

TEST(String, IteratesOverItsBytes) {
  String const s("a\0b", 3);
  EXPECT_EQ(std::string(s.begin(), s.end()), s.stdString());
  EXPECT_EQ(s.end() - s.begin(), 3);
  EXPECT_EQ(s.begin()[2], 'b');
  EXPECT_TRUE(String().begin() == String().end());
}

TEST(String, StreamsAllItsBytesAndHonoursTheWidth) {
  std::ostringstream stream;
  stream << String("a\0b", 3) << '|' << std::setw(5) << String("xy") << '|';
  EXPECT_EQ(stream.str(), std::string("a\0b|   xy|", 10));
}

TEST(String, HashesItsBytes) {
  EXPECT_EQ(String("Ethernet1").hash(), String("Ethernet1").hash());
  EXPECT_NE(String("Ethernet1").hash(), String("Ethernet2").hash());
  EXPECT_NE(String("a\0", 2).hash(), String("a").hash());
  EXPECT_EQ(String().hash(), Kiv::hashText(""));
}

TEST(String, HoldsAMillionBytes) {
  std::string const text(1'000'000, 'x');
  String const s(text);
  EXPECT_EQ(s.size(), text.size());
  EXPECT_EQ(s, text);
}

}  // namespace
