// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

#include "framework/core/Hash.h"

namespace {

using Kiv::HashHelper;
using Kiv::U32;

// The seed is drawn once in a process, so each look at it is taken in a process of its own; the
// test program itself never asks for it.
template <class Work>
U32 inAnotherProcess(Work work) {
  int ends[2];
  if (pipe(ends) != 0) return 0;
  pid_t const child = fork();
  if (child == 0) {
    U32 const result = work();
    _exit(write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1);
  }
  U32 result = 0;
  EXPECT_EQ(read(ends[0], &result, sizeof result), ssize_t{sizeof result});
  close(ends[0]);
  close(ends[1]);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  return result;
}

TEST(HashSeed, DiffersFromProcessToProcess) {
  std::set<U32> seeds;
  for (int i = 0; i < 5; ++i) seeds.insert(inAnotherProcess(HashHelper::hashSeed32));
  EXPECT_GT(seeds.size(), 1u);
}

TEST(HashSeed, IsDrawnOncePerProcess) {
  EXPECT_EQ(inAnotherProcess([] { return HashHelper::hashSeed32() ^ HashHelper::hashSeed32(); }),
            0u);
}

TEST(HashSeed, CanBeSetAndSetAgainBeforeItsFirstUse) {
  EXPECT_EQ(inAnotherProcess([] {
              HashHelper::hashSeed32Is(1);
              HashHelper::hashSeed32Is(0);
              return HashHelper::hashSeed32() + 100;
            }),
            100u);
}

TEST(HashSeedDeathTest, SettingTheSeedAfterItsFirstUseIsFatal) {
  EXPECT_DEATH(
      {
        HashHelper::hashSeed32();
        HashHelper::hashSeed32Is(1);
      },
      "The hash seed is in use already; set it before the first collection is made");
}

}  // namespace
