#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include "lab/language/InputError.h"
#include "lab/language/Lexer.h"
#include "lab/prompt/Prompt.h"
#include "lab/shell/Shell.h"

// Reads any bytes as lines of the command language and finds their commands, without carrying them
// out: that would leave the process with files, and with the plug-in's fatal checks.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static std::ostringstream out;
  static Lab::LabHost host{Lab::Plugin(LAB_PLUGIN)};
  static Lab::Shell shell(host, out);
  std::istringstream in(std::string(reinterpret_cast<char const*>(data), size));
  std::string line;
  while (std::getline(in, line)) {
    try {
      auto const words = Lab::splitWords(line);
      for (std::string const& word : words) {
        // What is shown of a word reads back as that word.
        if (word.find("==") == std::string::npos) {
          auto const again = Lab::splitWords(Lab::quotedWord(word));
          if (again.size() != 1 || again[0] != word) __builtin_trap();
        }
      }
      if (!words.empty()) shell.table().find(words);
    } catch (Lab::InputError const&) {
    }
    (void)Lab::completionsOf(line, shell);
  }
  return 0;
}
