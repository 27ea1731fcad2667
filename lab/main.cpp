// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>

#include "framework/core/Hash.h"
#include "framework/trace/TraceHandle.h"
#include "host/kernel/OpenTable.h"
#include "host/prompt/Prompt.h"
#include "host/shell/Shell.h"
#include "host/switch/Installed.h"
#include "lab/ShellTarget.h"

namespace {

constexpr char kExamples[] =
    "Examples:\n"
    "  macrewrite-lab demo                          bring-up, configuration, packets\n"
    "  macrewrite-lab --echo case.lab               each line before its answer\n"
    "  echo 'dump inputs' | macrewrite-lab          commands from standard input\n"
    "  macrewrite-lab --json --trace 9 case.lab     answers for a program, traces on stderr\n"
    "  macrewrite-lab                               a prompt; help lists the commands\n"
    "  macrewrite-lab -c 'dump inputs' case.lab     the file, then a command; - is standard input\n"
    "\n"
    "Exit status:\n"
    "  0  all is well\n"
    "  1  an expectation failed\n"
    "  2  bad input\n"
    "  3  this machine has not what the kernel's table needs";

constexpr char kDemo[] = "demo";
struct Options {
  std::string plugin = Host::installedPlugin().string();
  std::optional<Kiv::U32> hashSeed;
  std::optional<unsigned> traceLevel;
  std::string table = "model";
  std::optional<bool> reconcile;
  Host::ShellOptions shell;
  std::vector<std::string> files;
  std::vector<std::string> commands;
  Host::PromptOptions prompt{"macrewrite-lab", "history", true, ""};
};

Host::SwitchTable tableOf(Options const& options) {
  Host::SwitchTable table;
  table.hardware = Host::openTable(options.table);
  table.reconcile = options.reconcile.value_or(table.hardware != nullptr);
  return table;
}

/// The first of the installed examples, in a new folder of its own, where it writes its files.
std::string demo() {
  auto const example = Host::installedExamples() / "leaf1" / "leaf1.lab";
  if (!std::filesystem::exists(example)) {
    throw std::runtime_error("the examples are not installed: there is no " + example.string());
  }
  std::string folder = std::filesystem::temp_directory_path() / "macrewrite-demo-XXXXXX";
  if (::mkdtemp(folder.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), folder);
  }
  std::filesystem::current_path(folder);
  std::cout << "What is written is in " << folder << std::endl;
  return example.string();
}

int run(Options const& options) {
  if (options.hashSeed) Kiv::HashHelper::hashSeed32Is(*options.hashSeed);
  if (options.traceLevel) {
    Kiv::TraceHandle::defaultLevelsIs((Kiv::U32{2} << *options.traceLevel) - 1);
  }
  Host::Switch host(Host::Plugin(options.plugin), tableOf(options));
  Host::ShellOptions shellOptions = options.shell;
  shellOptions.carets = ::isatty(STDERR_FILENO) == 1;
  Host::Shell shell(host, std::cout, shellOptions);
  if (options.files.empty() && options.commands.empty()) {
    if (::isatty(STDIN_FILENO) == 1) {
      ShellTarget target(shell);
      Host::runPrompt(target, options.prompt);
      return Host::Shell::Done;
    }
    return shell.runStream(std::cin, "stdin", std::cerr);
  }
  // The first status that is none of success is the program's.
  int result = Host::Shell::Done;
  auto const goesOn = [&](Host::Shell::Status status) {
    if (result == Host::Shell::Done) result = status;
    return !shell.exited() && (result == Host::Shell::Done || options.shell.keepGoing);
  };
  for (std::string file : options.files) {
    if (file == kDemo && options.files.size() == 1 && !std::filesystem::exists(file)) file = demo();
    bool const standardInput = file == "-";
    if (!goesOn(standardInput ? shell.runStream(std::cin, "stdin", std::cerr)
                              : shell.runFile(file, std::cerr))) {
      return result;
    }
  }
  for (std::string const& command : options.commands) {
    if (!goesOn(shell.runLine(command, std::cerr))) break;
  }
  return result;
}

int parseAndRun(int argc, char** argv) {
  Options options;
  CLI::App app{"A switch around the MAC rewrite plug-in: operator, host agent, chip and packets."};
  app.footer(kExamples);
  app.add_option("FILE", options.files,
                 "files of commands, - for standard input; none: standard input or a prompt;\n"
                 "demo: the first of the installed examples, unless there is a file of that name")
      ->type_name("");
  app.add_option("-c,--command", options.commands,
                 "a command, after the files; may be given more than once")
      ->type_name("COMMAND")
      ->allow_extra_args(false);
  app.add_flag("--keep-going", options.shell.keepGoing,
               "a line that fails is reported, and the next one is carried out");
  app.add_flag("--warn", options.shell.warn,
               "doubts about lines of files are reported, as at the prompt");
  app.add_flag("--strict", options.shell.strict, "a doubtful line is refused");
  app.add_option("--session-log", options.prompt.sessionLog,
                 "where the prompt keeps the session's lines (default: the user's state folder)")
      ->type_name("FILE");
  app.set_version_flag("--version", Host::versionText());
  app.add_option("--plugin", options.plugin,
                 "the plug-in to open (default: the one installed with this program)")
      ->type_name("PATH");
  app.add_option("--hash-seed", options.hashSeed, "walk hashed collections in a repeatable order")
      ->type_name("N");
  app.add_option("--table", options.table,
                 "where the rows are: the chip model, or the kernel's table, which is kept in DIR\n"
                 "(default: /run/macrewrite)")
      ->check([](std::string const& table) {
        return Host::isTable(table) ? "" : std::string("expected ") + Host::kTableForms;
      })
      ->type_name("model|kernel[:DIR]");
  bool reconcile = false;
  CLI::Option const* const reconcileFlag = app.add_flag(
      "--reconcile,!--no-reconcile", reconcile,
      "whether rows go through the reconciler (default: only into the kernel's table)");
  app.add_flag("--json", options.shell.json, "every answer is a JSON line");
  app.add_option("--trace", options.traceLevel, "traces up to that level as text on standard error")
      ->check(CLI::Range(0u, 30u).description(""))
      ->type_name("LEVEL");
  app.add_flag("--echo", options.shell.echo, "print each line before its answer");
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    return app.exit(error) == 0 ? 0 : Host::Shell::BadInput;
  }
  if (reconcileFlag->count() > 0) options.reconcile = reconcile;
  return run(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::ios::sync_with_stdio(false);
    return parseAndRun(argc, argv);
  } catch (Host::TableUnavailable const& error) {
    std::cerr << "macrewrite-lab: " << error.what() << std::endl;
    return Host::kTableUnavailableStatus;
  } catch (std::exception const& error) {
    std::cout.flush();
    std::cerr << "macrewrite-lab: error: " << error.what() << std::endl;
    return Host::Shell::BadInput;
  }
}
