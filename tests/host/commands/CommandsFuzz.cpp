// SPDX-License-Identifier: Apache-2.0
#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include "host/language/InputError.h"
#include "host/language/Lexer.h"
#include "host/prompt/Prompt.h"
#include "host/shell/Shell.h"
#include "lab/ShellTarget.h"

// Reads any bytes as lines of the command language and finds their commands, without carrying them
// out: that would leave the process with files, and with the plug-in's fatal checks.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, size_t size) {
  static std::ostringstream out;
  static Host::Switch host{Host::Plugin(LAB_PLUGIN)};
  static Host::Shell shell(host, out);
  static ShellTarget target(shell);
  std::istringstream in(std::string(reinterpret_cast<char const*>(data), size));
  std::string line;
  while (std::getline(in, line)) {
    try {
      auto const words = Host::splitWords(line);
      for (std::string const& word : words) {
        // What is shown of a word reads back as that word.
        if (word.find("==") == std::string::npos) {
          auto const again = Host::splitWords(Host::quotedWord(word));
          if (again.size() != 1 || again[0] != word) __builtin_trap();
        }
      }
      if (!words.empty()) shell.table().find(words);
    } catch (Host::InputError const&) {
    }
    (void)Host::completionsOf(line, target);
  }
  return 0;
}
