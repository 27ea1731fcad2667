// SPDX-License-Identifier: Apache-2.0
#include "client/StoreEditor.h"

#include <memory>
#include <set>
#include <utility>

#include "agent/records/BfnMacRewriteInput.h"
#include "framework/core/Clock.h"
#include "framework/core/Fatal.h"
#include "host/commands/Commands.h"
#include "host/commands/Configuration.h"
#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/service/ControlClient.h"
#include "host/service/Inputs.h"
#include "host/service/OperatorChanges.h"
#include "host/store/ScopedStore.h"

namespace {

using nlohmann::json;

json done() {
  return {{"answer", nullptr}, {"text", ""}};
}
json skipped() {
  return {{"error", "a line before it failed"}, {"status", Host::Refused}, {"skipped", true}};
}
// What is being handled.
json errorNow() {
  Host::ControlError const error(std::current_exception());
  return {{"error", error.why}, {"status", error.status}};
}
Kiv::U64 runOf(json const& request) {
  return request.value("run", Kiv::U64{0});
}

std::unique_ptr<Host::Store> storeOf(std::string const& url, Host::StoreOptions const& options,
                                     std::string const& switchName) {
  // Of a switch's own records, or of one for all, only the configuration is of interest.
  std::set<std::string> common;
  std::string prefix = "switch/" + switchName + '/';
  if (switchName.empty()) {
    common.insert(Host::InputPath::kConfig);
    prefix = "operator/";
  }
  return std::make_unique<Host::ScopedStore>(Host::openStore(Host::StoreUrl(url), options),
                                             std::move(prefix), std::move(common));
}

}  // namespace

StoreEditor::StoreEditor(std::string const& url, Host::StoreOptions const& options,
                         std::string const& switchName)
    : database_(Kiv::makeActive<Corvo::Database>()),
      host_(database_, {}),
      mirror_(storeOf(url, options, switchName), database_, Kiv::makeActive<Kiv::SteadyClock>()) {
  mirror_.follow();
  if (!mirror_.current()) throw Host::StoreAway(mirror_.status().reason);
  if (!database_->object(Host::InputPath::kConfig)) {
    mirror_.make(Host::InputPath::kConfig,
                 std::string(BfnMacRewrite::Input::Config::_kivType().name()));
  }
  host_.cliConfigIsDatabases();
  Host::CommandGroup group = commands();
  group.commands.emplace_back("help [<COMMAND>]", "the commands, or those that begin so", "help",
                              [this](Host::Arguments const& given) {
                                std::string const text = table_.help(given.words.subspan(1));
                                return Host::Answer(text, text);
                              });
  table_.add(std::move(group));
}

Host::CommandGroup StoreEditor::commands() {
  Host::CommandGroup group{"operator", {}};
  for (Host::Command& command : Host::operatorCommands(host_).commands) {
    std::string const form = command.pattern.text();
    if (Host::isOperatorLine(Host::splitWords(form))) {
      command.handler = [this](Host::Arguments const& given) {
        auto all = Host::operatorChanges(host_, given.words);
        if (!all.empty()) mirror_.submit(std::move(all));
        return Host::Answer();
      };
    } else if (form != "show running-config") {
      continue;
    }
    group.commands.push_back(std::move(command));
  }
  return group;
}

Host::Selection StoreEditor::known(std::string_view kind, std::string_view typed) const {
  return Host::beginningWith(typed, Host::knownValues(Host::KnownInputs(host_), kind));
}

json StoreEditor::receive() {
  if (answers_.empty()) {
    mirror_.follow();
    for (json const& request : std::exchange(requests_, {})) carryOut(request);
    submitBatch();
  }
  KIV_CHECK(!answers_.empty());
  json answer = std::move(answers_.front());
  answers_.pop_front();
  return answer;
}

void StoreEditor::carryOut(json const& request) {
  if (request.contains("line") && adds(request)) return;
  submitBatch();
  if (request.contains("keep")) {
    keep(request["keep"]);
  } else if (request.contains("commit")) {
    commit();
  } else {
    carryOutAlone(request);
  }
}

bool StoreEditor::isSkipped(json const& request) const {
  return failedRun_ != 0 && runOf(request) == failedRun_;
}

void StoreEditor::refuse(json const& request) {
  failedRun_ = runOf(request);
  answers_.push_back(errorNow());
}

// Whether the line waits in the batch now. All others, those that are wrong among them, are
// answered in their turn.
bool StoreEditor::adds(json const& request) {
  auto const& line = request["line"].get_ref<std::string const&>();
  if (!line.starts_with("vxlan ") && !line.starts_with("no vxlan ")) return false;
  if (isSkipped(request)) return false;
  try {
    addTo(batch_, line);
  } catch (Host::InputError const&) {
    return false;
  }
  batched_.push_back(request);
  return true;
}

// What the store refuses as a whole is tried line by line, so that each line has an answer of its
// own.
void StoreEditor::submitBatch() {
  if (batched_.empty()) return;
  auto const requests = std::exchange(batched_, {});
  Host::OperatorLines lines = std::exchange(batch_, noLines());
  try {
    submit(lines);
    answers_.insert(answers_.end(), requests.size(), done());
  } catch (Host::StoreAway const&) {
    // The lines may be in the store or not: none of them is sent again.
    for (json const& request : requests) {
      if (isSkipped(request)) {
        answers_.push_back(skipped());
      } else {
        refuse(request);
      }
    }
  } catch (std::exception const&) {
    for (json const& request : requests) carryOutAlone(request);
  }
}

void StoreEditor::carryOutAlone(json const& request) {
  if (isSkipped(request)) {
    answers_.push_back(skipped());
    return;
  }
  try {
    auto const words =
        pipeline_.expanded(Host::splitWords(request["line"].get_ref<std::string const&>()));
    Host::Answer const answer = words.empty() ? Host::Answer() : pipeline_.answerTo(words);
    answers_.push_back({{"answer", answer.json}, {"text", answer.text}});
  } catch (...) {
    refuse(request);
  }
}

void StoreEditor::addTo(Host::OperatorLines& lines, std::string const& line) const {
  auto const words = Host::splitWords(line);
  table_.find(words);
  if (!Host::isOperatorLine(words)) {
    throw Host::InputError("expected a line of the operator's, vxlan or no vxlan");
  }
  lines.add(words, line);
}

void StoreEditor::submit(Host::OperatorLines& lines) {
  std::exception_ptr thrown;
  mirror_.submitReadable(
      lines.takeChanges(),
      {[](size_t) {}, [&](size_t, std::exception_ptr const& why) { thrown = why; }});
  if (thrown) std::rethrow_exception(thrown);
}

void StoreEditor::keep(json const& lines) {
  if (keptFailed_) {
    answers_.push_back(skipped());
    return;
  }
  if (!kept_) kept_.emplace(noLines());
  try {
    for (json const& line : lines) addTo(*kept_, line.get_ref<std::string const&>());
    answers_.push_back({{"kept", kept_->size()}});
  } catch (...) {
    answers_.push_back(errorNow());
    answers_.back()["at"] = kept_->size();
    kept_.reset();
    keptFailed_ = true;
  }
}

void StoreEditor::commit() {
  if (std::exchange(keptFailed_, false)) {
    answers_.push_back(skipped());
    return;
  }
  Host::OperatorLines kept = std::exchange(kept_, std::nullopt).value_or(noLines());
  try {
    mirror_.follow();
    if (kept.stale()) {
      auto const lines = std::exchange(kept, noLines()).lines();
      for (std::string const& line : lines) addTo(kept, line);
    }
    submit(kept);
    answers_.push_back({{"answer", kept.size()}, {"failed", json::array()}});
  } catch (...) {
    answers_.push_back(errorNow());
    // A wrong line is known by its number; what the store refuses are all of them.
    if (answers_.back()["status"] == Host::BadInput) answers_.back()["at"] = kept.size();
  }
}
