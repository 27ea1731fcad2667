// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

#include "host/store/SqliteDatabase.h"

namespace Host {

/// What brings a file from the version before to this one. The first one makes it.
struct SqliteStep {
  Kiv::U64 version;
  char const* sql;
};

/// All steps there are, in order.
std::span<SqliteStep const> sqliteSteps();

/// Takes the file for this process alone, checks that it is a store and that it is whole, and
/// brings it to the version of the last step. Before it changes an earlier version it is copied to
/// FILE.v<VERSION>. Throws StoreRefused; the file is then as it was.
void prepareSqliteStore(SqliteDatabase& database, std::span<SqliteStep const> steps);

}  // namespace Host
