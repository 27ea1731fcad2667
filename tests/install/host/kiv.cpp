// SPDX-License-Identifier: Apache-2.0
// A program of the framework alone, which names its headers with the folder that they are installed
// in.
#include <BfnMacRewrite/framework/core/Clock.h>
#include <BfnMacRewrite/framework/core/Ptr.h>
#include <cstdio>

int main() {
  auto const clock = Kiv::makeActive<Kiv::ManualClock>();
  clock->advance(1.0);
  std::puts("outside host: ok");
  return clock->now() > 0 ? 0 : 1;
}
