// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/language/CommandTable.h"
#include "host/language/Lexer.h"

namespace Host {

/// Names that stand for texts in the words of a line: $name, or ${name} where letters follow. A
/// name that is not known stays as it is, and so does a word in quotes.
class Variables {
 public:
  /// None: a value that will be known only when the line that sets it is carried out.
  using Value = std::optional<std::string>;

  bool empty() const { return values_.empty(); }
  void set(std::string const& name, Value value) { values_[name] = std::move(value); }
  std::map<std::string, Value> const& values() const { return values_; }

  /// Whether a text can be the name of a variable: a letter or _, then letters, digits and _.
  static bool isName(std::string_view text);

  /// The words with what the names in them stand for; nothing when that is not known of one.
  std::optional<std::vector<std::string>> replacedIn(std::vector<PlacedWord> words) const;

 private:
  /// False when a value is not known.
  bool replace(std::string& word) const;

  std::map<std::string, Value> values_;
};

/// The commands that set variables and show them; these must outlive them. `answerToInner` carries
/// out the command within one.
void addVariableCommands(std::vector<Command>& add, Variables& variables,
                         std::function<Answer(Arguments const&)> answerToInner);

}  // namespace Host
