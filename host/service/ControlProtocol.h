// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace Host {

/// The version of what a service and its clients say to each other. See ControlServer.
inline constexpr int kControlProtocol = 1;
inline constexpr char kControlSocket[] = "/run/macrewrite/control";

}  // namespace Host
