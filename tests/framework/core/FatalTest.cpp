// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Fatal.h"

#include <cerrno>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "framework/core/AddressSanitizer.h"
#include "framework/core/Types.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IntfId.h"
#include "framework/values/IpAddr.h"

namespace {

int interruptions = 0;

}  // namespace

/// The C library's, which a signal interrupts as often as `interruptions` says.
extern "C" ssize_t write(int file, void const* from, size_t size) {
  if (interruptions > 0) {
    --interruptions;
    errno = EINTR;
    return -1;
  }
  return ::syscall(SYS_write, file, from, size);
}

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
  EXPECT_DEATH(KIV_CHECK(evaluations < 0, "before ", Unprintable(), " after ", 7),
               AllOf(StartsWith("Failed(evaluations < 0) before <cannot be shown> after 7"),
                     HasSubstr("\"evaluations < 0\" == nullptr")));
}

TEST(FatalCheckDeathTest, WritesItsTextThoughSignalsInterruptTheWrite) {
  EXPECT_DEATH(
      {
        interruptions = 3;
        checkNumber(7);
      },
      StartsWith("Failed(n == 1) n is 7, not 1"));
}

TEST(FatalCheckDeathTest, WritesASentenceThatIsLongerThanItsBuffer) {
  std::string const text(3 * Kiv::FatalReport::kRoom, 'x');
  EXPECT_DEATH(KIV_CHECK(evaluations < 0, text, '!'),
               AllOf(StartsWith("Failed(evaluations < 0) " + text + "33"),
                     HasSubstr("\"evaluations < 0\" == nullptr")));
}

/// Fails a check of its own when it is printed.
struct Broken {};
std::ostream& operator<<(std::ostream& stream, Broken) {
  KIV_CHECK(evaluations < -1, "of ", Broken());
  return stream;
}

TEST(FatalCheckDeathTest, NamesBothConditionsWhenAPieceFailsACheckItself) {
  EXPECT_DEATH(KIV_CHECK(evaluations < 0, "before ", Broken()),
               AllOf(StartsWith("Failed(evaluations < 0) before \nFailed(evaluations < -1) "),
                     HasSubstr("\"evaluations < -1\" == nullptr")));
}

void useUpTheMemory() {
  rlimit const none{0, 0};
  ASSERT_EQ(setrlimit(RLIMIT_AS, &none), 0);
  for (size_t size = size_t{1} << 24; size >= 16; size /= 2) {
    while (auto* const taken = static_cast<char volatile*>(std::malloc(size))) *taken = 0;
  }
}

TEST(FatalCheckDeathTest, WritesItsWholeTextWithoutMemory) {
#ifdef KIV_ADDRESS_SANITIZER
  GTEST_SKIP() << "AddressSanitizer's allocator ends the process without memory";
#endif
  Ovra::IntfId const intfId("Ethernet1\n");
  std::string const text(100, 'x');
  EXPECT_DEATH(
      {
        useUpTheMemory();
        KIV_CHECK(evaluations < 0, "intfId: ", intfId, " ip: ", Ovra::IpAddr(0x0a000001),
                  " mac: ", Ovra::EthAddr({2, 0, 0, 0, 0, 1}), ' ', 1.5, text);
      },
      AllOf(StartsWith("Failed(evaluations < 0) intfId: Ethernet1\\x0a ip: 10.0.0.1 mac: "
                       "02:00:00:00:00:01321.5" +
                       text + std::string(program_invocation_short_name) +
                       ": tests/framework/core/FatalTest.cpp:"),
            EndsWith("Assertion `\"evaluations < 0\" == nullptr' failed.\n")));
}

TEST(FatalCheckDeathTest, PrintsQuotesInsideTheConditionPlain) {
  std::string const name = "x";
  EXPECT_DEATH(KIV_CHECK(name == "y", "Unknown table name: ", name),
               AllOf(HasSubstr("Failed(name == \"y\") Unknown table name: x"),
                     HasSubstr("\"name == \"y\"\" == nullptr")));
}

}  // namespace
