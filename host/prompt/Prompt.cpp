#include "host/prompt/Prompt.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <histedit.h>
#include <memory>
#include <ostream>

namespace Host {

namespace {

constexpr char const* kPrompt = "lab> ";

char const* promptText(EditLine* /*line*/) {
  return kPrompt;
}

// What all words have in common at their beginning.
std::string commonStart(std::vector<std::string> const& words) {
  std::string common = words[0];
  for (std::string const& word : words) {
    auto const [end, other] = std::ranges::mismatch(common, word);
    common.erase(end, common.end());
  }
  return common;
}

unsigned char complete(EditLine* editor, int /*key*/) {
  void* client = nullptr;
  el_get(editor, EL_CLIENTDATA, &client);
  LineInfo const* const info = el_line(editor);
  std::string_view const line(info->buffer, static_cast<std::size_t>(info->cursor - info->buffer));
  auto const words = completionsOf(line, *static_cast<Shell*>(client));
  if (words.empty()) return CC_REFRESH_BEEP;

  std::size_t const typed = line.size() - (line.find_last_of(" \t") + 1);
  std::string more = commonStart(words).substr(typed);
  if (words.size() == 1) more += ' ';
  if (!more.empty()) return el_insertstr(editor, more.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
  std::fputc('\n', stdout);
  for (std::string const& word : words) std::printf("%s  ", word.c_str());
  std::fputc('\n', stdout);
  std::fflush(stdout);
  return CC_REDISPLAY;
}

struct CloseEditor {
  void operator()(EditLine* editor) const { el_end(editor); }
};
struct CloseHistory {
  void operator()(History* history) const { history_end(history); }
};

}  // namespace

void runPrompt(Shell& shell, std::ostream& err) {
  std::unique_ptr<EditLine, CloseEditor> const editor(
      el_init("macrewrite-lab", stdin, stdout, stderr));
  std::unique_ptr<History, CloseHistory> const past(history_init());
  HistEvent event;
  history(past.get(), &event, H_SETSIZE, 1000);
  history(past.get(), &event, H_SETUNIQUE, 1);
  el_set(editor.get(), EL_CLIENTDATA, &shell);
  el_set(editor.get(), EL_PROMPT, promptText);
  el_set(editor.get(), EL_EDITOR, "emacs");
  el_set(editor.get(), EL_HIST, ::history, past.get());
  el_set(editor.get(), EL_ADDFN, "lab-complete", "complete the word", complete);
  el_set(editor.get(), EL_BIND, "^I", "lab-complete", nullptr);
  el_set(editor.get(), EL_SIGNAL, 1);

  while (!shell.exited()) {
    int length = 0;
    char const* const line = el_gets(editor.get(), &length);
    if (line == nullptr || length <= 0) break;
    std::string_view text(line, static_cast<std::size_t>(length));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
    if (text.empty()) continue;
    history(past.get(), &event, H_ENTER, std::string(text).c_str());
    shell.runLine(text, err);
  }
}

}  // namespace Host
