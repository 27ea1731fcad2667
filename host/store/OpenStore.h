// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "framework/core/Types.h"
#include "host/store/Store.h"
#include "host/store/StoreUrl.h"

namespace Host {

struct StoreOptions {
  enum class Durability : Kiv::U8 {
    Normal,  ///< a change outlives the death of this process; power loss may cost the last ones
    Power,   ///< it outlives power loss, too
  };

  /// Of a file. A server has its own setting.
  Durability durability = Durability::Normal;
  /// The user at a server; empty: the server's default user.
  std::string user;
  /// The file with the user's secret, without its last line end; empty: none. A name without a
  /// slash is a file of the directory $CREDENTIALS_DIRECTORY.
  std::string secretFile;
  /// What the names of all keys at a server begin with.
  std::string prefix = "macrewrite";
  /// Seconds until a server that does not answer counts as away; a long transaction has a second
  /// more for each megabyte.
  double timeout = 2;
};

/// Whether this build has stores of that kind.
bool hasStore(StoreUrl::Kind kind);

/// The store at that place; a file is made when it is not there. A server is connected by the first
/// operation. Throws StoreRefused when the file cannot be opened, belongs to another process or is
/// damaged, and when this build has no stores of that kind.
std::unique_ptr<Store> openStore(StoreUrl const& url, StoreOptions const& options = {});

/// The secret in such a file. Throws StoreRefused.
std::string readStoreSecret(std::string const& file);

}  // namespace Host
