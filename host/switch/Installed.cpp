// SPDX-License-Identifier: Apache-2.0
#include "host/switch/Installed.h"

#include <string>
#include <system_error>

namespace Host {

namespace {

constexpr char kPlugin[] = "libBfnMacRewrite.so";
constexpr char kPluginSoname[] = "libBfnMacRewrite.so." HOST_SOVERSION;

std::filesystem::path programFolder() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

}  // namespace

std::filesystem::path installedPlugin() {
  std::error_code error;
  auto const folder = programFolder();
  for (auto const& file : {folder / kPlugin, folder / HOST_BIN_TO_LIB / kPluginSoname}) {
    if (std::filesystem::exists(file, error)) return file.lexically_normal();
  }
  return kPluginSoname;
}

std::filesystem::path installedExamples() {
  return (programFolder() / HOST_BIN_TO_SHARE / "examples").lexically_normal();
}

}  // namespace Host
