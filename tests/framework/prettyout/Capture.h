// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "framework/core/Ptr.h"
#include "framework/prettyout/Printer.h"

namespace BfnTest {

/// A sink that keeps what it takes, and takes no more than it is allowed to at each call.
struct Capture {
  std::string bytes;
  size_t calls = 0;
  size_t perCall = std::string_view::npos;

  prettyout::Sink sink() {
    return [this](std::string_view offered) {
      ++calls;
      std::string_view const taken = offered.substr(0, perCall);
      bytes += taken;
      return taken.size();
    };
  }
};

/// A printer of the given form with a limit of `limit` bytes, and its output.
struct Output {
  explicit Output(prettyout::Format format, size_t limit = 65536)
      : printer(Kiv::make<prettyout::Printer>(format, limit, capture.sink())) {}

  prettyout::Renderer& renderer() const { return printer->renderer(); }
  std::string const& flushed() const {
    renderer().ioflush();
    return capture.bytes;
  }

  Capture capture;
  Kiv::Ptr<prettyout::Printer> printer;
};

/// The rewrite table's header as its show command prints it.
inline void printHeader(prettyout::Renderer& renderer) {
  renderer.addFrills("\n");
  renderer.addFrills("%-15s %-20s %-20s\n", "VRF name", "Source IP", "Source MAC");
  renderer.addFrills("------------------------------------------------------------\n");
}

/// One row of that table.
inline void printRow(prettyout::Renderer& renderer, std::string_view vrf, std::string_view ip,
                     std::string_view mac) {
  prettyout::Attribute const vrfName{"vrfName", vrf};
  prettyout::Attribute const sip{"sip", ip};
  prettyout::Attribute const smac{"smac", mac};
  renderer.startDictEntry(sip);
  renderer.addAttributes("%-15s %-20s %-20s\n", 3, vrfName, sip, smac);
  renderer.endDictEntry();
}

}  // namespace BfnTest
