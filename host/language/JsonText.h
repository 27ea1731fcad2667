// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace Host {

/// JSON values of the program hold names as they are, as bytes. As a text they are UTF-8,
/// one-to-one as Kiv::utf8FromBytes() does it, so that different names stay different.

/// In one line, keys sorted.
std::string jsonText(nlohmann::json const& value);

/// Reads such a text. What is no JSON gives a value with is_discarded().
nlohmann::json parsedJson(std::string_view text);

}  // namespace Host
