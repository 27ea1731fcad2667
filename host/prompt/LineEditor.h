// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/prompt/KeyReader.h"

struct editline;
struct history;

namespace Host {

/// Reads lines from the terminal on standard input, with editing, a history and the keys that ask
/// what may come next.
class LineEditor {
 public:
  struct Hooks {
    /// What the tab key may make of the last word of the text before the cursor.
    std::function<std::vector<std::string>(std::string_view)> complete;
    /// Lines that say what may follow the text before the cursor.
    std::function<std::vector<std::string>(std::string_view)> explain;
    /// Whether the text before the cursor ends within quotes, where `?` is a character.
    std::function<bool(std::string_view)> inQuotes;
    std::function<bool()> interrupted;
    /// KeyReader::Hooks::due.
    std::function<std::optional<double>()> due;
  };
  enum class Result { Line, End, Interrupted, Damaged };

  /// `prompt` may have escape sequences between two bytes 0x01. Reads ~/.editrc, of which lines
  /// may be for one program.
  LineEditor(std::string const& program, std::string prompt, Hooks hooks);
  LineEditor(LineEditor const&) = delete;
  LineEditor& operator=(LineEditor const&) = delete;
  ~LineEditor();

  /// The next line, without its end. Damaged: the terminal sent bytes that are no UTF-8.
  Result read(std::string& line);

  /// Removes the line from the terminal, so that something else can be written there.
  static void hide();
  /// Draws it again.
  void redraw();

  void addToHistory(std::string const& line);
  /// Reads the history from a file and keeps it there from now on. Without effect when the file
  /// cannot be read or written.
  void historyFileIs(std::string const& file);

 private:
  struct CloseEditor {
    void operator()(editline* editor) const;
  };
  struct CloseHistory {
    void operator()(history* past) const;
  };
  static unsigned char completeKey(editline* editor, int key);
  static unsigned char explainKey(editline* editor, int key);
  unsigned char complete();
  unsigned char explain();
  std::string textBeforeCursor() const;
  void bindKeys();
  /// Draws the line again when the terminal has another size.
  void resize();

  std::string const prompt_;
  Hooks const hooks_;
  KeyReader keys_;
  std::string historyFile_;
  unsigned rows_ = 0;
  unsigned columns_ = 0;
  std::unique_ptr<history, CloseHistory> history_;
  std::unique_ptr<editline, CloseEditor> editor_;
};

}  // namespace Host
