// SPDX-License-Identifier: Apache-2.0
#include "host/language/JsonText.h"

#include <algorithm>
#include <utility>

#include "framework/values/Utf8.h"

namespace Host {

namespace {

using nlohmann::json;

bool isAscii(std::string_view text) {
  return std::none_of(text.begin(), text.end(),
                      [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

/// Whether every key and every text satisfies `holds`.
template <class Holds>
bool allTexts(json const& value, Holds const& holds) {
  if (value.is_string()) return holds(value.get_ref<std::string const&>());
  if (value.is_object()) {
    for (auto const& member : value.items()) {
      if (!holds(member.key())) return false;
    }
  }
  return !value.is_structured() || std::all_of(value.begin(), value.end(), [&](json const& part) {
    return allTexts(part, holds);
  });
}

/// The same with each key and each text mapped.
template <class Map>
json mapped(json const& value, Map const& map) {
  if (value.is_string()) return map(value.get_ref<std::string const&>());
  if (value.is_array()) {
    json list = json::array();
    for (json const& part : value) list.push_back(mapped(part, map));
    return list;
  }
  if (value.is_object()) {
    json object = json::object();
    for (auto const& member : value.items()) {
      object[map(member.key())] = mapped(member.value(), map);
    }
    return object;
  }
  return value;
}

}  // namespace

std::string jsonText(json const& value) {
  // Large dumps are ASCII, and are not copied.
  return allTexts(value, isAscii) ? value.dump() : mapped(value, Kiv::utf8FromBytes).dump();
}

json parsedJson(std::string_view text) {
  json value = json::parse(text, nullptr, false);
  return allTexts(value, isAscii) ? value : mapped(value, Kiv::bytesFromUtf8);
}

}  // namespace Host
