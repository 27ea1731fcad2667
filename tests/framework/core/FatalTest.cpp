#include "framework/core/Fatal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

int evaluations = 0;

bool countedTrue() {
  ++evaluations;
  return true;
}

void checkNumber(int n) {
  KIV_CHECK(n == 1, "n is ", n, ", not 1");
}

TEST(FatalCheck, EvaluatesItsConditionOnce) {
  evaluations = 0;
  KIV_CHECK(countedTrue());
  EXPECT_EQ(evaluations, 1);
}

TEST(FatalCheckDeathTest, PrintsConditionSentenceAndAssertionWithTheSignature) {
  EXPECT_DEATH(checkNumber(7),
               AllOf(HasSubstr("Failed(n == 1) n is 7, not 1"), HasSubstr("\"n == 1\" == nullptr"),
                     HasSubstr("FatalTest.cpp"), HasSubstr("checkNumber(int)")));
}

TEST(FatalCheckDeathTest, PrintsQuotesInsideTheConditionPlain) {
  std::string const name = "x";
  EXPECT_DEATH(KIV_CHECK(name == "y", "Unknown table name: ", name),
               AllOf(HasSubstr("Failed(name == \"y\") Unknown table name: x"),
                     HasSubstr("\"name == \"y\"\" == nullptr")));
}

}  // namespace
