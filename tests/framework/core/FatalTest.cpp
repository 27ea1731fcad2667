#include "framework/core/Fatal.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "framework/core/Types.h"

namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

int evaluations = 0;

bool countedTrue() {
  ++evaluations;
  return true;
}

constexpr int kLineOfCheck = __LINE__ + 3;

void checkNumber(int n) {
  KIV_CHECK(n == 1, "n is ", n, ", not 1");
}

TEST(FatalCheck, EvaluatesItsConditionOnce) {
  evaluations = 0;
  KIV_CHECK(countedTrue());
  EXPECT_EQ(evaluations, 1);
}

struct Unprintable {};
std::ostream& operator<<(std::ostream&, Unprintable) {
  throw std::runtime_error("unprintable");
}

// The sentence has no line end: what the C library says of the assertion follows on the same line.
TEST(FatalCheckDeathTest, PrintsConditionAndSentenceThenFailsTheAssertionWithPlaceAndSignature) {
  EXPECT_DEATH(
      checkNumber(7),
      AllOf(StartsWith("Failed(n == 1) n is 7, not 1" + std::string(program_invocation_short_name) +
                       ": tests/framework/core/FatalTest.cpp:" + std::to_string(kLineOfCheck) +
                       ": void "),
            EndsWith("checkNumber(int): Assertion `\"n == 1\" == nullptr' failed.\n")));
}

TEST(FatalCheckDeathTest, WritesBytesAsNumbers) {
  EXPECT_DEATH(KIV_CHECK(evaluations < 0, "device ", Kiv::U8{65}, " of ", Kiv::U8{0}),
               HasSubstr("Failed(evaluations < 0) device 65 of 0"));
}

TEST(FatalCheckDeathTest, EndsTheProcessAlsoWhenAPieceCannotBeWritten) {
  EXPECT_DEATH(KIV_CHECK(evaluations < 0, "before ", Unprintable(), " behind"),
               AllOf(StartsWith("Failed(evaluations < 0) before "),
                     HasSubstr("\"evaluations < 0\" == nullptr")));
}

TEST(FatalCheckDeathTest, PrintsQuotesInsideTheConditionPlain) {
  std::string const name = "x";
  EXPECT_DEATH(KIV_CHECK(name == "y", "Unknown table name: ", name),
               AllOf(HasSubstr("Failed(name == \"y\") Unknown table name: x"),
                     HasSubstr("\"name == \"y\"\" == nullptr")));
}

}  // namespace
