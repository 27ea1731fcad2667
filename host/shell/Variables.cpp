// SPDX-License-Identifier: Apache-2.0
#include "host/shell/Variables.h"

#include <algorithm>
#include <utility>

namespace Host {

namespace {

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool continuesName(char c) {
  return isLetter(c) || (c >= '0' && c <= '9');
}

// The name that follows a $, and the number of bytes that it takes.
std::pair<std::string, size_t> nameAt(std::string_view text) {
  bool const braced = text.starts_with('{');
  size_t const begin = braced ? 1 : 0;
  size_t end = begin;
  while (end < text.size() && continuesName(text[end])) ++end;
  std::string name(text.substr(begin, end - begin));
  if (!Variables::isName(name)) return {"", 0};
  if (braced && !text.substr(end).starts_with('}')) return {"", 0};
  return {std::move(name), end + (braced ? 1 : 0)};
}

}  // namespace

bool Variables::isName(std::string_view text) {
  return !text.empty() && isLetter(text[0]) && std::ranges::all_of(text, continuesName);
}

bool Variables::replace(std::string& word) const {
  for (size_t at = word.find('$'); at != std::string::npos; at = word.find('$', at)) {
    auto const [name, length] = nameAt(std::string_view(word).substr(at + 1));
    auto const found = values_.find(name);
    if (found == values_.end()) {
      ++at;
      continue;
    }
    if (!found->second) return false;
    word.replace(at, length + 1, *found->second);
    at += found->second->size();
  }
  return true;
}

std::optional<std::vector<std::string>> Variables::replacedIn(std::vector<PlacedWord> words) const {
  std::vector<std::string> replaced;
  for (PlacedWord& word : words) {
    if (!empty() && !word.quoted && !replace(word.text)) return std::nullopt;
    replaced.push_back(std::move(word.text));
  }
  return replaced;
}

}  // namespace Host
