// SPDX-License-Identifier: Apache-2.0
#include "framework/prettyout/TextRenderer.h"

#include <algorithm>
#include <cstring>

namespace prettyout {

namespace {

std::string_view textOf(Attribute const& attribute) {
  return attribute.value;
}
std::string_view textOf(std::string_view text) {
  return text;
}

// Addresses and names are a few bytes long. Two overlapping moves of a fixed size are a fraction of
// the cost of a call to copy them.
char* copyShort(char* to, std::string_view text) {
  size_t const size = text.size();
  char const* const from = text.data();
  if (size > 32) {
    std::memcpy(to, from, size);
  } else if (size >= 16) {
    std::memcpy(to, from, 16);
    std::memcpy(to + size - 16, from + size - 16, 16);
  } else if (size >= 8) {
    std::memcpy(to, from, 8);
    std::memcpy(to + size - 8, from + size - 8, 8);
  } else if (size >= 4) {
    std::memcpy(to, from, 4);
    std::memcpy(to + size - 4, from + size - 4, 4);
  } else {
    for (size_t i = 0; i < size; ++i) to[i] = from[i];
  }
  return to + size;
}

// Writes a whole block of blanks where that fits into the overrun, whatever the count.
char* pad(char* to, size_t count) {
  static_assert(OutputBuffer::kOverrun >= 32);
  if (count <= 32) {
    std::memset(to, ' ', 32);
  } else {
    std::memset(to, ' ', count);
  }
  return to + count;
}

template <class Item>
void writeRow(OutputBuffer& buffer, Columns const& format, std::span<Item const> items) {
  size_t size = format.tail.size();
  for (size_t i = 0; i < items.size(); ++i) {
    Column const& column = format.columns[i];
    size += column.literal.size() + std::max<size_t>(column.width, textOf(items[i]).size());
  }
  char* at = buffer.room(size);
  for (size_t i = 0; i < items.size(); ++i) {
    Column const& column = format.columns[i];
    std::string_view const text = textOf(items[i]);
    size_t const blanks = column.width > text.size() ? column.width - text.size() : 0;
    at = copyShort(at, column.literal);
    if (!column.left && blanks > 0) at = pad(at, blanks);
    at = copyShort(at, text);
    if (column.left && blanks > 0) at = pad(at, blanks);
  }
  copyShort(at, format.tail);
  buffer.commit(size);
}

}  // namespace

void TextRenderer::doAddAttributes(Columns const& format, std::span<Attribute const> attributes) {
  writeRow(buffer(), format, attributes);
}

void TextRenderer::doAddFrills(Columns const& format, std::span<std::string_view const> texts) {
  writeRow(buffer(), format, texts);
}

}  // namespace prettyout
