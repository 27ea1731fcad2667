// SPDX-License-Identifier: Apache-2.0
#include "client/Support.h"

#include <chrono>
#include <fstream>
#include <iomanip>
#include <ostream>
#include <sys/utsname.h>

#include "host/language/JsonText.h"

namespace {

// "Debian GNU/Linux 12 (bookworm)", with its quotes.
std::string systemName() {
  std::ifstream in("/etc/os-release");
  constexpr std::string_view kName = "PRETTY_NAME=";
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with(kName)) return line.substr(kName.size());
  }
  return "unknown";
}

void writeMachine(std::ostream& out) {
  std::time_t const now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm time{};
  ::gmtime_r(&now, &time);
  utsname kernel{};
  ::uname(&kernel);
  out << "written  " << std::put_time(&time, "%FT%TZ") << ", by macrewrite " MACREWRITE_VERSION
      << "\nsystem   " << systemName() << "\nkernel   " << kernel.sysname << ' ' << kernel.release
      << ' ' << kernel.version << ' ' << kernel.machine << '\n';
}

}  // namespace

void writeSupport(std::ostream& out, Connection& connection) {
  writeMachine(out);
  out << "greeting " << Host::jsonText(connection.greeting()) << '\n';
  // What the service is and how it was started; how it does, and how the last process ended; what
  // it has; what has happened.
  for (char const* const line : {"show version | json",
                                 "show options",
                                 "status",
                                 "status | json",
                                 "show metrics",
                                 "show running-config",
                                 "show capability",
                                 "show vxlan forwarding src-mac rewrite",
                                 "show rewrite differences",
                                 "show chip",
                                 "show waiting",
                                 "show reconciler",
                                 "audit",
                                 "chip counters",
                                 "dump inputs",
                                 "dump indexes",
                                 "dump records",
                                 "dump objects",
                                 "show log",
                                 "show trace"}) {
    nlohmann::json const answer = connection.ask({{"line", line}});
    out << "\n### " << line << '\n'
        << (answer.contains("error") ? "error: " + answer["error"].get<std::string>()
                                     : answer.value("text", ""))
        << '\n';
  }
}
