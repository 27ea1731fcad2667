// SPDX-License-Identifier: Apache-2.0
#include "host/service/Version.h"

char const* Host::serviceVersion() {
  return HOST_VERSION;
}
