// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Hash.h"

#include <random>

#include "framework/core/Fatal.h"

namespace Kiv {

namespace {

struct Seed {
  U32 value = 0;
  bool given = false;
  bool used = false;
};

constinit Seed processSeed;

}  // namespace

U32 HashHelper::hashSeed32() {
  if (!processSeed.used) {
    if (!processSeed.given) processSeed.value = std::random_device{}();
    processSeed.used = true;
  }
  return processSeed.value;
}

void HashHelper::hashSeed32Is(U32 seed) {
  KIV_CHECK(!processSeed.used,
            "The hash seed is in use already; set it before the first collection is made");
  processSeed = {.value = seed, .given = true, .used = false};
}

}  // namespace Kiv
