// SPDX-License-Identifier: Apache-2.0
// What makes another version of the service, to which one of the leaves is upgraded.
#include "host/service/Version.h"

char const* Host::serviceVersion() {
  return HOST_VERSION "+next";
}
