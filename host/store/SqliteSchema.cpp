// SPDX-License-Identifier: Apache-2.0
#include "host/store/SqliteSchema.h"

#include <array>

namespace Host {

namespace {

// In the file's header, so that `file` and this program know what it is: "KivS".
constexpr Kiv::U64 kApplicationId = 0x4B697653;

constexpr std::array kSteps{
    SqliteStep{1,
               "CREATE TABLE meta(name TEXT PRIMARY KEY, value NOT NULL) WITHOUT ROWID;"
               "CREATE TABLE record(path TEXT PRIMARY KEY, type TEXT NOT NULL) WITHOUT ROWID;"
               "CREATE TABLE entry(path TEXT NOT NULL, collection TEXT NOT NULL,"
               " key TEXT NOT NULL, value TEXT NOT NULL, PRIMARY KEY(path, collection, key))"
               " WITHOUT ROWID;"
               "INSERT INTO meta VALUES('version', 0);"},
};

void takeAlone(SqliteDatabase& database) {
  // Before the write-ahead log is first used: its index is then in this process's memory, and no
  // other process can read or write the file.
  database.run("PRAGMA locking_mode = EXCLUSIVE");
  if (database.value("PRAGMA journal_mode = WAL") != "wal") {
    database.refuse("it cannot have a write-ahead log");
  }
  database.run("BEGIN EXCLUSIVE; COMMIT");
}

}  // namespace

std::span<SqliteStep const> sqliteSteps() {
  return kSteps;
}

void prepareSqliteStore(SqliteDatabase& database, std::span<SqliteStep const> steps) {
  takeAlone(database);
  bool const isNew = database.number("SELECT count(*) FROM sqlite_schema") == 0;
  Kiv::U64 const version = database.number("PRAGMA user_version");
  if (!isNew && database.number("PRAGMA application_id") != kApplicationId) {
    database.refuse("it is no store, but another program's file");
  }
  std::string const findings = database.value("PRAGMA integrity_check(1)");
  if (findings != "ok") database.refuse("it is damaged: " + findings);
  Kiv::U64 const newest = steps.back().version;
  if (version > newest) {
    database.refuse("it is of version " + std::to_string(version) + ", written by a later release");
  }
  if (version == newest) return;
  if (!isNew) database.backUp(database.file() + ".v" + std::to_string(version));
  SqliteTransaction transaction(database);
  for (SqliteStep const& step : steps) {
    if (step.version <= version) continue;
    database.run(step.sql);
  }
  database.run("PRAGMA application_id = " + std::to_string(kApplicationId));
  database.run("PRAGMA user_version = " + std::to_string(newest));
  transaction.commit();
}

}  // namespace Host
