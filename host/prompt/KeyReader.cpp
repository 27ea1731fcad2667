// SPDX-License-Identifier: Apache-2.0
#include "host/prompt/KeyReader.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <poll.h>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "host/shell/Interrupt.h"

namespace Host {

namespace {

constexpr char kEscape = '\x1b';
// After the escape.
constexpr std::string_view kPasteBegins = "[200~";
constexpr std::string_view kPasteEnds = "\x1b[201~";

// The number of bytes of a character by its first one; 0 for a byte that begins none.
size_t lengthOf(char byte) {
  auto const first = static_cast<unsigned char>(byte);
  if (first < 0x80) return 1;
  if (first >= 0xc2 && first <= 0xdf) return 2;
  if (first >= 0xe0 && first <= 0xef) return 3;
  if (first >= 0xf0 && first <= 0xf4) return 4;
  return 0;
}

bool continues(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0) == 0x80;
}

// Whether the bytes, as many as the first of them says, are a character.
bool decode(std::string_view bytes, wchar_t& character) {
  constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  if (!std::ranges::all_of(bytes.substr(1), continues)) return false;
  char32_t code = static_cast<unsigned char>(bytes[0]);
  if (bytes.size() > 1) code &= 0x7fu >> bytes.size();
  for (char const byte : bytes.substr(1)) {
    code = code << 6 | (static_cast<unsigned char>(byte) & 0x3fu);
  }
  bool const surrogate = code >= 0xd800 && code <= 0xdfff;
  if (code < kLeast[bytes.size()] || code > 0x10ffff || surrogate) return false;
  character = static_cast<wchar_t>(code);
  return true;
}

std::optional<timespec> timeOf(std::optional<double> seconds) {
  if (!seconds) return std::nullopt;
  constexpr double kNanoseconds = 1e9;
  double const whole = std::floor(*seconds);
  return timespec{static_cast<time_t>(whole), static_cast<long>((*seconds - whole) * kNanoseconds)};
}

}  // namespace

KeyReader::KeyReader(int file, Hooks hooks) : file_(file), hooks_(std::move(hooks)) {}

bool KeyReader::takeDamaged() {
  return std::exchange(damaged_, false);
}

KeyReader::Result KeyReader::readByte(char& byte) {
  if (!ahead_.empty()) {
    byte = ahead_[0];
    ahead_.erase(0, 1);
    return Result::Character;
  }
  InterruptsHeld const held;
  hooks_.signalled();  // a signal may have come since the last wait
  while (!hooks_.interrupted()) {
    pollfd waited{file_, POLLIN, 0};
    auto const wait = timeOf(hooks_.due());
    int const ready = ::ppoll(&waited, 1, wait ? &*wait : nullptr, held.released());
    if (ready == 0) continue;
    if (ready < 0) {
      if (errno != EINTR) return Result::End;
      hooks_.signalled();
      continue;
    }
    ssize_t const count = ::read(file_, &byte, 1);
    if (count == 1) return Result::Character;
    if (count == 0 || (errno != EINTR && errno != EAGAIN)) return Result::End;
  }
  return Result::Interrupted;
}

bool KeyReader::followingByte(char& byte) {
  // A terminal sends the bytes of one key together.
  constexpr int kMilliseconds = 50;
  pollfd waited{file_, POLLIN, 0};
  if (ahead_.empty() && ::poll(&waited, 1, kMilliseconds) != 1) return false;
  return readByte(byte) == Result::Character;
}

bool KeyReader::readBlock() {
  std::string seen;
  while (seen.size() < kPasteBegins.size()) {
    char byte = 0;
    if (!followingByte(byte)) break;
    seen += byte;
    if (!kPasteBegins.starts_with(seen)) break;
  }
  if (seen != kPasteBegins) {
    ahead_.insert(0, seen);
    return false;
  }
  char byte = 0;
  while (!block_.ends_with(kPasteEnds) && readByte(byte) == Result::Character) block_ += byte;
  if (block_.ends_with(kPasteEnds)) block_.resize(block_.size() - kPasteEnds.size());
  return true;
}

bool KeyReader::takeFromBlock(wchar_t& character) {
  size_t const length = lengthOf(block_[0]);
  if (length == 0 || length > block_.size() ||
      !decode(std::string_view(block_).substr(0, length), character)) {
    damaged_ = true;
    block_.erase(0, 1);
    return false;
  }
  block_.erase(0, length);
  if (character == L'\r') character = L'\n';
  // A tabulator is a blank to the language; another control character would be a key.
  if (character == L'\t') character = L' ';
  if ((character < L' ' && character != L'\n') || character == 0x7f) {
    damaged_ = true;
    return false;
  }
  return true;
}

KeyReader::Result KeyReader::next(wchar_t& character) {
  while (true) {
    while (!block_.empty()) {
      pasted_ = true;
      if (hooks_.interrupted()) return Result::Interrupted;
      if (takeFromBlock(character)) return Result::Character;
    }
    pasted_ = false;
    char byte = 0;
    if (auto const result = readByte(byte); result != Result::Character) return result;
    if (byte == kEscape && readBlock()) continue;
    std::string bytes(1, byte);
    size_t const length = lengthOf(byte);
    while (bytes.size() < length && followingByte(byte)) {
      bytes += byte;
      if (continues(byte)) continue;
      ahead_.insert(0, 1, byte);
      bytes.pop_back();
      break;
    }
    if (bytes.size() == length && decode(bytes, character)) return Result::Character;
    damaged_ = true;
  }
}

}  // namespace Host
