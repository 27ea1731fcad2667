// SPDX-License-Identifier: Apache-2.0
#include "framework/values/Interned.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "framework/values/IntfId.h"
#include "framework/values/PortVlanPair.h"
#include "framework/values/VrfName.h"
#include "tests/framework/values/InternedPeer.h"
#include "tests/support/AllocationCount.h"

namespace {

using Kiv::InternPool;
using Kiv::RangeException;
using L3::VrfName;
using Ovra::IntfId;

// Made before main(), when nothing says that the pool's own library has started.
IntfId const madeBeforeMain("Management1");

TEST(Interned, EqualTextsAreOneHandle) {
  EXPECT_EQ(IntfId("Ethernet1"), IntfId(std::string("Ethernet1")));
  EXPECT_EQ(IntfId("Ethernet1").charPtr(), IntfId("Ethernet1").charPtr());
  EXPECT_NE(IntfId("Ethernet1"), IntfId("Ethernet2"));
  EXPECT_NE(IntfId(std::string_view("a\0", 2)), IntfId("a"));
}

TEST(Interned, AddsATextToThePoolOnce) {
  IntfId const first("Ethernet99/1");
  auto const population = InternPool::population();
  EXPECT_EQ(IntfId("Ethernet99/1"), first);
  EXPECT_EQ(VrfName("Ethernet99/1").charPtr(), first.charPtr());
  EXPECT_EQ(InternPool::population(), population);
  (void)IntfId("Ethernet99/2");
  EXPECT_EQ(InternPool::population(), population + 1);
}

TEST(Interned, EmptyTextIsTheDefault) {
  EXPECT_EQ(IntfId(""), IntfId());
  EXPECT_FALSE(IntfId());
  EXPECT_FALSE(IntfId(""));
  EXPECT_TRUE(IntfId("Ethernet1"));
  EXPECT_STREQ(IntfId().charPtr(), "");
  EXPECT_EQ(IntfId().hash(), Kiv::hashText(""));
}

TEST(Interned, IdsMadeBeforeMainAreOrdinaryIds) {
  EXPECT_EQ(madeBeforeMain, IntfId("Management1"));
}

TEST(Interned, HandlesMeanTheSameInEverySharedLibrary) {
  EXPECT_EQ(BfnTest::intfId("Ethernet3"), IntfId("Ethernet3"));
  EXPECT_EQ(BfnTest::intfId("Vlan12").view(), "Vlan12");
  EXPECT_EQ(BfnTest::textOf(IntfId("Port-Channel4")), "Port-Channel4");
}

TEST(Interned, HashIsThatOfTheText) {
  EXPECT_EQ(IntfId("Ethernet1").hash(), Kiv::hashText("Ethernet1"));
  EXPECT_EQ(VrfName("red").hash(), Kiv::hashText("red"));
  EXPECT_EQ(Kiv::hashSingleAttr(5u, IntfId("Ethernet1")),
            Kiv::Hash(5).hashMix(Kiv::hashText("Ethernet1")).result());
}

TEST(Interned, OrdersByTextWhateverTheOrderOfArrival) {
  IntfId const late("order-b");
  IntfId const early("order-a");
  EXPECT_LT(early, late);
  EXPECT_LT(IntfId(), early);
  EXPECT_LT(IntfId("Ethernet10"), IntfId("Ethernet2"));
  EXPECT_LT(VrfName("a"), VrfName("\xff"));
}

TEST(Interned, TextsStayWhereTheyAreWhileThePoolGrows) {
  constexpr int kTexts = 100'000;
  std::vector<IntfId> ids;
  std::vector<char const*> places;
  for (int i = 0; i < kTexts; ++i) {
    ids.emplace_back("grow" + std::to_string(i));
    places.push_back(ids.back().charPtr());
  }
  for (int i = 0; i < kTexts; ++i) {
    std::string const text = "grow" + std::to_string(i);
    auto const at = static_cast<size_t>(i);
    ASSERT_EQ(ids[at].charPtr(), places[at]);
    ASSERT_EQ(ids[at].view(), text);
    ASSERT_EQ(ids[at].charPtr()[text.size()], '\0');
    ASSERT_EQ(IntfId(text), ids[at]);
    ASSERT_EQ(ids[at].hash(), Kiv::hashText(text));
  }
}

TEST(Interned, AgreesWithStringsOnRandomTexts) {
  constexpr unsigned kSeed = 8;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  std::vector<std::string> texts;
  for (int i = 0; i < 300; ++i) {
    std::string text(random() % 6, '\0');
    for (char& c : text) c = static_cast<char>(random() % 3 * 100);
    texts.push_back(text);
  }
  for (int i = 0; i < 20'000; ++i) {
    auto const& a = texts[random() % texts.size()];
    auto const& b = texts[random() % texts.size()];
    ASSERT_EQ(IntfId(a) == IntfId(b), a == b);
    ASSERT_EQ(IntfId(a) <=> IntfId(b), a <=> b);
    ASSERT_EQ(IntfId(a).stdString(), a);
  }
}

TEST(Interned, KeepsLongTextsUpToTheLimit) {
  for (size_t const size : {1022u, 1023u, 1024u, 1025u, 4096u, 65535u}) {
    std::string const text(size, 'y');
    EXPECT_EQ(IntfId(text).view(), text);
  }
}

template <class Work>
std::string rangeErrorOf(Work work) {
  try {
    work();
  } catch (RangeException const& exception) {
    return exception.what();
  }
  return "no RangeException";
}

TEST(Interned, TextsOfARefusedFormDoNotStay) {
  using Kiv::strepToValue;
  auto const population = InternPool::population();
  for (std::string const& name : {std::string("refused"), std::string(5000, 'r')}) {
    std::string const pair = "Value('Pex::PortVlanPair', ** {'intfId': '" + name + "', 'vlanId': ";
    EXPECT_THROW(strepToValue<Pex::PortVlanPair>(pair + "65536})"), RangeException);
    EXPECT_THROW(strepToValue<Pex::PortVlanPair>(pair + "1}) "), RangeException);
    EXPECT_THROW(strepToValue<Pex::PortVlanPair>(pair + "1]"), RangeException);
    EXPECT_THROW(strepToValue<IntfId>("'" + name + "'x"), RangeException);
    Kiv::String const cut = pair;
    Kiv::String::Iterator it = cut.begin();
    EXPECT_THROW(Pex::PortVlanPair(it, cut.end()), RangeException);
  }
  EXPECT_EQ(InternPool::population(), population);
}

TEST(Interned, RefusedFormsTakeNoMemory) {
  auto const refuse = [](int number, size_t size) {
    std::string const name = std::string(size, 'm') + std::to_string(number);
    EXPECT_THROW(Kiv::strepToValue<IntfId>("'" + name + "'x"), RangeException);
  };
  for (size_t const size : {10u, 900u, 60'000u}) {
    refuse(0, size);
    size_t const live = BfnTest::liveAllocations();
    for (int i = 1; i < 100; ++i) refuse(i, size);
    EXPECT_EQ(BfnTest::liveAllocations(), live) << size;
  }
}

TEST(Interned, TextsAroundARefusedFormStay) {
  IntfId const before("around-before");
  for (int i = 0; i < 300; ++i) {
    EXPECT_THROW(Kiv::strepToValue<IntfId>("'around-refused-" + std::to_string(i) + "'x"),
                 RangeException);
    IntfId const kept("around-" + std::to_string(i));
    EXPECT_THROW(Kiv::strepToValue<IntfId>("'around-" + std::to_string(i) + "'x"), RangeException);
    EXPECT_EQ(kept, IntfId("around-" + std::to_string(i)));
    EXPECT_EQ(kept.view(), "around-" + std::to_string(i));
  }
  EXPECT_EQ(before, IntfId("around-before"));
  EXPECT_EQ(IntfId("around-refused-7").view(), "around-refused-7");
}

TEST(VrfName, Takes100BytesAndRefuses101) {
  EXPECT_EQ(VrfName(std::string(100, 'v')).view().size(), 100u);
  auto const population = InternPool::population();
  EXPECT_EQ(rangeErrorOf([] { (void)VrfName(std::string(101, 'v')); }),
            "VrfName::value::bytes > VrfName::maxLength not allowed");
  EXPECT_EQ(InternPool::population(), population);
}

TEST(VrfName, CountsBytesNotCharacters) {
  std::string eAcute;
  for (int i = 0; i < 51; ++i) eAcute += "\xc3\xa9";
  EXPECT_EQ(rangeErrorOf([&] { (void)VrfName(eAcute); }),
            "VrfName::value::bytes > VrfName::maxLength not allowed");
  EXPECT_NO_THROW(VrfName(eAcute.substr(2)));
}

TEST(VrfName, RefusesAQuotedTextOver100Bytes) {
  EXPECT_EQ(
      rangeErrorOf([] { (void)Kiv::strepToValue<VrfName>("'" + std::string(101, 'v') + "'"); }),
      "VrfName::value::bytes > VrfName::maxLength not allowed");
  EXPECT_EQ(rangeErrorOf([] {
              std::string escaped;
              for (int i = 0; i < 100; ++i) escaped += "\\x00";
              (void)Kiv::strepToValue<VrfName>("'" + escaped + "'");
            }),
            "no RangeException");
}

TEST(IntfId, RefusesATextOver65535Bytes) {
  EXPECT_EQ(rangeErrorOf([] { (void)IntfId(std::string(65536, 'i')); }),
            "IntfId::value::bytes > IntfId::maxLength not allowed");
}

TEST(IntfId, StreamsPlainAndEscapesControlBytes) {
  std::ostringstream stream;
  stream << IntfId("Ethernet1/2.3") << ' ' << IntfId("it's") << ' ' << IntfId("a\nb");
  EXPECT_EQ(stream.str(), "Ethernet1/2.3 it's a\\x0ab");
}

}  // namespace
