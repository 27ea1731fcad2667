// SPDX-License-Identifier: Apache-2.0
#include "tests/host/shell/ShellFixture.h"

namespace BfnTest {

ShellFixture::ShellFixture(Host::ShellOptions const& options, bool reconcile)
    : host(Host::Plugin(LAB_PLUGIN), {nullptr, reconcile}), shell(host, out, options) {}

Host::Shell::Status ShellFixture::run(std::string const& lines) {
  std::istringstream in(lines);
  out.str({});
  err.str({});
  return shell.runStream(in, "case", err);
}

std::string ShellFixture::printed(std::string const& lines) {
  EXPECT_EQ(run(lines), Host::Shell::Done) << err.str();
  return out.str();
}

void ShellFixture::bringUp() {
  printed(
      "host profile routing rewrite supported table-size 1000\n"
      "host use profile routing\n"
      "host agent create\n"
      "host init-tables true\n"
      "host start true\n"
      "host vrf red id 7\n"
      "host routing-status port Ethernet1 key-vlan 0 vlan 1006 vrf-id 7\n");
}

}  // namespace BfnTest
