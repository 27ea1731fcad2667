// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "framework/core/Types.h"

namespace Kiv {

/// The arguments of one log message, each as text.
class LogString {
 public:
  /// More arguments than this are a programming error, and fatal.
  static constexpr size_t kMaxArgs = 32;

  /// Sets argument `index`, from 0. Arguments before it that were never set are empty.
  void strIs(size_t index, std::string text);
  /// The argument, empty when it was never set.
  std::string_view str(size_t index) const;
  size_t size() const { return texts_.size(); }

 private:
  std::vector<std::string> texts_;
};

/// Puts the arguments in the place of the printf conversions of `format` ("%s", "%d", "%08lx"), in
/// order. Arguments are texts already, so flags, width and precision have no effect. "%%" is a per
/// cent sign, and any other "%" is literal. Arguments are data: whatever bytes one holds, it is
/// never read as a format, and control bytes are shown escaped. A conversion without argument
/// becomes "<missing>".
std::string fillFormat(std::string_view format, LogString const& arguments);

namespace Impl {
/// A hash of all arguments and where each one ends.
U64 logArgsHash(LogString const& arguments, U64 seed);
}  // namespace Impl

}  // namespace Kiv
