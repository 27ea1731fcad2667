// SPDX-License-Identifier: Apache-2.0
#include "host/store/OpenStore.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "host/store/MemoryStore.h"
#ifdef BFN_STORE_SQLITE
#include "host/store/SqliteStore.h"
#endif
#ifdef BFN_STORE_REDIS
#include "host/store/RedisStore.h"
#endif

namespace Host {

bool hasStore(StoreUrl::Kind kind) {
#ifndef BFN_STORE_SQLITE
  if (kind == StoreUrl::Kind::Sqlite) return false;
#endif
#ifndef BFN_STORE_REDIS
  if (kind == StoreUrl::Kind::Redis) return false;
#endif
  return kind <= StoreUrl::Kind::Redis;
}

std::unique_ptr<Store> openStore(StoreUrl const& url,
                                 [[maybe_unused]] StoreOptions const& options) {
  switch (url.kind) {
    case StoreUrl::Kind::Memory:
      return std::make_unique<MemoryStore>(std::make_shared<MemoryStoreContents>());
    case StoreUrl::Kind::Sqlite:
#ifdef BFN_STORE_SQLITE
      return std::make_unique<SqliteStore>(url.path, options.durability);
#else
      break;
#endif
    case StoreUrl::Kind::Redis:
#ifdef BFN_STORE_REDIS
      return std::make_unique<RedisStore>(url, options);
#else
      break;
#endif
  }
  throw StoreRefused(url.text + ": this build has no such stores");
}

std::string readStoreSecret(std::string const& file) {
  std::string path = file;
  if (file.find('/') == std::string::npos) {
    char const* const directory = std::getenv("CREDENTIALS_DIRECTORY");
    if (directory == nullptr) {
      throw StoreRefused("secret \"" + file + "\": CREDENTIALS_DIRECTORY is not set");
    }
    path = std::string(directory) + "/" + file;
  }
  std::ifstream in(path, std::ios::binary);
  std::string secret{std::istreambuf_iterator<char>(in), {}};
  if (!in) throw StoreRefused("secret " + path + ": " + std::strerror(errno));
  if (secret.ends_with('\n')) secret.pop_back();
  if (secret.empty()) throw StoreRefused("secret " + path + ": it is empty");
  return secret;
}

}  // namespace Host
