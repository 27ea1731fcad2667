// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <vector>

#include "host/store/OpenStore.h"
#include "host/store/SqliteDatabase.h"
#include "host/store/SqliteSchema.h"
#include "host/store/Store.h"

namespace Host {

/// A store in an SQLite file, which belongs to this process while it is open. What submit() took is
/// in the file's write-ahead log. There are no changes but this object's own.
class SqliteStore final : public Store {
 public:
  /// Opens the file, see prepareSqliteStore(). Throws StoreRefused.
  SqliteStore(std::string const& file, StoreOptions::Durability durability,
              std::span<SqliteStep const> steps = sqliteSteps());

  std::string name() const override { return "sqlite:" + database_.file(); }
  StoreHead head() override { return head_; }
  void begin() override {}  // it has begun with its file
  StoreSnapshot snapshot() override;
  std::optional<std::vector<StoreEvent>> changes() override;
  StoreVersions submit(std::vector<StoreChange> changes) override;

  /// SQLite's own setting: 1 for Durability::Normal, 2 for Power.
  Kiv::U64 synchronous() { return database_.number("PRAGMA synchronous"); }

 private:
  std::optional<std::string> typeAt(std::string const& path);
  void checkTypes(std::span<StoreChange const> changes);
  // Whether it changed anything.
  bool write(StoreChange const& change);

  // Opened and prepared before the statements are.
  struct Opened : SqliteDatabase {
    Opened(std::string const& file, std::span<SqliteStep const> steps) : SqliteDatabase(file) {
      prepareSqliteStore(*this, steps);
    }
  };

  Opened database_;
  SqliteDatabase::Statement typeOf_;
  SqliteDatabase::Statement make_;
  SqliteDatabase::Statement set_;
  SqliteDatabase::Statement setIfAbsent_;
  SqliteDatabase::Statement del_;
  SqliteDatabase::Statement drop_;
  SqliteDatabase::Statement versionIs_;
  StoreHead head_;
  std::vector<StoreEvent> news_;  // since the last call of changes()
};

}  // namespace Host
