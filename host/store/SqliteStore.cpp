// SPDX-License-Identifier: Apache-2.0
#include "host/store/SqliteStore.h"

#include <utility>

namespace Host {

using Kind = StoreChange::Kind;

SqliteStore::SqliteStore(std::string const& file, StoreOptions::Durability durability,
                         std::span<SqliteStep const> steps)
    : database_(file, steps),
      typeOf_(database_, "SELECT type FROM record WHERE path = ?"),
      make_(database_, "INSERT INTO record VALUES(?, ?)"),
      set_(database_, "INSERT OR REPLACE INTO entry VALUES(?, ?, ?, ?)"),
      setIfAbsent_(database_, "INSERT OR IGNORE INTO entry VALUES(?, ?, ?, ?)"),
      del_(database_, "DELETE FROM entry WHERE path = ? AND collection = ? AND key = ?"),
      drop_(database_, "DELETE FROM entry WHERE path = ? AND collection = ?"),
      versionIs_(database_, "UPDATE meta SET value = ? WHERE name = 'version'") {
  bool const power = durability == StoreOptions::Durability::Power;
  database_.run(power ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
  database_.run("INSERT OR IGNORE INTO meta VALUES('epoch', '" + makeStoreEpoch() + "')");
  head_.epoch = database_.value("SELECT value FROM meta WHERE name = 'epoch'");
  head_.version.major = database_.number("SELECT value FROM meta WHERE name = 'version'");
}

StoreSnapshot SqliteStore::snapshot() {
  StoreSnapshot snapshot{head_, {}, {}};
  SqliteDatabase::Statement records(database_, "SELECT path, type FROM record");
  while (records.step()) snapshot.records[records.text(0)].typeName = records.text(1);
  SqliteDatabase::Statement entries(
      database_, "SELECT path, collection, key, value FROM entry ORDER BY path, collection, key");
  std::map<std::string, std::string>* collection = nullptr;
  std::string path;
  std::string name;
  while (entries.step()) {
    if (collection == nullptr || entries.view(0) != path || entries.view(1) != name) {
      path = entries.view(0);
      name = entries.view(1);
      collection = &snapshot.records[path].form[name];
    }
    collection->insert_or_assign(collection->end(), entries.text(2), entries.text(3));
  }
  news_.clear();
  return snapshot;
}

std::optional<std::vector<StoreEvent>> SqliteStore::changes() {
  return std::exchange(news_, {});
}

std::optional<std::string> SqliteStore::typeAt(std::string const& path) {
  std::optional<std::string> type;
  typeOf_.start(path);
  while (typeOf_.step()) type = typeOf_.text(0);
  return type;
}

void SqliteStore::checkTypes(std::span<StoreChange const> changes) {
  for (StoreChange const& change : changes) {
    if (change.kind != Kind::Make) continue;
    std::optional<std::string> const type = typeAt(change.path);
    if (type && *type != change.value) {
      database_.refuse("\"" + change.path + "\" is of type " + *type + ", not " + change.value);
    }
  }
}

bool SqliteStore::write(StoreChange const& change) {
  if (change.kind == Kind::Make) {
    if (typeAt(change.path)) return false;
    make_.run(change.path, change.value);
    return true;
  }
  for (std::string const& collection : change.drops) drop_.run(change.path, collection);
  if (change.within) {
    StoreChange::Entry const& within = *change.within;
    setIfAbsent_.run(change.path, within.collection, within.key, within.value);
  }
  if (change.kind == Kind::Del) {
    del_.run(change.path, change.collection, change.key);
  } else {
    set_.run(change.path, change.collection, change.key, change.value);
  }
  return true;
}

StoreVersions SqliteStore::submit(std::vector<StoreChange> changes) {
  SqliteTransaction transaction(database_);
  checkTypes(changes);
  StoreVersion version = head_.version;
  StoreVersion const first{version.major + 1, 0};
  std::vector<StoreEvent> events;
  events.reserve(changes.size());
  for (StoreChange& change : changes) {
    if (!write(change)) continue;
    ++version.major;
    events.push_back({version, std::move(change)});
  }
  if (!events.empty()) versionIs_.run(version.major);
  transaction.commit();
  head_.version = version;
  if (news_.empty()) {
    news_ = std::move(events);
  } else {
    news_.insert(news_.end(), std::make_move_iterator(events.begin()),
                 std::make_move_iterator(events.end()));
  }
  return {first, version};
}

}  // namespace Host
