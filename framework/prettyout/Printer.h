// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>

#include "framework/core/PtrInterface.h"
#include "framework/prettyout/OutputBuffer.h"
#include "framework/prettyout/Renderer.h"

namespace prettyout {

/// The forms of output that a command can be asked for, with the numbers used in requests.
enum class Format : Kiv::U32 {
  Text = 0,
  Json = 1,
  kText = Text,  ///< the earlier name
  kJson = Json,  ///< the earlier name
};

/// A command's output from the renderer to the sink: the renderer of the requested form, and the
/// bounded buffer that it writes to. Both keep their state from slice to slice.
class Printer final : public Kiv::PtrInterface {
 public:
  /// `limit`: bytes that may wait for the sink before the printer counts as full, at least 1.
  Printer(Format format, size_t limit, Sink sink);

  Format format() const { return format_; }
  Renderer& renderer() { return *renderer_; }
  OutputBuffer& buffer() { return buffer_; }
  OutputBuffer const& buffer() const { return buffer_; }

  Kiv::Type const& fwkType() const override;
  static Kiv::Type const& _kivType();

 private:
  Format format_;
  OutputBuffer buffer_;
  std::unique_ptr<Renderer> renderer_;
};

}  // namespace prettyout
