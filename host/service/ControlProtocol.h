// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <sys/un.h>

namespace Host {

/// The version of what a service and its clients say to each other. See ControlServer.
inline constexpr int kControlProtocol = 1;
inline constexpr char kControlSocket[] = "/run/macrewrite/control";

/// The address of a socket at a path. Throws std::system_error when that is too long.
sockaddr_un controlAddress(std::string const& path);

}  // namespace Host
