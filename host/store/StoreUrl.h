// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "framework/core/Types.h"

namespace Host {

/// Where a store is:
///
///   memory                       in this process, empty at its start
///   sqlite:FILE                  a file of this machine, for one process
///   redis://HOST[:PORT][/DB]     a Redis server; an IPv6 address in brackets
///   redis+unix://PATH[?db=DB]    the same through a socket of this machine
struct StoreUrl {
  enum class Kind : Kiv::U8 { Memory, Sqlite, Redis };
  static constexpr Kiv::U16 kRedisPort = 6379;

  Kind kind = Kind::Memory;
  std::string path;  ///< of the file or the socket
  std::string host;  ///< empty: the socket
  Kiv::U16 port = kRedisPort;
  unsigned database = 0;
  std::string text;  ///< as it was given

  StoreUrl() : text("memory") {}
  /// Throws Kiv::RangeException, with the text and what is wrong with it.
  explicit StoreUrl(std::string_view url);
};

}  // namespace Host
