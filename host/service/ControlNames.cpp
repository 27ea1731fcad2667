// SPDX-License-Identifier: Apache-2.0
// What a prompt asks for: forms, and names that are known.
#include "host/service/ControlClient.h"

namespace Host {

using nlohmann::json;

void ControlServer::known(Client& client, json const& id, json const& request) {
  json const begins = request.value("begins", json(""));
  if (!request["known"].is_string() || !begins.is_string()) {
    client.out += errorAnswer(id, BadInput, "expected a kind of names, and how they begin");
    return;
  }
  auto const finished = [&id](json answer) {
    if (!id.is_null()) answer["id"] = id;
    return jsonText(answer) + '\n';
  };
  auto const kind = request["known"].get<std::string>();
  if (kind == "commands") {
    client.out += finished({{"known", commands_.forms()}});
    return;
  }
  fork(client, id, [&] {
    auto const [values, more] = commands_.known(kind, begins.get<std::string>());
    json answer{{"known", values}};
    if (more) answer["more"] = true;
    return finished(std::move(answer));
  });
}

}  // namespace Host
