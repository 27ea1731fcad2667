// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace Host {

/// Shows texts on the terminal; one that is longer than the terminal goes through less(1), when
/// that is installed.
class Pager {
 public:
  Pager();

  /// The number of lines that a text may have without being paged; 0: any number. Without one, it
  /// is that of the terminal.
  void linesIs(std::optional<size_t> lines) { lines_ = lines; }

  /// A text that ends with a line end. An interrupt stops it.
  void show(std::string const& text) const;

 private:
  bool isLong(std::string const& text) const;

  std::optional<size_t> lines_;
  bool hasProgram_;
};

/// Whether colours may be used on standard output: it is a terminal that is not dumb, and NO_COLOR
/// is not set.
bool usesColours();

}  // namespace Host
