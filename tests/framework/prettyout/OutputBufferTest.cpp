// SPDX-License-Identifier: Apache-2.0
#include "framework/prettyout/OutputBuffer.h"

#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <string>

#include "tests/framework/prettyout/Capture.h"
#include "tests/support/Seed.h"

namespace {

using namespace prettyout;

using BfnTest::Capture;

TEST(OutputBuffer, HoldsWhatIsAppendedUntilItIsDrained) {
  Capture capture;
  OutputBuffer buffer(100, capture.sink());
  buffer.append("one ");
  buffer.append("");
  buffer.append("two");
  EXPECT_EQ(buffer.waiting(), 7u);
  EXPECT_EQ(capture.calls, 0u);
  EXPECT_EQ(buffer.drain(), 7u);
  EXPECT_EQ(capture.bytes, "one two");
  EXPECT_EQ(buffer.waiting(), 0u);
  EXPECT_EQ(buffer.taken(), 7u);
}

TEST(OutputBuffer, DrainingNothingDoesNotAskTheSink) {
  Capture capture;
  OutputBuffer buffer(100, capture.sink());
  EXPECT_EQ(buffer.drain(), 0u);
  EXPECT_EQ(capture.calls, 0u);
}

TEST(OutputBuffer, WhatTheSinkRefusesKeepsWaitingInOrder) {
  Capture capture;
  capture.perCall = 3;
  OutputBuffer buffer(100, capture.sink());
  buffer.append("abcdefgh");
  EXPECT_EQ(buffer.drain(), 3u);
  buffer.append("ij");
  EXPECT_EQ(buffer.drain(), 3u);
  EXPECT_EQ(buffer.drain(), 3u);
  EXPECT_EQ(buffer.drain(), 1u);
  EXPECT_EQ(capture.bytes, "abcdefghij");
}

TEST(OutputBuffer, IsFullFromItsLimitOn) {
  Capture capture;
  capture.perCall = 0;
  OutputBuffer buffer(8, capture.sink());
  buffer.append("1234567");
  EXPECT_FALSE(buffer.full());
  buffer.append("8");
  EXPECT_TRUE(buffer.full());
  buffer.append("9");
  EXPECT_TRUE(buffer.full());
  EXPECT_EQ(buffer.waiting(), 9u);
}

TEST(OutputBuffer, AnAppendPastTheLimitOffersWhatWaitsFirst) {
  Capture capture;
  OutputBuffer buffer(8, capture.sink());
  buffer.append("12345678");
  EXPECT_EQ(capture.calls, 0u);
  buffer.append("9");
  EXPECT_EQ(capture.bytes, "12345678");
  EXPECT_EQ(buffer.waiting(), 1u);
  EXPECT_FALSE(buffer.full());
}

TEST(OutputBuffer, StorageStaysBoundedWhileTheSinkTakesEverything) {
  Capture capture;
  OutputBuffer buffer(10000, capture.sink());
  std::string const row(57, 'x');
  for (int i = 0; i < 65536; ++i) buffer.append(row);
  EXPECT_LE(buffer.storage(), 20000u);
  buffer.drain();
  EXPECT_EQ(capture.bytes, std::string(57UL * 65536, 'x'));
}

TEST(OutputBuffer, ARefusingSinkIsAskedPerDoublingAndNotPerAppend) {
  Capture capture;
  capture.perCall = 0;
  OutputBuffer buffer(1000, capture.sink());
  for (int i = 0; i < 100000; ++i) buffer.append("0123456789");
  EXPECT_EQ(buffer.waiting(), 1000000u);
  EXPECT_LE(buffer.storage(), 2100000u);
  EXPECT_LE(capture.calls, 12u);
}

TEST(OutputBuffer, StorageBeyondTheLimitIsReleasedOnceTheSinkHasTakenEverything) {
  Capture capture;
  capture.perCall = 0;
  OutputBuffer buffer(5000, capture.sink());
  for (int i = 0; i < 100000; ++i) buffer.append("0123456789");
  capture.perCall = std::string_view::npos;
  EXPECT_EQ(buffer.drain(), 1000000u);
  EXPECT_EQ(buffer.storage(), 0u);
  buffer.append("again");
  buffer.drain();
  EXPECT_EQ(capture.bytes.substr(999995), "56789again");
}

TEST(OutputBuffer, ALimitChangeCountsFromTheNextAppend) {
  Capture capture;
  OutputBuffer buffer(1000, capture.sink());
  buffer.append("0123456789");
  EXPECT_FALSE(buffer.full());
  buffer.limitIs(10);
  EXPECT_TRUE(buffer.full());
  buffer.append("a");
  EXPECT_EQ(capture.bytes, "0123456789");
  buffer.limitIs(100);
  buffer.append("b");
  EXPECT_EQ(buffer.waiting(), 2u);
  EXPECT_EQ(capture.calls, 1u);
}

TEST(OutputBuffer, AnExceptionFromTheSinkLosesNothing) {
  std::string taken;
  bool broken = true;
  OutputBuffer buffer(8, [&](std::string_view offered) {
    if (broken) throw std::runtime_error("gone");
    taken += offered;
    return offered.size();
  });
  buffer.append("1234");
  EXPECT_THROW(buffer.drain(), std::runtime_error);
  EXPECT_THROW(buffer.append("56789"), std::runtime_error);
  EXPECT_EQ(buffer.waiting(), 4u);
  broken = false;
  buffer.append("56789");
  buffer.drain();
  EXPECT_EQ(taken, "123456789");
}

TEST(OutputBuffer, BytesArriveInOrderWhateverTheSinkTakes) {
  unsigned const seed = BfnTest::testSeed(std::random_device{}());
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::string taken;
  std::string expected;
  OutputBuffer buffer(500, [&](std::string_view offered) {
    size_t const size = random() % 3 == 0 ? 0 : random() % (offered.size() + 1);
    taken += offered.substr(0, size);
    return size;
  });
  for (int step = 0; step < 200000; ++step) {
    switch (random() % 16) {
      case 0:
        buffer.drain();
        break;
      case 1:
        buffer.limitIs(1 + random() % 6000);
        break;
      default:
        std::string const piece(random() % (random() % 64 == 0 ? 9000 : 40),
                                static_cast<char>('a' + step % 26));
        buffer.append(piece);
        expected += piece;
        break;
    }
    ASSERT_EQ(taken.size() + buffer.waiting(), expected.size());
  }
  while (buffer.waiting() > 0) buffer.drain();
  EXPECT_TRUE(taken == expected);
}

TEST(OutputBufferDeathTest, ASinkThatTakesMoreThanItWasOfferedIsFatal) {
  OutputBuffer buffer(8, [](std::string_view offered) { return offered.size() + 1; });
  buffer.append("ab");
  EXPECT_DEATH(buffer.drain(), "the sink took 3 of 2 bytes");
}

TEST(OutputBufferDeathTest, ALimitOfNothingIsFatal) {
  EXPECT_DEATH(OutputBuffer(0, [](std::string_view) { return size_t{0}; }), "limit > 0");
}

}  // namespace
