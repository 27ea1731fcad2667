// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/ArgTraits.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>

#include "framework/core/String.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IntfId.h"
#include "framework/values/VrfName.h"

namespace BfnTest {

/// A value with a way of its own to travel: as its square.
struct Squared {
  Kiv::U32 root;
};

}  // namespace BfnTest

template <>
struct Ringlog::ArgTraits<BfnTest::Squared> {
  static constexpr U32 kMaxWords = 1;
  static void put(Message& message, BfnTest::Squared const& value) noexcept {
    message.word(U64{value.root} * value.root);
  }
  static void render(std::ostream& stream, WordReader& words) { stream << words.word(); }
};

namespace {

using Kiv::U64;
using Ringlog::ArgTraits;

/// Writes the value into a record and reads it back.
template <class T>
std::string roundTrip(T const& value) {
  static U64 words[Ringlog::RingBuf::kMinWords];
  static Ringlog::RingBuf ring(words);
  static Ringlog::TraceFile const& file = Ringlog::TraceFile::create("ArgTraitsTest");
  Ringlog::Message message = ring.startMsg(file, 1);
  ArgTraits<T>::put(message, value);
  ring.endMsg(message);
  std::ostringstream text;
  Ringlog::WordReader reader = message.arguments();
  ArgTraits<T>::render(text, reader);
  return text.str();
}

TEST(ArgTraits, CarryNumbers) {
  EXPECT_EQ(roundTrip(std::numeric_limits<U64>::max()), "18446744073709551615");
  EXPECT_EQ(roundTrip(-5), "-5");
  EXPECT_EQ(roundTrip(Kiv::U16{65535}), "65535");
  EXPECT_EQ(roundTrip(1.5), "1.5");
  EXPECT_EQ(roundTrip(true), "1");
}

TEST(ArgTraits, ShowBytesAsNumbers) {
  EXPECT_EQ(roundTrip(Kiv::U8{65}), "65");
  EXPECT_EQ(roundTrip('A'), "65");
  EXPECT_EQ(roundTrip(static_cast<signed char>(-1)), "-1");
}

TEST(ArgTraits, CarryTextsOfEveryLength) {
  std::string text;
  for (size_t length = 0; length <= Ringlog::kMaxArgBytes; ++length) {
    ASSERT_EQ(roundTrip(text), text);
    ASSERT_EQ(roundTrip(std::string_view(text)), text);
    text += static_cast<char>('a' + length % 26);
  }
}

TEST(ArgTraits, CutALongTextAndSayHowLongItWas) {
  std::string const kept(200, 'x');
  EXPECT_EQ(roundTrip(std::string(201, 'x')), kept + "...[201 bytes]");
  EXPECT_EQ(roundTrip(std::string(100000, 'x')), kept + "...[100000 bytes]");
}

TEST(ArgTraits, EscapeControlBytesSoThatALineStaysOne) {
  std::string const shown = roundTrip(std::string("a\nb"));
  EXPECT_THAT(shown, ::testing::Not(::testing::HasSubstr("\n")));
}

TEST(ArgTraits, CarryCStrings) {
  EXPECT_EQ(roundTrip<char const*>("text"), "text");
  EXPECT_EQ(roundTrip<char const*>(nullptr), "(null)");
}

TEST(ArgTraits, CarryCountedStrings) {
  EXPECT_EQ(roundTrip(Kiv::String("counted")), "counted");
  EXPECT_EQ(roundTrip(Kiv::String()), "");
}

TEST(ArgTraits, CarryNetworkValues) {
  EXPECT_EQ(roundTrip(Ovra::IntfId("Ethernet1")), "Ethernet1");
  EXPECT_EQ(roundTrip(L3::VrfName("red")), "red");
  EXPECT_EQ(roundTrip(Ovra::IntfId()), "");
  Ovra::EthAddr const mac({0x00, 0x11, 0x22, 0x33, 0x44, 0xff});
  std::ostringstream text;
  text << mac;
  EXPECT_EQ(roundTrip(mac), text.str());
}

template <class T>
constexpr bool refused = !Ringlog::TraceArg<T>;

// Compiled is passed: what a trace refuses, it refuses at compile time.
TEST(ArgTraits, RefuseRawPointersThatAreNoTexts) {
  struct Member {
    int number;
  };
  static_assert(refused<int*> && refused<void const*> && refused<Kiv::U8*>);
  static_assert(refused<Member*> && refused<int Member::*> && refused<void (*)()>);
  static_assert(refused<std::nullptr_t> && refused<char volatile*> && refused<wchar_t const*>);
  static_assert(Ringlog::TraceArg<char const*> && Ringlog::TraceArg<char*>);
  static_assert(Ringlog::TraceArg<int> && Ringlog::TraceArg<Ovra::IntfId>);
}

TEST(ArgTraits, CanBeGivenForAType) {
  EXPECT_EQ(roundTrip(BfnTest::Squared{12}), "144");
}

TEST(ArgTraits, TakeNoMoreWordsThanTheySay) {
  static_assert(ArgTraits<std::string>::kMaxWords == 26);
  static_assert(ArgTraits<Kiv::U8>::kMaxWords == 1);
  static_assert(ArgTraits<Ovra::EthAddr>::kMaxWords == 1);
  EXPECT_EQ(ArgTraits<U64>::kMaxWords, 1U);
}

}  // namespace
