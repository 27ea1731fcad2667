// SPDX-License-Identifier: Apache-2.0
// Any bytes as UTF-8: the text is valid and gives the bytes back, and reading any text fails never.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string_view>

#include "framework/core/Fatal.h"
#include "framework/values/Utf8.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, size_t size) {
  std::string_view const bytes(reinterpret_cast<char const*>(data), size);
  std::string const text = Kiv::utf8FromBytes(bytes);
  KIV_CHECK(Kiv::bytesFromUtf8(text) == bytes, bytes);
  KIV_CHECK(nlohmann::json::accept(nlohmann::json(text).dump()), bytes);  // throws what is no UTF-8
  (void)Kiv::bytesFromUtf8(bytes);
  return 0;
}
