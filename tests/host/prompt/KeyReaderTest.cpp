// SPDX-License-Identifier: Apache-2.0
#include "host/prompt/KeyReader.h"

#include <array>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

using Result = Host::KeyReader::Result;

class KeyReaderTest : public ::testing::Test {
 protected:
  static std::array<int, 2> newPipe() {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    return ends;
  }
  ~KeyReaderTest() override {
    close(ends[0]);
    if (ends[1] >= 0) close(ends[1]);
  }

  /// All characters that the bytes are read as; those that were pasted in brackets.
  std::u32string read(std::string_view bytes) {
    EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(ends[1]);
    ends[1] = -1;
    std::u32string all;
    bool pasted = false;
    for (wchar_t c = 0; keys.next(c) == Result::Character;) {
      if (keys.pasted() != pasted) all += pasted ? U']' : U'[';
      pasted = keys.pasted();
      all += static_cast<char32_t>(c);
    }
    return pasted ? all + U']' : all;
  }

  std::array<int, 2> ends = newPipe();
  bool interrupted = false;
  Host::KeyReader keys{ends[0], {[this] { return interrupted; }, [] {}, [this] { return due(); }}};
  std::function<std::optional<double>()> due = [] { return std::nullopt; };
};

TEST_F(KeyReaderTest, CharactersOfEveryLengthAreRead) {
  EXPECT_EQ(read("a\xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80\r"), U"a\u00fc\u20ac\U0001f600\r");
  EXPECT_FALSE(keys.takeDamaged());
}

TEST_F(KeyReaderTest, BytesThatAreNoCharacterAreLeftOutAndRemembered) {
  for (auto const* const bytes : {"a\xffz", "a\xc3z", "a\xc0\x80z", "a\xed\xa0\x80z",
                                  "a\xf4\x90\x80\x80z", "a\x80z", "az\xe2\x82"}) {
    auto const pipeEnds = newPipe();
    std::string_view const text(bytes);
    ASSERT_EQ(write(pipeEnds[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(pipeEnds[1]);
    Host::KeyReader reader(pipeEnds[0], {[] { return false; }, [] {}, [] { return std::nullopt; }});
    std::u32string all;
    for (wchar_t c = 0; reader.next(c) == Result::Character;) all += static_cast<char32_t>(c);
    EXPECT_EQ(all, U"az") << testing::PrintToString(text);
    EXPECT_TRUE(reader.takeDamaged()) << testing::PrintToString(text);
    EXPECT_FALSE(reader.takeDamaged());
    close(pipeEnds[0]);
  }
}

TEST_F(KeyReaderTest, APastedBlockIsReadAsAWholeAndItsLineEndsAreLineFeeds) {
  EXPECT_EQ(read("x\x1b[200~a?\tb\rc\x1b[A\x1b[201~y"), U"x[a? b\nc[A]y");
  EXPECT_TRUE(keys.takeDamaged());
}

TEST_F(KeyReaderTest, OtherEscapeSequencesAreLeftToTheEditor) {
  EXPECT_EQ(read("\x1b[A\x1b[2~\x1b"), U"\x1b[A\x1b[2~\x1b");
}

TEST_F(KeyReaderTest, WhatIsLeftOfAPastedBlockCanBeDropped) {
  std::string_view const bytes = "\x1b[200~one\rtwo\x1b[201~z";
  ASSERT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  wchar_t c = 0;
  ASSERT_EQ(keys.next(c), Result::Character);
  EXPECT_EQ(c, L'o');
  keys.dropPasted();
  ASSERT_EQ(keys.next(c), Result::Character);
  EXPECT_EQ(c, L'z');
  EXPECT_FALSE(keys.pasted());
}

TEST_F(KeyReaderTest, AnInterruptEndsTheWaitBeforeAnythingIsRead) {
  ASSERT_EQ(write(ends[1], "a", 1), 1);
  interrupted = true;
  wchar_t c = 0;
  EXPECT_EQ(keys.next(c), Result::Interrupted);
  interrupted = false;
  EXPECT_EQ(keys.next(c), Result::Character);
  EXPECT_EQ(c, L'a');
}

TEST_F(KeyReaderTest, WhatIsDueIsDoneWhileNoKeyComes) {
  int calls = 0;
  due = [&]() -> std::optional<double> {
    if (++calls == 3) {
      EXPECT_EQ(write(ends[1], "x", 1), 1);
    }
    return 0.001;
  };
  wchar_t character = 0;
  EXPECT_EQ(keys.next(character), Result::Character);
  EXPECT_EQ(character, L'x');
  EXPECT_EQ(calls, 3);
}

}  // namespace
