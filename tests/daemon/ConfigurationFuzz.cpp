// SPDX-License-Identifier: Apache-2.0
// The service's configuration file, as a fuzzer writes it: it is read, or refused with what is
// wrong and where.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "daemon/Configuration.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Configuration configuration;
  configuration.switchName = "leaf1";
  try {
    readConfiguration(std::string_view(reinterpret_cast<char const*>(data), size), "FILE",
                      configuration);
    configuration.store.secretFile.clear();  // any file of the machine
    faultsOf(configuration);
  } catch (ConfigurationError const& error) {
    // Each fault has its place.
    if (std::string_view(error.what()).substr(0, 5) != "FILE:") std::abort();
  }
  return 0;
}
