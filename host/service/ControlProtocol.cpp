// SPDX-License-Identifier: Apache-2.0
#include "host/service/ControlProtocol.h"

#include <cerrno>
#include <sys/socket.h>
#include <system_error>

namespace Host {

sockaddr_un controlAddress(std::string const& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
  }
  path.copy(address.sun_path, path.size());
  return address;
}

}  // namespace Host
