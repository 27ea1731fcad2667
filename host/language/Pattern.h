// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/core/Types.h"
#include "framework/values/EthAddr.h"
#include "framework/values/IpAddr.h"
#include "host/language/Values.h"

namespace Host {

/// What a line says in the places of its command's pattern. Valid as long as the line's words.
///
/// A value is known by the keyword before it, a choice by its first alternative, a keyword by
/// itself: in "routing-status port|vlan <INTF> key-vlan <N>", "port", "<INTF>" and "key-vlan". A
/// value that follows a choice or another value is known by its name in angle brackets.
class Arguments {
 public:
  bool has(std::string_view key) const { return find(key) != nullptr; }
  /// The text of what must be there: asking for anything else is a programming error of the
  /// command.
  std::string text(std::string_view key) const;
  /// The number, or `otherwise` when it is not given.
  Kiv::U64 number(std::string_view key, Kiv::U64 otherwise = 0) const;
  Ovra::IpAddr ip(std::string_view key) const;
  Ovra::EthAddr mac(std::string_view key) const;

  void add(std::string_view key, std::string_view value) { values_.emplace_back(key, value); }
  void reserve(size_t values) { values_.reserve(values); }
  /// The number of the word that it is in `words`; nothing when it is not given.
  std::optional<size_t> wordOf(std::string_view key) const;
  /// Every word of the line, and where it came from.
  std::span<std::string const> words;

 private:
  std::string_view const* find(std::string_view key) const;

  std::vector<std::pair<std::string_view, std::string_view>> values_;
};

/// What may come next in a line: a keyword as it is typed, or a place for a value.
struct Completion {
  /// The keyword, or the value's name in angle brackets.
  std::string text;
  /// Of a place for a value: its name, what it takes, and by what Arguments knows it.
  std::string slot;
  Limits limits;
  std::string key;

  bool isKeyword() const { return slot.empty(); }
};

/// How far a line fits the known commands, and what was expected after that.
struct Mismatch {
  size_t at = 0;
  std::vector<std::string> expected;

  void add(size_t place, std::string const& what);
};

/// The form of one command, read from its text:
///
///   word              itself
///   one|other         one of several words
///   <VRF> <N:1-4094>  a value, see accepts(); a number may have limits
///   <COMMAND> <TEXT>  all words up to "=="; before other words, all but as many as these are
///   [ ... ]           may be left out; what it begins with decides whether it is there
class Pattern {
 public:
  explicit Pattern(std::string_view text);

  /// The form as people read it, without the limits.
  std::string const& text() const { return shown_; }
  /// The same with the limits: a pattern can be made of it.
  std::string const& form() const { return form_; }
  /// The word that every line of this form begins with.
  std::string const& firstWord() const { return elements_[0].words[0]; }

  /// The words of a line of this form that are a command themselves; none where the form takes
  /// none.
  std::span<std::string const> innerCommand(std::span<std::string const> words) const;

  /// Whether the words have this form. Fills in the arguments, to be discarded on a mismatch, and
  /// records in `mismatch` where it failed.
  bool match(std::span<std::string const> words, Arguments& arguments, Mismatch& mismatch) const;

  /// Adds what may follow the words. Whether they have this form as they are.
  bool completions(std::span<std::string const> words, std::vector<Completion>& found) const;

 private:
  struct Element {
    enum class Kind : Kiv::U8 { Words, Slot, Optional };
    Kind kind = Kind::Words;
    std::vector<std::string> words;  // one, or the alternatives
    std::string slot;
    Limits limits;
    std::string key;
    std::vector<Element> inside;
  };
  using Elements = std::vector<Element>;

  static Elements parse(std::span<std::string_view const> tokens, size_t& at);
  static bool fits(Element const& element, std::string_view word);
  static void expect(Element const& element, size_t at, Mismatch& mismatch);
  static void firsts(Element const& element, std::vector<Completion>& found);
  /// False when nothing after these elements can be reached.
  static bool completeAll(Elements const& elements, std::span<std::string const> words, size_t& at,
                          std::vector<Completion>& found);
  static bool takeMany(Elements const& elements, Element const& element,
                       std::span<std::string const> words, size_t& at);
  static bool matchAll(Elements const& elements, std::span<std::string const> words, size_t& at,
                       Arguments& arguments, Mismatch& mismatch);

  std::string shown_;
  std::string form_;
  Elements elements_;
};

}  // namespace Host
