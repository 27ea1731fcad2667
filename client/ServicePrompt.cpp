// SPDX-License-Identifier: Apache-2.0
#include "client/ServicePrompt.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "client/Watch.h"
#include "host/language/InputError.h"
#include "host/language/JsonText.h"
#include "host/language/Lexer.h"

namespace {

using Host::Answer;
using Host::Arguments;
using nlohmann::json;

// The name as a prompt has it, which a terminal shows.
std::string promptName(std::string name) {
  std::erase_if(name, [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; });
  return name.empty() ? "macrewrite" : name;
}

}  // namespace

ServicePrompt::ServicePrompt(std::string socket, Remote::Options options)
    : ClientPrompt(options), socket_(std::move(socket)), link_(std::make_unique<Link>(*this)) {
  name_ = promptName(link_->connection.greeting().value("switch", ""));
  takeForms();
}

void ServicePrompt::begin() {
  connect();
  if (lost_ && link_) {
    note("connected to the service again");
    lost_ = false;
  }
}

void ServicePrompt::connect() {
  if (link_ && !link_->connection.gone()) return;
  if (link_) lost_ = true;
  link_.reset();
  try {
    link_ = std::make_unique<Link>(*this);
    takeForms();
  } catch (std::runtime_error const& error) {
    link_.reset();
    lacks_ = error.what();
    lost_ = true;
  }
}

void ServicePrompt::takeForms() {
  std::vector<Host::CommandGroup> groups;
  json const answer = link_->connection.ask({{"known", "commands"}});
  if (!answer.contains("known")) throw NoService(socket_ + ": the service is too old for a prompt");
  for (json const& group : answer["known"]) {
    Host::CommandGroup taken{group["title"].get<std::string>(), {}};
    for (json const& command : group["commands"]) {
      auto const form = command["form"].get<std::string>();
      if (form.starts_with("help ")) continue;  // which names the client's own, too
      taken.commands.emplace_back(
          form, command["help"].get<std::string>(), command["example"].get<std::string>(),
          [this, changes = command["changes"].get<bool>()](Arguments const& given) {
            return answerTo(given.words, changes);
          });
    }
    for (json const& each : group.value("refused", json::array())) {
      taken.refused.push_back(
          {Host::Pattern(each["form"].get<std::string>()), each["why"].get<std::string>()});
    }
    groups.push_back(std::move(taken));
  }
  Host::CommandGroup own = ownCommands();
  own.commands.emplace_back(
      "watch <COMMAND>", "print the answer again after each change, until Ctrl-C",
      "watch show chip",
      [this](Arguments const& given) { return watched(given.words.subspan(1)); });
  groups.push_back(std::move(own));
  commandsAre(std::move(groups));
}

template <class F>
auto ServicePrompt::withLink(bool changes, F const& f) {
  if (!link_) throw NoService(lacks_ + "; the line was not carried out");
  std::string const unknown = changes ? "; whether the line was carried out is not known" : "";
  try {
    return f(*link_);
  } catch (NoService const& error) {
    link_.reset();
    lost_ = true;
    throw NoService(error.what() + unknown);
  } catch (Interrupted const& error) {
    link_.reset();
    throw std::runtime_error(error.what() + unknown);
  }
}

Host::Selection ServicePrompt::known(std::string_view kind, std::string_view typed) {
  connect();
  Host::Selection selection;
  try {
    json const answer = withLink(false, [&](Link& link) {
      return link.connection.ask({{"known", kind}, {"begins", typed}});
    });
    if (!answer.contains("known")) return selection;
    for (json const& value : answer["known"]) selection.values.insert(value.get<std::string>());
    selection.more = answer.value("more", false);
  } catch (std::runtime_error const&) {
    // Without a service nothing is known; the next line says so.
  }
  return selection;
}

json ServicePrompt::ask(std::span<std::string const> words, bool changes) {
  json answer = withLink(changes, [&](Link& link) { return link.remote.ask(Host::lineOf(words)); });
  auto const wordOf = [](json const& holder) {
    json const word = holder.value("word", json());
    return word.is_number_unsigned() ? std::optional(word.get<size_t>()) : std::nullopt;
  };
  if (answer.contains("warnings")) {
    for (json const& warning : answer["warnings"]) {
      warn({warning["text"].get<std::string>(), wordOf(warning)});
    }
  }
  if (answer.contains("error")) {
    throw Host::InputError(answer["error"].get<std::string>(), {wordOf(answer), {}, {}, {}});
  }
  return answer;
}

Answer ServicePrompt::answerTo(std::span<std::string const> words, bool changes) {
  json const answer = ask(words, changes);
  return {answer["answer"], answer.value("text", ""), answer.value("marks", "")};
}

void ServicePrompt::withRemote(std::function<void(Remote&)> const& f) {
  withLink(true, [&](Link& link) { f(link.remote); });
}

json ServicePrompt::jsonAnswerTo(std::span<std::string const> words) {
  return ask(words, true)["answer"];
}

Answer ServicePrompt::watched(std::span<std::string const> words) {
  std::string const line = Host::lineOf(words);
  json const failed = withLink(true, [&](Link& link) {
    try {
      return watch(link.connection, options().json, line);
    } catch (Interrupted const&) {
      link_.reset();  // the answer to what was awaited would come
      return json();
    }
  });
  if (failed.is_null()) return {};
  throw Host::InputError(failed["error"].get<std::string>());
}
