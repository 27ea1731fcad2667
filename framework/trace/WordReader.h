// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>
#include <span>

#include "framework/trace/RecordLayout.h"

namespace Ringlog {

/// Reads the arguments of a record back, word by word. Past the end it yields zeroes.
class WordReader {
 public:
  explicit WordReader(std::span<U64 const> words) : words_(words) {}

  U64 word() {
    if (words_.empty()) return 0;
    U64 const value = words_.front();
    words_ = words_.subspan(1);
    return value;
  }

  /// What Message::bytes() wrote. `size` is at most kMaxArgBytes, and `to` has room for it.
  void bytes(void* to, size_t size) {
    auto* out = static_cast<char*>(to);
    while (size > 0) {
      U64 const value = word();
      size_t const part = size < sizeof value ? size : sizeof value;
      std::memcpy(out, &value, part);
      out += part;
      size -= part;
    }
  }

 private:
  std::span<U64 const> words_;
};

}  // namespace Ringlog
