// SPDX-License-Identifier: Apache-2.0
#include "host/language/Nearest.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Host {

namespace {

// Names are short; of longer ones only the beginning counts.
constexpr size_t kLongest = 64;

size_t distance(std::string_view a, std::string_view b) {
  a = a.substr(0, kLongest);
  b = b.substr(0, kLongest);
  // Rows of the usual table: that of a's last two letters before, and of its letter now.
  std::vector<size_t> beforeLast;
  std::vector<size_t> last(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) last[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    std::vector<size_t> row(b.size() + 1, i);
    for (size_t j = 1; j <= b.size(); ++j) {
      size_t const replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
      bool const exchanged = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (exchanged) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
    beforeLast = std::move(last);
    last = std::move(row);
  }
  return last[b.size()];
}

}  // namespace

std::optional<std::string> nearestName(std::string_view typed, std::span<std::string const> known) {
  constexpr size_t kLettersAMistake = 3;
  size_t best = std::max<size_t>(1, typed.size() / kLettersAMistake) + 1;
  std::optional<std::string> found;
  for (std::string const& name : known) {
    size_t const difference = distance(typed, name);
    if (difference >= best || name == typed) continue;
    best = difference;
    found = name;
  }
  return found;
}

}  // namespace Host
