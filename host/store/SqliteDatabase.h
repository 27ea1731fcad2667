// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "framework/core/Types.h"
#include "host/store/StoreError.h"

struct sqlite3;
struct sqlite3_stmt;

namespace Host {

/// One connection to an SQLite file. Every operation throws StoreRefused with the file's name and
/// SQLite's reason.
class SqliteDatabase {
 public:
  /// A statement that is prepared once. Texts are bytes: NUL and what is not UTF-8 come back as
  /// they were.
  class Statement {
   public:
    Statement(SqliteDatabase& database, std::string_view sql);

    /// Runs to the end, with these values for its parameters.
    template <class... Values>
    void run(Values const&... values) {
      start(values...);
      while (step()) {
      }
    }
    /// Sets the parameters; step() gives the rows.
    template <class... Values>
    void start(Values const&... values) {
      reset();
      int index = 0;
      (bind(++index, values), ...);
    }
    /// Whether there is another row.
    bool step();
    std::string text(int column) const { return std::string(view(column)); }
    /// Valid until the next step.
    std::string_view view(int column) const;
    Kiv::U64 number(int column) const;

   private:
    struct Finalize {
      void operator()(sqlite3_stmt* statement) const;
    };

    void reset();
    void bind(int index, std::string_view text);
    void bind(int index, Kiv::U64 number);

    SqliteDatabase& database_;
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  };

  /// Opens the file, and makes it when it is not there.
  explicit SqliteDatabase(std::string file);

  std::string const& file() const { return file_; }
  /// Runs statements that give nothing.
  void run(std::string const& sql);
  /// The first column of the first row, or "".
  std::string value(std::string const& sql);
  Kiv::U64 number(std::string const& sql);
  /// Copies the whole database to another file, in place of what is there, and has it on the disk.
  void backUp(std::string const& file);

  [[noreturn]] void fail() const;
  [[noreturn]] void refuse(std::string const& why) const;

 private:
  struct Close {
    void operator()(sqlite3* database) const;
  };

  std::string file_;
  std::unique_ptr<sqlite3, Close> database_;
};

/// A transaction: taken back unless it is committed.
class SqliteTransaction {
 public:
  explicit SqliteTransaction(SqliteDatabase& database) : database_(database) {
    database_.run("BEGIN IMMEDIATE");
  }
  SqliteTransaction(SqliteTransaction const&) = delete;
  SqliteTransaction& operator=(SqliteTransaction const&) = delete;
  ~SqliteTransaction();

  void commit() {
    database_.run("COMMIT");
    open_ = false;
  }

 private:
  SqliteDatabase& database_;
  bool open_ = true;
};

}  // namespace Host
