// SPDX-License-Identifier: Apache-2.0
#include "framework/prettyout/Printer.h"

#include <utility>

#include "framework/generic/Type.h"
#include "framework/prettyout/JsonRenderer.h"
#include "framework/prettyout/TextRenderer.h"

namespace prettyout {

namespace {

std::unique_ptr<Renderer> makeRenderer(Format format, OutputBuffer& buffer) {
  if (format == Format::Json) return std::make_unique<JsonRenderer>(buffer);
  return std::make_unique<TextRenderer>(buffer);
}

}  // namespace

Printer::Printer(Format format, size_t limit, Sink sink)
    : format_(format), buffer_(limit, std::move(sink)), renderer_(makeRenderer(format, buffer_)) {}

Kiv::Type const& Printer::fwkType() const {
  return _kivType();
}

Kiv::Type const& Printer::_kivType() {
  static Kiv::Type const type("prettyout::Printer", &Kiv::PtrInterface::_kivType(), {});
  return type;
}

}  // namespace prettyout
