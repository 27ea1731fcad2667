// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "tests/kernel/KernelFixture.h"

namespace BfnTest {

/// Two tunnel ends with a host at each, as they are on any Linux machine: the near host 10.1.0.1 at
/// this process, which is the near end, with the VXLAN device vx0; the far end, and the far host
/// 10.1.0.2. The underlay and the hosts have IPv4 and IPv6.
class TunnelFixture : public KernelFixture {
 protected:
  /// The near host's own MAC as tcpdump prints the source of a frame.
  static constexpr char kNearsOwn[] = "02:aa:00:00:00:01 > ";
  /// Sends a tagged frame with IPv4 inside, from the near host's address to the far one's, in VLAN
  /// 300 with priority 1; a line for the near host.
  static std::string sendTagged();

  void SetUp() override;

  /// Runs a line of the shell on the host, null for the near end; it has to succeed.
  static void on(OtherHost const* host, std::string const& line);
  /// The first frames that pass `filter` at the far host while `line` runs on the near one, as
  /// tcpdump prints them, a line each.
  std::string captured(size_t frames, std::string const& filter, std::string const& line) const;
  /// The same at `where` by `device`, while `line` runs on `from`, null for the near end.
  std::string captured(size_t frames, std::string const& filter, std::string const& line,
                       OtherHost const& where, std::string const& device,
                       OtherHost const* from) const;

  std::unique_ptr<OtherHost> nearHost_;
  std::unique_ptr<OtherHost> farEnd_;
  std::unique_ptr<OtherHost> farHost_;
};

}  // namespace BfnTest
