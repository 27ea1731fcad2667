// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "framework/core/Types.h"

namespace prettyout {

/// One column: the literal text before it, then a value padded with blanks to `width`. A value
/// longer than its column is never cut.
struct Column {
  std::string_view literal;
  Kiv::U32 width = 0;
  bool left = false;
};

/// A parsed format of any number of columns, as the renderers see it.
struct Columns {
  std::span<Column const> columns;
  std::string_view tail;  ///< the literal text after the last column
};

/// A printf-like format with exactly `kCount` columns, parsed by the compiler. Only literals
/// convert to it, and the only conversion it knows is `%s` with an optional `-` (left-aligned) and
/// an optional width up to 4096; anything else, and a wrong number of columns, does not compile.
/// Data can therefore never be taken for a format. A '%' sign is written through an argument.
///
///   ColumnFormat<3> row = "%-15s %-20s %-20s\n";
template <size_t kCount>
class ColumnFormat {
 public:
  template <size_t kSize>
  // NOLINTNEXTLINE(google-explicit-constructor): a literal reads as the format it is
  consteval ColumnFormat(char const (&text)[kSize]) {
    std::string_view const format(text, kSize - 1);
    size_t at = 0;
    for (Column& column : columns_) {
      size_t const percent = format.find('%', at);
      if (percent == std::string_view::npos) throw "fewer columns in the format than arguments";
      column.literal = format.substr(at, percent - at);
      at = percent + 1;
      if (at < format.size() && format[at] == '-') {
        column.left = true;
        ++at;
      }
      if (at < format.size() && format[at] == '0') throw "a width does not start with 0";
      for (; at < format.size() && format[at] >= '0' && format[at] <= '9'; ++at) {
        column.width = column.width * 10 + static_cast<Kiv::U32>(format[at] - '0');
        if (column.width > 4096) throw "the column is too wide";
      }
      if (at == format.size() || format[at] != 's') throw "only %s, with '-' and width, is known";
      ++at;
    }
    tail_ = format.substr(at);
    if (tail_.find('%') != std::string_view::npos) throw "more columns than arguments";
  }

  Columns columns() const { return {columns_, tail_}; }

 private:
  std::array<Column, kCount> columns_{};
  std::string_view tail_;
};

}  // namespace prettyout
