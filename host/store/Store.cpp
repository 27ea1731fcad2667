// SPDX-License-Identifier: Apache-2.0
#include "host/store/Store.h"

#include <array>
#include <cstdio>
#include <random>

namespace Host {

namespace {

struct KindName {
  StoreChange::Kind kind;
  char const* name;
};
constexpr std::array kKindNames{
    KindName{StoreChange::Kind::Make, "make"},
    KindName{StoreChange::Kind::Set, "set"},
    KindName{StoreChange::Kind::Replace, "replace"},
    KindName{StoreChange::Kind::Del, "del"},
};

}  // namespace

Store::~Store() = default;

std::string toString(StoreVersion const& version) {
  return std::to_string(version.major) + "-" + std::to_string(version.minor);
}

char const* name(StoreChange::Kind kind) {
  for (KindName const& each : kKindNames) {
    if (each.kind == kind) return each.name;
  }
  return "?";
}

std::optional<StoreChange::Kind> storeChangeKind(std::string_view name) {
  for (KindName const& each : kKindNames) {
    if (each.name == name) return each.kind;
  }
  return std::nullopt;
}

std::string makeStoreEpoch() {
  std::random_device random;
  std::string epoch;
  for (int i = 0; i < 4; ++i) {
    std::array<char, 9> digits{};
    std::snprintf(digits.data(), digits.size(), "%08x", random());
    epoch += digits.data();
  }
  return epoch;
}

}  // namespace Host
