// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "framework/core/Exceptions.h"
#include "framework/core/Strep.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IntfId.h"
#include "framework/values/IpAddr.h"
#include "framework/values/PortVlanPair.h"
#include "framework/values/VlanId.h"
#include "framework/values/VrfAndIpAddr.h"
#include "framework/values/VrfId.h"
#include "framework/values/VrfName.h"

namespace {

using Kiv::RangeException;
using Kiv::strepToValue;
using Kiv::String;

TEST(IpAddrParser, RefusesAllButFourDecimalOctets) {
  for (char const* bad : {"",
                          "10",
                          "10.0.0",
                          "10.0.0.",
                          "10.0.0.1.",
                          "10.0.0.1.2",
                          ".10.0.0.1",
                          "10..0.1",
                          "256.0.0.1",
                          "10.0.0.256",
                          "10.0.0.1000",
                          "01.0.0.1",
                          "10.00.0.1",
                          "10.0.0.01",
                          "-1.0.0.1",
                          "+1.0.0.1",
                          "0x0a.0.0.1",
                          " 10.0.0.1",
                          "10.0.0.1 ",
                          "10. 0.0.1",
                          "'10.0.0.1'",
                          "a.b.c.d",
                          "10,0,0,1",
                          "167772161",
                          "99999999999999999999.0.0.1"}) {
    EXPECT_THROW(strepToValue<Ovra::IpAddr>(bad), RangeException) << bad;
  }
}

TEST(EthAddrParser, RefusesAllButSixPairsOfDigits) {
  for (char const* bad :
       {"", "00:00:00:00:00", "00:00:00:00:00:", "00:00:00:00:00:0", "00:00:00:00:00:000",
        "0:0:0:0:0:0", "00-00-00-00-00-00", "0000.0000.0000", "000000000000", "0g:00:00:00:00:00",
        "00:00:00:00:00:00:00", " 00:00:00:00:00:00", "+0:00:00:00:00:00"}) {
    EXPECT_THROW(strepToValue<Ovra::EthAddr>(bad), RangeException) << bad;
  }
}

TEST(RecordParser, NamesTheFieldThatDoesNotParse) {
  try {
    (void)strepToValue<Pex::VrfAndIpAddr>(
        "Value('Pex::VrfAndIpAddr', ** {'vrfId': 7, 'ipAddr': 10.0.0.999})");
    FAIL();
  } catch (RangeException const& exception) {
    EXPECT_STREQ(exception.what(), "ipAddr: expected a number not above 255, found '999})'");
  }
  try {
    (void)strepToValue<Pex::PortVlanPair>(
        "Value('Pex::PortVlanPair', ** {'intfId': Ethernet1, 'vlanId': 5})");
    FAIL();
  } catch (RangeException const& exception) {
    EXPECT_STREQ(exception.what(), "intfId: expected ', found 'Ethernet1, \\'vlanId\\': 5})'");
  }
}

TEST(IntfIdParser, ReadsBackRandomByteStrings) {
  constexpr unsigned kSeed = 17;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int run = 0; run < 5'000; ++run) {
    std::string text(random() % 64, '\0');
    for (char& c : text) c = static_cast<char>(random());
    Ovra::IntfId const id(text);
    ASSERT_EQ(strepToValue<Ovra::IntfId>(Kiv::valueToStrep(id)), id);
    Pex::PortVlanPair const pair(id, static_cast<Kiv::U16>(random()));
    ASSERT_EQ(strepToValue<Pex::PortVlanPair>(Kiv::valueToStrep(pair)), pair);
  }
}

// Changes a few bytes of a valid form: replaces, removes, inserts, repeats, cuts.
std::string mutated(std::string text, std::mt19937& random) {
  static constexpr char kTelling[] = "0123456789abcdefxX'\\.:, {}()*-TFV\0\n\xff";
  auto const telling = [&] { return kTelling[random() % (sizeof kTelling - 1)]; };
  for (auto changes = 1 + random() % 4; changes > 0; --changes) {
    size_t const at = text.empty() ? 0 : random() % text.size();
    switch (random() % 5) {
      case 0:
        if (!text.empty()) text[at] = random() % 4 != 0 ? telling() : static_cast<char>(random());
        break;
      case 1:
        if (!text.empty()) text.erase(at, 1 + random() % 3);
        break;
      case 2:
        text.insert(at, 1, telling());
        break;
      case 3:
        text.insert(at, text.substr(at, random() % 12));
        break;
      default:
        if (random() % 4 == 0) text.resize(at);
        break;
    }
  }
  return text;
}

// Whatever is read from a mutated form is a value that is read back from its own form; whatever is
// not read is refused by RangeException, and any other exception fails the test.
template <class T>
void fuzz(T const& value, unsigned seed) {
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::string const form = Kiv::valueToStrep(value).stdString();
  int read = 0;
  int refused = 0;
  for (int run = 0; run < 30'000; ++run) {
    String const text = mutated(form, random);
    try {
      T const found = strepToValue<T>(text);
      ++read;
      ASSERT_EQ(strepToValue<T>(Kiv::valueToStrep(found)), found) << text;
    } catch (RangeException const&) {
      ++refused;
    }
  }
  EXPECT_GT(read, 0);
  EXPECT_GT(refused, 0);
}

TEST(ValueParsers, RefuseMutatedFormsByRangeExceptionOnly) {
  fuzz(Ovra::IpAddr(0xC0A8010A), 1);
  fuzz(Ovra::EthAddr({0, 1, 2, 0xab, 0xcd, 0xef}), 2);
  fuzz(Ovra::IntfId("Ethernet1'\\\n"), 3);
  fuzz(L3::VrfName("blue"), 4);
  fuzz(Pex::VrfId(4294967295), 5);
  fuzz(Bridging::VlanId(4094), 6);
  fuzz(Pex::VrfAndIpAddr(Pex::VrfId(7), Ovra::IpAddr(0x0A000001)), 7);
  fuzz(Pex::PortVlanPair(Ovra::IntfId("Ethernet1"), 5), 8);
}

}  // namespace
