// SPDX-License-Identifier: Apache-2.0
#include "host/prompt/TableTarget.h"

#include <exception>
#include <iostream>
#include <ostream>
#include <utility>

#include "host/language/InputError.h"
#include "host/language/JsonText.h"
#include "host/language/Lexer.h"
#include "host/shell/LineError.h"

namespace Host {

namespace {

constexpr char kName[] = "prompt";

}  // namespace

void TableTarget::add(CommandGroup group) {
  added_.push_back(std::move(group));
  rebuild();
}

void TableTarget::commandsAre(std::vector<CommandGroup> groups) {
  groups_ = std::move(groups);
  rebuild();
}

void TableTarget::rebuild() {
  table_ = {};
  for (auto const* const groups : {&groups_, &added_}) {
    for (CommandGroup const& group : *groups) table_.add(group);
  }
  CommandGroup group{"the session", {}};
  addVariableCommands(group.commands, variables_, [this](Arguments const& given) {
    auto const inner = table_.find(given.words).command->pattern.innerCommand(given.words);
    return readingFrom(static_cast<size_t>(inner.data() - given.words.data()),
                       [&] { return pipeline_.answerTo(inner); });
  });
  group.commands.emplace_back("help [<COMMAND>]", "the commands, or those that begin so", "help",
                              [this](Arguments const& given) {
                                std::string const text = table_.help(given.words.subspan(1));
                                return Answer(text, text);
                              });
  group.commands.emplace_back("exit", "leave", "exit", [this](Arguments const&) {
    ended_ = true;
    return Answer();
  });
  table_.add(std::move(group));
}

void TableTarget::run(std::string_view line, std::ostream& errors) {
  ++number_;
  line_ = line;
  errors_ = &errors;
  try {
    begin();
    carryOut(line);
  } catch (InputError const& error) {
    LineError const shown(kName, number_, line, error);
    errors << shown.text << '\n' << shown.caret;
  } catch (std::exception const& error) {
    errors << "error: " << error.what() << '\n';
  }
}

void TableTarget::carryOut(std::string_view line) {
  // Each variable's value is known.
  auto const words = pipeline_.expanded(variables_.replacedIn(lineWords(line)).value());
  if (words.empty()) return;
  Answer answer = pipeline_.answerTo(words);
  if (json_) {
    answer = Answer(nlohmann::json{{"answer", answer.json}, {"command", line}});
  } else if (answer.text.empty() && !answer.json.is_string()) {
    return;
  }
  if (pager_) {
    pager_(answer);
  } else {
    std::cout << answer.text << std::endl;
  }
}

void TableTarget::warn(Doubt const& doubt) {
  *errors_ << kName << ':' << number_ << ": warning: " << doubt.text << '\n';
  if (doubt.word) *errors_ << caretAt(line_, *doubt.word);
}

void TableTarget::addError(std::string const& text) {
  *errors_ << text;
}

void TableTarget::note(std::string const& text) {
  std::cout.flush();
  std::cerr << text << std::endl;
}

}  // namespace Host
