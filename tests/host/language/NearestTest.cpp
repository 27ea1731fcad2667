// SPDX-License-Identifier: Apache-2.0
#include "host/language/Nearest.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

std::vector<std::string> const kVrfs = {"blue", "green", "red", "red-lab"};

TEST(Nearest, OneLetterLeftOutAddedReplacedOrExchangedIsAMistake) {
  for (char const* const typed : {"gren", "greeen", "greem", "geren"}) {
    EXPECT_EQ(Host::nearestName(typed, kVrfs), "green") << typed;
  }
}

TEST(Nearest, WhatHasTooLittleInCommonWasNotMeant) {
  EXPECT_EQ(Host::nearestName("yellow", kVrfs), std::nullopt);
  EXPECT_EQ(Host::nearestName("", kVrfs), std::nullopt);
  EXPECT_EQ(Host::nearestName("red", {}), std::nullopt);
}

TEST(Nearest, ANameIsNotMeantByItself) {
  EXPECT_EQ(Host::nearestName("red", kVrfs), std::nullopt);
}

TEST(Nearest, TheNearestOfSeveralIsMeant) {
  std::vector<std::string> const known = {"Ethernet12", "Ethernet1", "Ethernet10"};
  EXPECT_EQ(Host::nearestName("Ethrnet1", known), "Ethernet1");
}

TEST(Nearest, OfLongNamesTheBeginningCounts) {
  std::vector<std::string> const known = {std::string(100, 'x') + 'y'};
  EXPECT_EQ(Host::nearestName(std::string(100, 'x') + 'z', known), known[0]);
}

}  // namespace
