// SPDX-License-Identifier: Apache-2.0
#include "daemon/Log.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sys/stat.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include "framework/log/LogService.h"

namespace {

Kiv::LogSeverity least = Kiv::LogSeverity::informational;

bool standardErrorIsJournal() {
  char const* const stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (stream == nullptr || ::fstat(STDERR_FILENO, &status) != 0) return false;
  return stream == std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
}

void writeLine(Kiv::LogSeverity severity, std::string const& text, Kiv::LogMessage const* message) {
  if (static_cast<int>(severity) > static_cast<int>(least)) return;
  static bool const toJournal = standardErrorIsJournal();
  if (!toJournal) {
    std::cerr << (text + '\n') << std::flush;
    return;
  }
  int const priority = static_cast<int>(severity);
  if (message == nullptr) {
    ::sd_journal_send("MESSAGE=%s", text.c_str(), "PRIORITY=%i", priority, nullptr);
  } else {
    ::sd_journal_send("MESSAGE=%s", text.c_str(), "PRIORITY=%i", priority, "MACREWRITE_MESSAGE=%s",
                      message->name.c_str(), "MACREWRITE_HELD_BACK=%llu",
                      static_cast<unsigned long long>(message->heldBack), nullptr);
  }
}

}  // namespace

void Log::begin() {
  Kiv::LogService::sinkIs([](Kiv::LogMessage const& message) {
    writeLine(message.severity, Kiv::toString(message), &message);
  });
}

void Log::write(Kiv::LogSeverity severity, std::string const& text) {
  writeLine(severity, text, nullptr);
}

void Log::levelIs(Kiv::LogSeverity severity) {
  least = severity;
}
