// SPDX-License-Identifier: Apache-2.0
#include "client/Watch.h"

#include <iostream>
#include <unistd.h>

#include "framework/core/Types.h"
#include "host/language/JsonText.h"

nlohmann::json watch(Connection& connection, bool json, std::string const& line) {
  bool const terminal = ::isatty(STDOUT_FILENO) == 1;
  Kiv::U64 changes = ~Kiv::U64{0};
  while (true) {
    changes = connection.ask({{"await", changes}})["changes"].get<Kiv::U64>();
    nlohmann::json answer = connection.ask({{"line", line}});
    if (answer.contains("error")) return answer;
    if (terminal) std::cout << "\033[H\033[2J";
    std::cout << (json ? Host::jsonText(answer["answer"]) : answer.value("text", "")) << std::endl;
    if (!std::cout) return nullptr;
    ::usleep(100'000);  // a burst of changes is one
  }
}
