// SPDX-License-Identifier: Apache-2.0
// Lines of the operator's that come in several requests and are carried out all or none.
#include <malloc.h>
#include <utility>

#include "host/language/InputError.h"
#include "host/language/JsonText.h"
#include "host/language/Lexer.h"
#include "host/service/ControlClient.h"
#include "host/service/ControlServer.h"

namespace Host {

using nlohmann::json;

namespace {

// After a transaction of so many lines the memory that it took is given back.
constexpr size_t kMany = 4096;

}  // namespace

void ControlServer::addKept(OperatorBatch& to, std::string line) const {
  auto const words = splitWords(line);
  if (words.empty()) throw InputError("expected a line of the operator's, vxlan or no vxlan");
  if (!commands_.prepare(words).operators) {
    throw InputError("expected a line of the operator's, vxlan or no vxlan, and nothing else");
  }
  to.add(words, std::move(line));
}

void ControlServer::keep(Client& client, json const& id, json lines) {
  if (client.keptFailed) {
    client.out += errorAnswer(id, Refused, "a line before it failed", {{"skipped", true}});
    return;
  }
  if (!client.kept) client.kept.emplace(service_);
  OperatorBatch& kept = *client.kept;
  try {
    if (!client.mayChange) throw StoreRefused("this user may look, and change nothing");
    if (!lines.is_array()) throw InputError("expected a list of lines");
    if (kept.size() + lines.size() > kMaxKept) {
      throw InputError("a transaction has " + std::to_string(kMaxKept) + " lines at most");
    }
    for (json& line : lines) {
      if (!line.is_string()) throw InputError("expected a line");
      addKept(kept, std::move(line.get_ref<std::string&>()));
    }
  } catch (...) {
    ControlError const error(std::current_exception());
    client.out += errorAnswer(id, error.status, error.why, {{"at", kept.size()}});
    client.kept.reset();
    client.keptFailed = true;
    return;
  }
  json answer{{"kept", kept.size()}};
  if (!id.is_null()) answer["id"] = id;
  client.out += jsonText(answer) + '\n';
}

void ControlServer::commit(Client& client, json const& id) {
  if (std::exchange(client.keptFailed, false)) {
    client.out += errorAnswer(id, Refused, "a line before it failed", {{"skipped", true}});
    return;
  }
  OperatorBatch kept = std::exchange(client.kept, std::nullopt).value_or(OperatorBatch(service_));
  std::vector<OperatorBatch::Failure> failures;
  try {
    if (kept.stale()) {
      auto const lines = std::exchange(kept, OperatorBatch(service_)).lines();
      for (std::string const& line : lines) addKept(kept, line);
    }
    failures = kept.submit();
  } catch (...) {
    ControlError const error(std::current_exception());
    if (options_.changed) {
      options_.changed(client.uid, std::to_string(kept.size()) + " lines together", error.why);
    }
    // A wrong line is known by its number; what the store refuses are all of them.
    json const more = error.status == BadInput ? json{{"at", kept.size()}} : json::object();
    client.out += errorAnswer(id, error.status, error.why, more);
    return;
  }
  json all{{"answer", kept.size()}, {"failed", json::array()}};
  auto failure = failures.begin();
  for (size_t i = 0; i < kept.size(); ++i) {
    std::string why;
    if (failure != failures.end() && failure->line == i) {
      why = ControlError((failure++)->thrown).why;
      all["failed"].push_back({{"at", i}, {"error", why}});
    }
    if (options_.changed) options_.changed(client.uid, kept.lines()[i], why);
  }
  if (!id.is_null()) all["id"] = id;
  client.out += jsonText(all) + '\n';
  if (kept.size() < kMany) return;
  kept = OperatorBatch(service_);
  ::malloc_trim(0);
}

}  // namespace Host
