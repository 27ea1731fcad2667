// SPDX-License-Identifier: Apache-2.0
#include "host/shell/LineError.h"

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <optional>
#include <utility>

#include "host/language/Lexer.h"

namespace Host {

namespace {

/// The locale in which bytes are UTF-8, for the thread, as long as this lives.
class Utf8Locale {
 public:
  Utf8Locale() : own_(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), before_(::uselocale(own_)) {}
  Utf8Locale(Utf8Locale const&) = delete;
  Utf8Locale& operator=(Utf8Locale const&) = delete;
  ~Utf8Locale() {
    ::uselocale(before_);
    if (own_ != nullptr) ::freelocale(own_);
  }

 private:
  locale_t own_;
  locale_t before_;
};

/// Calls `f(bytes, columns)` for each character; a byte that belongs to none is one.
template <class F>
void forEachCharacter(std::string_view text, F const& f) {
  Utf8Locale const locale;
  std::mbstate_t state{};
  while (!text.empty()) {
    wchar_t character = 0;
    size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
    bool const known = length > 0 && length <= text.size();
    if (!known) {
      state = {};
      length = 1;
    }
    int const width = known ? ::wcwidth(character) : 1;
    f(text.substr(0, length), static_cast<size_t>(std::max(width, 0)));
    text.remove_prefix(length);
  }
}

size_t charactersIn(std::string_view text) {
  size_t count = 0;
  forEachCharacter(text, [&](std::string_view, size_t) { ++count; });
  return count;
}

// `place`: a byte of the line, or one after its end.
std::string pointedAt(std::string_view line, size_t place) {
  size_t const byte = std::min(place, line.size());
  constexpr size_t kBefore = 60;
  constexpr size_t kAfter = 60;
  constexpr std::string_view kIndent = "  ";
  auto const continues = [&](size_t at) {
    return at < line.size() && (static_cast<unsigned char>(line[at]) & 0xc0) == 0x80;
  };
  size_t begin = byte > kBefore ? byte - kBefore : 0;
  while (continues(begin)) ++begin;
  size_t end = std::min(line.size(), byte + kAfter);
  while (continues(end)) ++end;
  std::string shown(kIndent);
  std::string below(kIndent);
  if (begin > 0) {
    shown += "...";
    below += "   ";
  }
  for (char const c : line.substr(begin, end - begin)) {
    shown += static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? ' ' : c;
  }
  if (end < line.size()) shown += "...";
  forEachCharacter(line.substr(begin, byte - begin), [&](std::string_view bytes, size_t columns) {
    bool const control = static_cast<unsigned char>(bytes[0]) < ' ' || bytes[0] == '\x7f';
    below.append(control ? 1 : columns, ' ');
  });
  below.append(place - byte, ' ');
  return shown + '\n' + below + "^\n";
}

// Where the word begins; after the last one for the end of the line.
std::optional<size_t> byteOf(std::string_view line, size_t word) {
  try {
    auto const words = lineWords(line);
    if (word < words.size()) return words[word].begin;
    // A place for the word that is missing.
    if (word == words.size()) return words.empty() ? 0 : words.back().end + 1;
  } catch (InputError const&) {
    // The line was carried out with other words than these.
  }
  return std::nullopt;
}

}  // namespace

std::string caretAt(std::string_view line, size_t word) {
  auto const byte = byteOf(line, word);
  return byte ? pointedAt(line, *byte) : "";
}

LineError::LineError(std::string const& name, size_t number, std::string_view source,
                     InputError const& error)
    : text(name + ':' + std::to_string(number) + ": error: " + error.what()),
      file(name),
      line(number) {
  InputFault const& fault = error.fault();
  auto const byte = fault.word ? byteOf(source, *fault.word) : fault.byte;
  if (byte) {
    size_t const at = std::min(*byte, source.size());
    column = charactersIn(source.substr(0, at)) + 1 + (*byte - at);
    caret = pointedAt(source, *byte);
  }
  if (!fault.expected.empty()) expected = fault.expected;
  if (fault.found) found = *fault.found;
}

nlohmann::json LineError::json() const {
  return {{"column", column}, {"error", text},  {"expected", expected},
          {"file", file},     {"found", found}, {"line", line}};
}

}  // namespace Host
