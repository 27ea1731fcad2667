// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "framework/core/Clock.h"
#include "show/ShowMacRewriteCommandRequestSm.h"
#include "tests/support/PluginHost.h"

// A switch with 65,536 rows, and what the show command lists of it.
namespace BfnBench {

using BfnMacRewrite::ShowMacRewriteCommandRequestSm;
using BfnTest::PluginHost;
using Kiv::U32;

constexpr unsigned kRows = 65'536;

struct Line {
  std::string vrf;
  U32 ip;
  unsigned char mac[6];
};

/// The host of a switch with that many VRFs, kRows rows in all, each with a MAC of its own, and the
/// lines that a listing of them has. The chip is the model, or that of `driver`.
struct Switch {
  explicit Switch(unsigned vrfs, BfnDriver::TableDriver* driver = nullptr) : host(kRows) {
    host.driver = driver;
    host.bringUp();
    char name[32];
    char intf[32];
    for (unsigned i = 0; i < vrfs; ++i) {
      std::snprintf(name, sizeof name, "customer-%04u", i);
      std::snprintf(intf, sizeof intf, "Ethernet%u/%u", i / 64 + 1, i % 64 + 1);
      host.vrf(name, i + 1);
      host.port(intf, i + 1, i + 1);
      unsigned const end = static_cast<unsigned>(size_t{kRows} * (i + 1) / vrfs);
      for (unsigned n = static_cast<unsigned>(size_t{kRows} * i / vrfs); n < end; ++n) {
        Line line{name,
                  0x0a000000u + n * 7,
                  {2, 0, 0, static_cast<unsigned char>(n >> 16), static_cast<unsigned char>(n >> 8),
                   static_cast<unsigned char>(n)}};
        std::string const ip = Ovra::IpAddr(line.ip).valueToStrep().stdString();
        char mac[32];
        std::snprintf(mac, sizeof mac, "02:00:00:%02x:%02x:%02x", line.mac[3], line.mac[4],
                      line.mac[5]);
        host.rewrite(name, ip.c_str(), mac);
        host.address(i + 1, ip.c_str(), intf);
        lines.push_back(std::move(line));
      }
    }
  }

  Kiv::Ptr<ShowMacRewriteCommandRequestSm> command(double maxRunTime, prettyout::Sink sink,
                                                   U32 format = 0) const {
    return BfnMacRewrite::showMacRewriteCommandRequestSmFactory(
        "show", Kiv::make<Agent::AgentCommandRequest const>(1u, format, std::move(sink)),
        maxRunTime, Kiv::make<Kiv::SteadyClock const>(), host.agent->overlaySrcMacRewriteManager(),
        false, L3::VrfName(), false, Ovra::IpAddr(), false, Ovra::EthAddr(), false);
  }

  PluginHost host;
  std::vector<Line> lines;
};

/// The listing, its columns by snprintf.
inline void appendLines(std::string& out, std::vector<Line> const& lines) {
  char text[160];
  char ip[20];
  char mac[20];
  for (Line const& line : lines) {
    std::snprintf(ip, sizeof ip, "%u.%u.%u.%u", line.ip >> 24, line.ip >> 16 & 0xff,
                  line.ip >> 8 & 0xff, line.ip & 0xff);
    std::snprintf(mac, sizeof mac, "%02x:%02x:%02x:%02x:%02x:%02x", line.mac[0], line.mac[1],
                  line.mac[2], line.mac[3], line.mac[4], line.mac[5]);
    int const size =
        std::snprintf(text, sizeof text, "%-15s %-20s %-20s\n", line.vrf.c_str(), ip, mac);
    out.append(text, static_cast<size_t>(size));
  }
}

/// All that the show command prints.
inline std::string listing(std::vector<Line> const& lines) {
  std::string expected = "\n";
  char header[80];
  std::snprintf(header, sizeof header, "%-15s %-20s %-20s\n", "VRF name", "Source IP",
                "Source MAC");
  expected += header + std::string(60, '-') + "\n";
  appendLines(expected, lines);
  expected += "\n";
  return expected;
}

inline prettyout::Sink into(std::string& out) {
  return [&out](std::string_view text) {
    out += text;
    return text.size();
  };
}

}  // namespace BfnBench
