// SPDX-License-Identifier: Apache-2.0
#include "host/shell/Variables.h"

#include <algorithm>
#include <utility>

#include "host/language/InputError.h"
#include "host/language/JsonText.h"

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

namespace {

Answer setVariable(Variables& variables, Arguments const& given, std::string const& value) {
  std::string const name = given.text("set");
  if (!Variables::isName(name)) {
    throw InputError("expected a name of letters, digits and _, found " + excerpt(name),
                     {1, std::nullopt, {"a name"}, name});
  }
  variables.set(name, value);
  return {};
}

Answer showVariables(Variables const& variables) {
  nlohmann::json all = nlohmann::json::object();
  std::string text;
  for (auto const& [name, value] : variables.values()) {
    all[name] = value.value();
    text += (text.empty() ? "" : "\n") + name + " = " + value.value();
  }
  return {all, text};
}

}  // namespace

void addVariableCommands(std::vector<Command>& add, Variables& variables,
                         std::function<Answer(Arguments const&)> answerToInner) {
  add.emplace_back("set <NAME> = <VALUE>",
                   "$NAME, or ${NAME}, in the words of later lines stands for the value",
                   "set vlan = 1006", [&variables](Arguments const& given) {
                     return setVariable(variables, given, given.text("="));
                   });
  add.emplace_back("set <NAME> from <COMMAND>", "the same, for the command's answer as JSON",
                   "set before from dump chip",
                   [&variables, answer = std::move(answerToInner)](Arguments const& given) {
                     return setVariable(variables, given, jsonText(answer(given).json));
                   });
  add.emplace_back("show variables", "the variables and their values", "show variables",
                   [&variables](Arguments const&) { return showVariables(variables); });
}

}  // namespace Host
