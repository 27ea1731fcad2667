// SPDX-License-Identifier: Apache-2.0
#include "client/Support.h"

#include <ostream>

#include "host/language/JsonText.h"

void writeSupport(std::ostream& out, Connection& connection) {
  out << "greeting\n" << Host::jsonText(connection.greeting()) << '\n';
  for (char const* const line :
       {"status", "status | json", "show running-config", "show capability",
        "show vxlan forwarding src-mac rewrite", "show chip", "show waiting", "show reconciler",
        "audit", "chip counters", "dump inputs", "dump indexes", "dump records", "dump objects",
        "show log", "show trace"}) {
    nlohmann::json const answer = connection.ask({{"line", line}});
    out << "\n### " << line << '\n'
        << (answer.contains("error") ? "error: " + answer["error"].get<std::string>()
                                     : answer.value("text", ""))
        << '\n';
  }
}
