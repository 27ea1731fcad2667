// SPDX-License-Identifier: Apache-2.0
#include "host/prompt/LineEditor.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <histedit.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace Host {

namespace {

constexpr char kLiteral = '\1';
constexpr int kHistoryLines = 1000;

LineEditor* self(EditLine* editor) {
  void* client = nullptr;
  el_get(editor, EL_CLIENTDATA, &client);
  return static_cast<LineEditor*>(client);
}

// What all words have in common at their beginning, in whole characters.
std::string commonStart(std::vector<std::string> const& words) {
  std::string common = words[0];
  for (std::string const& word : words) {
    auto const [end, other] = std::ranges::mismatch(common, word);
    common.erase(end, common.end());
  }
  while (!common.empty() && std::ranges::any_of(words, [&](std::string const& word) {
    return word.size() > common.size() &&
           (static_cast<unsigned char>(word[common.size()]) & 0xc0) == 0x80;
  })) {
    common.pop_back();
  }
  return common;
}

}  // namespace

void LineEditor::CloseEditor::operator()(editline* editor) const {
  el_end(editor);
}
void LineEditor::CloseHistory::operator()(History* past) const {
  history_end(past);
}

LineEditor::LineEditor(std::string const& program, std::string prompt, Hooks hooks)
    : prompt_(std::move(prompt)),
      hooks_(std::move(hooks)),
      keys_(STDIN_FILENO, {hooks_.interrupted, [this] { resize(); }, hooks_.due}),
      history_(history_init()),
      editor_(el_init(program.c_str(), stdin, stdout, stderr)) {
  HistEvent event;
  ::history(history_.get(), &event, H_SETSIZE, kHistoryLines);
  ::history(history_.get(), &event, H_SETUNIQUE, 1);
  auto* const editor = editor_.get();
  el_set(editor, EL_CLIENTDATA, this);
  el_set(editor, EL_SIGNAL, 1);
  el_set(
      editor, EL_PROMPT_ESC,
      +[](EditLine* line) { return const_cast<char*>(self(line)->prompt_.c_str()); }, kLiteral);
  el_set(
      editor, EL_GETCFN, +[](EditLine* line, wchar_t* character) {
        return self(line)->keys_.next(*character) == KeyReader::Result::Character ? 1 : 0;
      });
  el_set(editor, EL_EDITOR, "emacs");
  el_set(editor, EL_HIST, ::history, history_.get());
  bindKeys();
  el_source(editor, nullptr);
  std::fputs(KeyReader::kMarkPasted, stdout);
  resize();
}

LineEditor::~LineEditor() {
  std::fputs(KeyReader::kDoNotMark, stdout);
  std::fflush(stdout);
}

void LineEditor::bindKeys() {
  auto* const editor = editor_.get();
  el_set(editor, EL_ADDFN, "lab-complete", "complete the word", completeKey);
  el_set(editor, EL_ADDFN, "lab-explain", "list what may come next", explainKey);
  constexpr std::pair<char const*, char const*> kKeys[] = {
      {"^I", "lab-complete"},
      {"?", "lab-explain"},
      {"^R", "em-inc-search-prev"},
      {"^S", "em-inc-search-next"},
      {"\\e[1;5C", "em-next-word"},
      {"\\e[1;5D", "ed-prev-word"},
      {"\\e[3~", "ed-delete-next-char"},
      {"^W", "ed-delete-prev-word"},
  };
  for (auto const& [key, function] : kKeys) el_set(editor, EL_BIND, key, function, nullptr);
}

std::string LineEditor::textBeforeCursor() const {
  LineInfo const* const info = el_line(editor_.get());
  return {info->buffer, info->cursor};
}

unsigned char LineEditor::completeKey(editline* editor, int /*key*/) {
  return self(editor)->complete();
}
unsigned char LineEditor::explainKey(editline* editor, int /*key*/) {
  return self(editor)->explain();
}

unsigned char LineEditor::complete() {
  std::string const text = textBeforeCursor();
  auto const words = hooks_.complete(text);
  if (words.empty()) return CC_REFRESH_BEEP;

  std::string const common = commonStart(words);
  // The words begin with what is typed of them.
  size_t typed = std::min(common.size(), text.size());
  while (!text.ends_with(std::string_view(common).substr(0, typed))) --typed;
  std::string more = common.substr(typed);
  if (words.size() == 1 && !more.ends_with('/')) more += ' ';
  if (!more.empty()) return el_insertstr(editor_.get(), more.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
  return explain();
}

unsigned char LineEditor::explain() {
  std::string const text = textBeforeCursor();
  if (keys_.pasted() || hooks_.inQuotes(text)) {
    return el_insertstr(editor_.get(), "?") == 0 ? CC_REFRESH : CC_ERROR;
  }
  auto const lines = hooks_.explain(text);
  std::fputc('\n', stdout);
  for (std::string const& line : lines) std::printf("%s\n", line.c_str());
  std::fflush(stdout);
  return CC_REDISPLAY;
}

void LineEditor::resize() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return;
  bool const first = rows_ == 0 && columns_ == 0;
  bool const changed = size.ws_row != rows_ || size.ws_col != columns_;
  rows_ = size.ws_row;
  columns_ = size.ws_col;
  if (first || !changed) return;
  hide();
  el_resize(editor_.get());
  redraw();
}

void LineEditor::hide() {
  // The editor draws from the first column on.
  std::fputs("\r\x1b[J", stdout);
  std::fflush(stdout);
}

void LineEditor::redraw() {
  el_set(editor_.get(), EL_REFRESH);
}

LineEditor::Result LineEditor::read(std::string& line) {
  int length = 0;
  char const* const text = el_gets(editor_.get(), &length);
  // What has been echoed precedes whatever the line writes elsewhere.
  std::fflush(stdout);
  bool const damaged = keys_.takeDamaged();
  if (hooks_.interrupted()) {
    keys_.dropPasted();
    el_reset(editor_.get());
    std::fputs("^C\n", stdout);
    std::fflush(stdout);
    return Result::Interrupted;
  }
  if (text == nullptr || length <= 0) return Result::End;
  line.assign(text, static_cast<size_t>(length));
  while (line.ends_with('\n') || line.ends_with('\r')) line.pop_back();
  return damaged ? Result::Damaged : Result::Line;
}

void LineEditor::addToHistory(std::string const& line) {
  HistEvent event;
  ::history(history_.get(), &event, H_ENTER, line.c_str());
  if (historyFile_.empty()) return;
  std::string const next = historyFile_ + ".new";
  if (::history(history_.get(), &event, H_SAVE, next.c_str()) >= 0) {
    std::rename(next.c_str(), historyFile_.c_str());
  }
}

void LineEditor::historyFileIs(std::string const& file) {
  historyFile_ = file;
  HistEvent event;
  ::history(history_.get(), &event, H_LOAD, file.c_str());
}

}  // namespace Host
