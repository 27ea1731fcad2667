// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/language/JsonText.h"
#include "host/language/Pattern.h"

namespace Host {

/// The answer of a command.
struct Answer {
  Answer() {}
  /// The text form is that of the JSON, in one line.
  explicit Answer(nlohmann::json answer) : json(std::move(answer)), text(jsonText(json)) {}
  Answer(nlohmann::json answer, std::string words, std::string lines = {})
      : json(std::move(answer)), text(std::move(words)), marks(std::move(lines)) {}

  /// Null: no answer.
  nlohmann::json json;
  /// What people read; lines without the last line end.
  std::string text;
  /// Where the text shows a difference: '+', '-' or '~' for each line that shows what comes, what
  /// goes and what becomes another, ' ' for the others. Else empty.
  std::string marks;
};

/// What is probably a mistake in a line that can be carried out.
struct Doubt {
  /// With what may have been meant.
  std::string text;
  /// The number of the word, from 0; none when it is about the whole line.
  std::optional<size_t> word;
};

/// One command: its form, what it is for, and what it does. The handler checks what it is given
/// before it changes anything, and throws InputError for what cannot be done.
struct Command {
  using Handler = std::function<Answer(Arguments const&)>;

  Command(std::string_view form, std::string_view what, std::string_view sample, Handler run)
      : pattern(form), help(what), example(sample), handler(std::move(run)) {}

  Pattern pattern;
  std::string help;
  std::string example;
  Handler handler;
  std::function<std::vector<Doubt>(Arguments const&)> doubts;
};

/// Lines of a form that is a command elsewhere, and why it is none here.
struct Refusal {
  Pattern pattern;
  std::string why;
};

/// The commands that go together, under a title.
struct CommandGroup {
  std::string title;
  std::vector<Command> commands;
  /// Neither help nor completions have them.
  std::vector<Refusal> refused = {};
};

/// The one table from which lines are read, help is printed and words are completed.
class CommandTable {
 public:
  struct Found {
    Command const* command;
    Arguments arguments;
  };

  void add(CommandGroup group);

  std::vector<CommandGroup> const& groups() const { return groups_; }

  /// The command of a line; `words` must outlive what is found. Throws InputError, which says why
  /// that command is refused, or what was expected at the first word that fits no command.
  Found find(std::span<std::string const> words) const;

  /// One way in which a line may continue.
  struct Next {
    Completion completion;
    /// What it is for: what the command does, or the titles of the commands that begin so, or what
    /// a value is.
    std::string help;
  };

  /// What may follow the words, sorted by text. When the words are a command as they are, the first
  /// has the text kEndOfLine.
  std::vector<Next> next(std::span<std::string const> words) const;
  static constexpr std::string_view kEndOfLine = "<cr>";

  /// The words with every keyword in full. A keyword may be shortened to what no other keyword in
  /// its place begins with; what is a value in its place, what follows "==" and the words of a text
  /// stay as they are. Throws InputError, which names the keywords, for what several begin with.
  std::vector<std::string> expanded(std::span<std::string const> words) const;

  /// The part of the words that is the inner command, when they begin with commands that take
  /// another one ("brief", "expect"); the words themselves otherwise.
  std::span<std::string const> innermost(std::span<std::string const> words) const;

  /// The grammar with what each command does; of those commands only that begin with `words`.
  std::string help(std::span<std::string const> words) const;

 private:
  void throwRefusal(std::span<std::string const> words) const;

  std::vector<CommandGroup> groups_;
  std::map<std::string, std::vector<Command const*>, std::less<>> byFirstWord_;
};

}  // namespace Host
