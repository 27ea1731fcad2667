// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/prettyout/Renderer.h"

namespace prettyout {

/// One JSON object (RFC 8259, in UTF-8, without blanks) and a line end. A dictionary is an object
/// under its name, an entry an object under its attribute's value, an attribute a string member;
/// frills print nothing.
///
/// The output is valid whatever bytes a name or a value holds: quotes, backslashes and control
/// bytes are escaped, and what is not UTF-8 is written one-to-one as Kiv::utf8FromBytes() does it,
/// so that different names are different keys; Kiv::bytesFromUtf8() gives a name back. Members are
/// written as they come: keys that the caller repeats are repeated.
class JsonRenderer final : public Renderer {
 public:
  /// `buffer` has to outlive the renderer.
  explicit JsonRenderer(OutputBuffer& buffer) : Renderer(buffer) {}

 private:
  void doStart() override;
  void doEnd() override;
  void doOpen(std::string_view key) override;
  void doClose() override;
  void doAddAttributes(Columns const& format, std::span<Attribute const> attributes) override;
  void doAddFrills(Columns const&, std::span<std::string_view const>) override {}
};

}  // namespace prettyout
