// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/prettyout/Renderer.h"

namespace prettyout {

/// Rows and frills in their columns, for people and for scripts that cut lines; dictionaries print
/// nothing. Bytes are written as they come.
class TextRenderer final : public Renderer {
 public:
  /// `buffer` has to outlive the renderer.
  explicit TextRenderer(OutputBuffer& buffer) : Renderer(buffer) {}

 private:
  void doStart() override {}
  void doEnd() override {}
  void doOpen(std::string_view) override {}
  void doClose() override {}
  void doAddAttributes(Columns const& format, std::span<Attribute const> attributes) override;
  void doAddFrills(Columns const& format, std::span<std::string_view const> texts) override;
};

}  // namespace prettyout
