// SPDX-License-Identifier: Apache-2.0
#include "host/store/SqliteDatabase.h"

#include <cstdio>
#include <sqlite3.h>
#include <utility>

namespace Host {

void SqliteDatabase::Close::operator()(sqlite3* database) const {
  sqlite3_close_v2(database);
}

void SqliteDatabase::Statement::Finalize::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

SqliteDatabase::SqliteDatabase(std::string file) : file_(std::move(file)) {
  sqlite3* opened = nullptr;
  int const flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  int const result = sqlite3_open_v2(file_.c_str(), &opened, flags, nullptr);
  database_.reset(opened);
  if (result != SQLITE_OK) fail();
}

void SqliteDatabase::run(std::string const& sql) {
  if (sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) fail();
}

std::string SqliteDatabase::value(std::string const& sql) {
  Statement statement(*this, sql);
  return statement.step() ? statement.text(0) : std::string();
}

Kiv::U64 SqliteDatabase::number(std::string const& sql) {
  Statement statement(*this, sql);
  return statement.step() ? statement.number(0) : 0;
}

void SqliteDatabase::backUp(std::string const& file) {
  std::string const unfinished = file + ".tmp";
  std::remove(unfinished.c_str());
  {
    SqliteDatabase copy(unfinished);
    sqlite3_backup* const backup =
        sqlite3_backup_init(copy.database_.get(), "main", database_.get(), "main");
    if (backup == nullptr) copy.fail();
    sqlite3_backup_step(backup, -1);
    if (sqlite3_backup_finish(backup) != SQLITE_OK) copy.fail();
  }
  if (std::rename(unfinished.c_str(), file.c_str()) != 0) refuse("cannot be copied to " + file);
}

void SqliteDatabase::fail() const {
  int const code = sqlite3_errcode(database_.get()) & 0xff;
  if (code == SQLITE_BUSY || code == SQLITE_LOCKED) refuse("another process has it");
  refuse(sqlite3_errmsg(database_.get()));
}

void SqliteDatabase::refuse(std::string const& why) const {
  throw StoreRefused("sqlite:" + file_ + ": " + why);
}

SqliteDatabase::Statement::Statement(SqliteDatabase& database, std::string_view sql)
    : database_(database) {
  sqlite3_stmt* prepared = nullptr;
  int const result =
      sqlite3_prepare_v3(database.database_.get(), sql.data(), static_cast<int>(sql.size()),
                         SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
  statement_.reset(prepared);
  if (result != SQLITE_OK) database_.fail();
}

void SqliteDatabase::Statement::reset() {
  sqlite3_reset(statement_.get());
}

bool SqliteDatabase::Statement::step() {
  int const result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  if (result == SQLITE_DONE) {
    reset();
    return false;
  }
  // The reason is the connection's until the next call.
  std::string const why = sqlite3_errmsg(sqlite3_db_handle(statement_.get()));
  reset();
  database_.refuse(why);
}

std::string_view SqliteDatabase::Statement::view(int column) const {
  auto const* const bytes = sqlite3_column_text(statement_.get(), column);
  if (bytes == nullptr) return {};
  auto const size = static_cast<size_t>(sqlite3_column_bytes(statement_.get(), column));
  return {reinterpret_cast<char const*>(bytes), size};
}

Kiv::U64 SqliteDatabase::Statement::number(int column) const {
  return static_cast<Kiv::U64>(sqlite3_column_int64(statement_.get(), column));
}

void SqliteDatabase::Statement::bind(int index, std::string_view text) {
  // A null pointer would be no text at all.
  char const* const bytes = text.empty() ? "" : text.data();
  if (sqlite3_bind_text64(statement_.get(), index, bytes, text.size(), SQLITE_STATIC,
                          SQLITE_UTF8) != SQLITE_OK) {
    database_.fail();
  }
}

void SqliteDatabase::Statement::bind(int index, Kiv::U64 number) {
  if (sqlite3_bind_int64(statement_.get(), index, static_cast<sqlite3_int64>(number)) !=
      SQLITE_OK) {
    database_.fail();
  }
}

SqliteTransaction::~SqliteTransaction() {
  if (!open_) return;
  try {
    database_.run("ROLLBACK");
  } catch (StoreRefused const&) {  // SQLite has taken it back by itself
  }
}

}  // namespace Host
