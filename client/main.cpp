// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <unistd.h>

#include "client/Connection.h"
#include "client/Remote.h"
#include "client/ServicePrompt.h"
#include "client/StoreEditor.h"
#include "client/StorePrompt.h"
#include "client/Support.h"
#include "client/Watch.h"
#include "framework/log/LogService.h"
#include "host/language/InputError.h"
#include "host/language/JsonText.h"
#include "host/language/Lexer.h"
#include "host/prompt/Prompt.h"
#include "host/service/ControlProtocol.h"

namespace {

using nlohmann::json;

enum ExitStatus : int { Done = 0, Refused = 1, BadInput = 2, NoDaemon = 4 };

constexpr char kExamples[] =
    "Examples:\n"
    "  macrewrite                             a prompt; help lists the commands\n"
    "  macrewrite status                      ten lines; exit status 0 when the agent is ready\n"
    "  macrewrite show running-config         an answer of the service\n"
    "  macrewrite watch show chip             again after each change\n"
    "  macrewrite load operator.cfg           lines of a file; operator's alone: all or none\n"
    "  macrewrite < operator.cfg              lines of standard input, up to one that fails\n"
    "  macrewrite --database redis://10.0.0.9 show running-config\n"
    "                                         the configuration of all switches at that store\n"
    "  macrewrite --database redis://10.0.0.9 load fabric.cfg\n"
    "                                         the same over that store: all lines or none\n"
    "  macrewrite status --support case.txt   what a support case needs, in one file\n"
    "\n"
    "One argument is a whole line; several are its words.\n"
    "\n"
    "Exit status:\n"
    "  0  done\n"
    "  1  refused\n"
    "  2  bad input\n"
    "  4  no service";

struct Options {
  std::string socket = Host::kControlSocket;
  std::string database;
  std::string switchName;
  Host::StoreOptions store;
  Remote::Options remote;
  std::vector<std::string> words;
};

int runPrompt(Host::PromptTarget& target) {
  Host::runPrompt(target, {"macrewrite", "client-history", false, ""});
  return Done;
}

int runLines(Responder& responder, Options const& options) {
  Remote remote(responder, std::cout, std::cerr, options.remote);
  std::vector<std::string> const& words = options.words;
  if (words.empty()) return remote.stream(std::cin, "stdin", {});
  return remote.line(words.size() == 1 ? words[0] : Host::lineOf(words));
}

// --- The store, without a service

int runEditor(Options const& options) {
  Kiv::LogService::sinkIs(
      [](Kiv::LogMessage const& message) { std::cerr << Kiv::toString(message) << std::endl; });
  StoreEditor editor(options.database, options.store, options.switchName);
  if (!options.words.empty() || ::isatty(STDIN_FILENO) == 0) return runLines(editor, options);
  StorePrompt prompt(editor, options.switchName.empty() ? "store" : options.switchName,
                     options.remote);
  return runPrompt(prompt);
}

// --- A service

int runWatch(Connection& connection, Options const& options, std::string const& line) {
  json const failed = watch(connection, options.remote.json, line);
  if (failed.is_null()) return Refused;
  std::cerr << "error: " << failed["error"].get<std::string>() << std::endl;
  return failed.value("status", 1) == 2 ? BadInput : Refused;
}

int status(Connection& connection, Options const& options) {
  json const answer = connection.ask({{"line", "status"}});
  std::cout << (options.remote.json ? Host::jsonText(answer["answer"]) : answer.value("text", ""))
            << std::endl;
  return answer["answer"]["agent"]["ready"].get<bool>() ? Done : Refused;
}

int support(Connection& connection, std::string const& file) {
  std::ofstream out(file);
  writeSupport(out, connection);
  if (!out.flush()) {
    std::cerr << "error: " << file << " cannot be written" << std::endl;
    return BadInput;
  }
  std::cout << file << " has been written" << std::endl;
  return Done;
}

int run(Options const& options) {
  if (!options.database.empty()) return runEditor(options);
  if (options.words.empty() && ::isatty(STDIN_FILENO) == 1) {
    ServicePrompt prompt(options.socket, options.remote);
    return runPrompt(prompt);
  }
  Connection connection(options.socket);
  std::vector<std::string> const& words = options.words;
  if (words.empty()) return runLines(connection, options);
  if (words[0] == "watch" && words.size() > 1) {
    std::vector<std::string> const rest(words.begin() + 1, words.end());
    return runWatch(connection, options, rest.size() == 1 ? rest[0] : Host::lineOf(rest));
  }
  if (words[0] == "status" && words.size() == 1) return status(connection, options);
  if (words[0] == "status" && words[1] == "--support" && words.size() <= 3) {
    return support(connection, words.size() == 3 ? words[2] : "macrewrite-support.txt");
  }
  return runLines(connection, options);
}

int parseAndRun(int argc, char** argv) {
  Options options;
  CLI::App app{"The operator's lines to the MAC rewrite service."};
  app.footer(kExamples);
  app.prefix_command();
  // In the line of usage: the words after the options are none of its positionals.
  app.get_formatter()->label("OPTIONS", "OPTIONS] [COMMAND...");
  app.add_option("--socket", options.socket,
                 "the service's control socket (default: /run/macrewrite/control)")
      ->type_name("PATH");
  app.add_option("--database", options.database,
                 "edit the configuration in that store, without a service")
      ->type_name("URL");
  app.add_option("--switch", options.switchName,
                 "the configuration of that switch alone, below its name in that store")
      ->type_name("NAME");
  app.add_option("--user", options.store.user, "the user at that store")->type_name("NAME");
  app.add_option("--secret-file", options.store.secretFile, "the file of the user's secret")
      ->type_name("FILE");
  app.add_flag("--json", options.remote.json, "every answer is a JSON line");
  app.add_flag("--keep-going", options.remote.keepGoing,
               "a line that fails is reported, and the next one is carried out");
  app.set_version_flag("--version", "macrewrite " MACREWRITE_VERSION);
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    return app.exit(error) == 0 ? Done : BadInput;
  }
  options.words = app.remaining();
  return run(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::ios::sync_with_stdio(false);
    return parseAndRun(argc, argv);
  } catch (NoService const& error) {
    std::cout.flush();
    std::cerr << "macrewrite: " << error.what() << std::endl;
    return NoDaemon;
  } catch (Host::StoreError const& error) {
    std::cerr << "macrewrite: " << error.what() << std::endl;
    return NoDaemon;
  } catch (std::exception const& error) {
    std::cout.flush();
    std::cerr << "macrewrite: error: " << error.what() << std::endl;
    return BadInput;
  }
}
