// SPDX-License-Identifier: Apache-2.0
#include "host/language/Pattern.h"

#include <algorithm>
#include <limits>

#include "framework/core/Fatal.h"

namespace Host {

std::string_view const* Arguments::find(std::string_view key) const {
  // The value after a keyword is added after the keyword itself, under the same key.
  for (auto at = values_.rbegin(); at != values_.rend(); ++at) {
    if (at->first == key) return &at->second;
  }
  return nullptr;
}

std::string Arguments::text(std::string_view key) const {
  auto const* const value = find(key);
  KIV_CHECK(value != nullptr, "the command has no ", key);
  return std::string(*value);
}

Kiv::U64 Arguments::number(std::string_view key, Kiv::U64 otherwise) const {
  auto const* const value = find(key);
  if (value == nullptr) return otherwise;
  return numberOf(*value, std::numeric_limits<Kiv::U64>::max()).value();
}

std::optional<size_t> Arguments::wordOf(std::string_view key) const {
  auto const* const value = find(key);
  for (size_t at = 0; value != nullptr && at < words.size(); ++at) {
    if (words[at].data() == value->data()) return at;
  }
  return std::nullopt;
}

Ovra::IpAddr Arguments::ip(std::string_view key) const {
  return ipAddrOf(text(key)).value();
}
Ovra::EthAddr Arguments::mac(std::string_view key) const {
  return ethAddrOf(text(key)).value();
}

void Mismatch::add(size_t place, std::string const& what) {
  if (place < at) return;
  if (place > at) expected.clear();
  at = place;
  if (std::ranges::find(expected, what) == expected.end()) expected.push_back(what);
}

namespace {

bool takesMany(std::string_view slot) {
  return slot == "COMMAND" || slot == "TEXT";
}

// Words, values and brackets.
std::vector<std::string_view> tokensOf(std::string_view text) {
  std::vector<std::string_view> tokens;
  while (!text.empty()) {
    if (text[0] == ' ') {
      text.remove_prefix(1);
      continue;
    }
    size_t const length =
        text[0] == '[' || text[0] == ']' ? 1 : std::min(text.find_first_of(" []"), text.size());
    tokens.push_back(text.substr(0, length));
    text.remove_prefix(length);
  }
  return tokens;
}

// "1-4094", or "65535" for 0 to that.
Limits limitsOf(std::string_view text) {
  constexpr Kiv::U64 kAny = std::numeric_limits<Kiv::U64>::max();
  size_t const dash = text.find('-');
  if (dash == std::string_view::npos) return {0, numberOf(text, kAny).value()};
  return {numberOf(text.substr(0, dash), kAny).value(),
          numberOf(text.substr(dash + 1), kAny).value()};
}

std::string withoutLimits(std::string_view text) {
  std::string shown;
  bool skipping = false;
  for (char const c : text) {
    if (c == ':') skipping = true;
    if (c == '>') skipping = false;
    if (!skipping) shown += c;
  }
  return shown;
}

}  // namespace

Pattern::Pattern(std::string_view text) : shown_(withoutLimits(text)), form_(text) {
  auto const tokens = tokensOf(text);
  size_t at = 0;
  elements_ = parse(tokens, at);
  KIV_CHECK(at == tokens.size(), text);
  KIV_CHECK(!elements_.empty() && elements_[0].kind == Element::Kind::Words, text);
}

Pattern::Elements Pattern::parse(std::span<std::string_view const> tokens, size_t& at) {
  Elements elements;
  std::string keyword;
  while (at < tokens.size() && tokens[at] != "]") {
    std::string_view token = tokens[at++];
    Element element;
    if (token == "[") {
      element.kind = Element::Kind::Optional;
      element.inside = parse(tokens, at);
      KIV_CHECK(at < tokens.size() && !element.inside.empty(), "unbalanced pattern");
      ++at;
      keyword.clear();
    } else if (token[0] == '<') {
      token = token.substr(1, token.size() - 2);
      element.kind = Element::Kind::Slot;
      size_t const colon = token.find(':');
      element.slot = token.substr(0, colon);
      if (colon != std::string_view::npos) element.limits = limitsOf(token.substr(colon + 1));
      element.key = keyword.empty() ? '<' + element.slot + '>' : keyword;
      keyword.clear();
    } else {
      for (std::string_view rest = token; !rest.empty();) {
        size_t const bar = token == "|" ? 1 : std::min(rest.find('|'), rest.size());
        element.words.emplace_back(rest.substr(0, bar));
        rest.remove_prefix(std::min(bar + 1, rest.size()));
      }
      element.key = element.words[0];
      keyword = element.words.size() == 1 ? element.key : "";
    }
    elements.push_back(std::move(element));
  }
  return elements;
}

bool Pattern::fits(Element const& element, std::string_view word) {
  switch (element.kind) {
    case Element::Kind::Words:
      return std::ranges::find(element.words, word) != element.words.end();
    case Element::Kind::Slot:
      return accepts(element.slot, element.limits, word);
    case Element::Kind::Optional:
      return fits(element.inside[0], word);
  }
  return false;
}

void Pattern::expect(Element const& element, size_t at, Mismatch& mismatch) {
  switch (element.kind) {
    case Element::Kind::Words:
      for (std::string const& word : element.words) mismatch.add(at, word);
      break;
    case Element::Kind::Slot:
      mismatch.add(at, describeSlot(element.slot, element.limits));
      break;
    case Element::Kind::Optional:
      expect(element.inside[0], at, mismatch);
      break;
  }
}

// The words of a slot that takes many: up to "==", or all but those of the elements after it.
bool Pattern::takeMany(Elements const& elements, Element const& element,
                       std::span<std::string const> words, size_t& at) {
  size_t const begin = at;
  auto const after = static_cast<size_t>(&elements.back() - &element);
  bool const compares = after > 0 && (&element)[1].key != "==";
  while (at + (compares ? after : 0) < words.size() && (compares || words[at] != "==")) ++at;
  return at > begin;
}

bool Pattern::matchAll(Elements const& elements, std::span<std::string const> words, size_t& at,
                       Arguments& arguments, Mismatch& mismatch) {
  for (Element const& element : elements) {
    if (element.kind == Element::Kind::Slot && takesMany(element.slot)) {
      if (takeMany(elements, element, words, at)) continue;
    } else if (at < words.size() && fits(element, words[at])) {
      if (element.kind == Element::Kind::Optional) {
        if (!matchAll(element.inside, words, at, arguments, mismatch)) return false;
      } else {
        arguments.add(element.key, words[at++]);
      }
      continue;
    }
    expect(element, at, mismatch);
    if (element.kind != Element::Kind::Optional) return false;
  }
  return true;
}

std::span<std::string const> Pattern::innerCommand(std::span<std::string const> words) const {
  auto const place = std::ranges::find(elements_, "COMMAND", &Element::slot);
  if (place == elements_.end()) return {};
  auto const before = static_cast<size_t>(place - elements_.begin());
  size_t const others = elements_.size() - 1;
  return words.subspan(before, words.size() - others);
}

bool Pattern::match(std::span<std::string const> words, Arguments& arguments,
                    Mismatch& mismatch) const {
  arguments.words = words;
  arguments.reserve(words.size());
  size_t at = 0;
  if (!matchAll(elements_, words, at, arguments, mismatch)) return false;
  if (at == words.size()) return true;
  mismatch.add(at, "the end of the line");
  return false;
}

void Pattern::firsts(Element const& element, std::vector<Completion>& found) {
  switch (element.kind) {
    case Element::Kind::Words:
      for (std::string const& word : element.words) found.push_back({word, "", {}, ""});
      break;
    case Element::Kind::Slot:
      found.push_back({'<' + element.slot + '>', element.slot, element.limits, element.key});
      break;
    case Element::Kind::Optional:
      firsts(element.inside[0], found);
      break;
  }
}

bool Pattern::completeAll(Elements const& elements, std::span<std::string const> words, size_t& at,
                          std::vector<Completion>& found) {
  for (Element const& element : elements) {
    bool const optional = element.kind == Element::Kind::Optional;
    if (at == words.size()) {
      firsts(element, found);
      if (!optional) return false;
    } else if (fits(element, words[at])) {
      if (!optional) {
        ++at;
      } else if (!completeAll(element.inside, words, at, found)) {
        return false;
      }
    } else if (!optional) {
      return false;
    }
  }
  return true;
}

bool Pattern::completions(std::span<std::string const> words,
                          std::vector<Completion>& found) const {
  size_t at = 0;
  completeAll(elements_, words, at, found);
  Arguments arguments;
  Mismatch mismatch;
  return match(words, arguments, mismatch);
}

}  // namespace Host
