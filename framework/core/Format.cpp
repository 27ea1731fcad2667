// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Format.h"

#include <cstdarg>
#include <cstdio>

#include "framework/core/Fatal.h"

namespace Kiv {

String format(char const* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  va_list again;
  va_copy(again, args);

  char small[256];
  int const size = std::vsnprintf(small, sizeof small, fmt, args);
  va_end(args);
  KIV_CHECK(size >= 0, "the format cannot be rendered: ", fmt);

  String result;
  auto const bytes = static_cast<size_t>(size);
  if (bytes < sizeof small) {
    result = String(small, bytes);
  } else {
    result.rep_ = String::allocate(bytes);
    std::vsnprintf(result.rep_->bytes(), bytes + 1, fmt, again);
  }
  va_end(again);
  return result;
}

}  // namespace Kiv
