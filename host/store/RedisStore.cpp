// SPDX-License-Identifier: Apache-2.0
#include "host/store/RedisStore.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <random>
#include <utility>

namespace Host {

namespace {

// How many entries of the stream are asked for together.
constexpr size_t kMaxAtOnce = 1000;

using Kind = StoreChange::Kind;
using Reply = RedisReply;

// A path as part of a name: a colon ends it there.
std::string escaped(std::string_view path) {
  std::string text;
  for (char const c : path) {
    if (c == '%') {
      text += "%25";
    } else if (c == ':') {
      text += "%3A";
    } else {
      text += c;
    }
  }
  return text;
}

std::string unescaped(std::string_view text) {
  std::string path;
  while (!text.empty()) {
    if (text.starts_with("%25") || text.starts_with("%3A")) {
      path += text[1] == '2' ? '%' : ':';
      text.remove_prefix(3);
    } else {
      path += text.front();
      text.remove_prefix(1);
    }
  }
  return path;
}

std::string typeName(std::string_view path) {
  return "type:" + escaped(path);
}
std::string dataName(std::string_view path, std::string_view collection) {
  return "data:" + escaped(path) + ":" + std::string(collection);
}

StoreVersion versionOf(std::string_view id) {
  StoreVersion version;
  char const* const end = id.data() + id.size();
  auto const [at, error] = std::from_chars(id.data(), end, version.major);
  if (error == std::errc() && at != end && *at == '-') std::from_chars(at + 1, end, version.minor);
  return version;
}

std::string_view fieldOf(Reply const& fields, std::string_view name) {
  for (size_t i = 0; i + 1 < fields.size(); i += 2) {
    if (fields[i].text() == name) return fields[i + 1].text();
  }
  return {};
}

// The last id that a stream has given out, in the answer of XINFO STREAM: a stream that has been
// trimmed to nothing still knows it. One that is not there is empty, too. Throws StoreRefused for
// what is no stream.
StoreVersion headOf(Reply const& stream, std::string const& store, bool& isEmpty) {
  if (stream.isError() && stream.text().find("no such key") == std::string::npos) {
    throw StoreRefused(store + ": " + std::string(stream.text()));
  }
  isEmpty = true;
  StoreVersion head;
  for (size_t i = 0; i + 1 < stream.size(); i += 2) {
    if (stream[i].text() == "length") isEmpty = stream[i + 1].number() == 0;
    if (stream[i].text() == "last-generated-id") head = versionOf(stream[i + 1].text());
  }
  return head;
}

// Nothing: an entry that is no change.
std::optional<StoreChange> changeOf(Reply const& fields) {
  auto const kind = storeChangeKind(fieldOf(fields, "op"));
  if (!kind) return std::nullopt;
  StoreChange change;
  change.kind = *kind;
  change.path = fieldOf(fields, "path");
  change.collection = fieldOf(fields, "attribute");
  change.key = fieldOf(fields, "key");
  change.value = fieldOf(fields, "value");
  return change;
}

// Adds the changes that follow an entry, of the entries that begin with it. Gives the last entry's
// version, or nothing when they begin with another one.
std::optional<StoreVersion> readAfter(StoreVersion const& before, Reply const& entries,
                                      std::vector<StoreEvent>& events) {
  std::optional<StoreVersion> last;
  for (size_t i = 0; i < entries.size(); ++i) {
    Reply const entry = entries[i];
    if (entry.size() != 2) continue;
    StoreVersion const version = versionOf(entry[0].text());
    if (!last) {
      if (version != before) return std::nullopt;
    } else if (auto change = changeOf(entry[1])) {
      events.push_back({version, std::move(*change)});
    }
    last = version;
  }
  return last;
}

}  // namespace

RedisStore::RedisStore(StoreUrl url, StoreOptions options)
    : url_(std::move(url)), options_(std::move(options)) {}

RedisStore::~RedisStore() = default;

template <class F>
auto RedisStore::connected(F const& operation) {
  try {
    if (connection_ == nullptr) {
      connection_ = std::make_unique<RedisConnection>(url_, options_);
      watchEpoch();
    }
    return operation();
  } catch (StoreError const&) {
    // Also after a refusal: answers of the batch may not have been read.
    connection_.reset();
    bell_.reset();
    bellArmed_ = false;
    throw;
  }
}

// --- The epoch: watched, so that a transaction fails when it is another one

void RedisStore::addWatch() {
  connection_->add({"WATCH", key("epoch")});
  connection_->add({"GET", key("epoch")});
}

void RedisStore::readWatch() {
  connection_->need();
  epoch_ = connection_->need().text();
}

void RedisStore::watchEpoch() {
  addWatch();
  readWatch();
}

StoreHead RedisStore::readHead(bool& isEmpty) {
  connection_->add({"GET", key("epoch")});
  connection_->add({"XINFO", "STREAM", key("stream")});
  StoreHead head;
  head.epoch = connection_->need().text();
  head.version = headOf(connection_->answer(), url_.text, isEmpty);
  return head;
}

// An entry without a change; gives its id. In a stream that has been lost ids begin anew: a random
// number keeps this one apart from an earlier id of the same millisecond. Where the stream has only
// been trimmed, the id may be too small; the server's own choice is always new then.
StoreVersion RedisStore::addMark() {
  connection_->add({"TIME"});
  Reply const time = connection_->need();
  std::string id = "*";
  if (time.size() == 2) {
    std::string const microseconds = "00000" + std::string(time[1].text());
    id = std::string(time[0].text()) + microseconds.substr(microseconds.size() - 6, 3) + "-" +
         std::to_string(std::random_device()());
  }
  connection_->add({"XADD", key("stream"), id, "op", "mark"});
  Reply const added = connection_->answer();
  if (!added.isError()) return versionOf(added.text());
  connection_->add({"XADD", key("stream"), "*", "op", "mark"});
  return versionOf(connection_->need().text());
}

StoreHead RedisStore::head() {
  return connected([this] {
    watchEpoch();
    bool isEmpty = false;
    StoreHead head = readHead(isEmpty);
    // A stream that has begun or has been lost: it is not to be empty, so that each reader has an
    // entry to continue from.
    if (!head.epoch.empty() && isEmpty) head.version = addMark();
    return head;
  });
}

void RedisStore::begin() {
  connected([this] {
    connection_->add({"UNWATCH"});
    connection_->add({"SETNX", key("epoch"), makeStoreEpoch()});
    connection_->need();
    connection_->need();
    watchEpoch();
  });
}

std::string RedisStore::claim(std::string const& name, std::string const& owner, unsigned seconds) {
  return connected([&] {
    std::string const place = key("holder:" + name);
    std::string const time = std::to_string(seconds);
    connection_->add({"UNWATCH"});
    connection_->add({"SET", place, owner, "NX", "EX", time});
    connection_->add({"GET", place});
    connection_->need();
    connection_->need();
    std::string holder(connection_->need().text());
    if (holder == owner) {
      connection_->add({"EXPIRE", place, time});
      connection_->need();
    }
    watchEpoch();
    return holder;
  });
}

// --- Reading

StoreSnapshot RedisStore::snapshot() {
  head();  // the stream has an entry
  return connected([this] {
    constexpr int kAttempts = 100;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
      connection_->add({"UNWATCH"});
      connection_->add({"SMEMBERS", key("index")});
      connection_->need();
      std::set<std::string> names;
      Reply const index = connection_->need();
      for (size_t i = 0; i < index.size(); ++i) names.emplace(index[i].text());
      StoreSnapshot snapshot;
      if (!readSnapshot(names, snapshot)) continue;
      watchEpoch();
      if (epoch_ != snapshot.head.epoch) continue;
      read_ = snapshot.head.version;
      index_ = std::move(names);
      news_.clear();
      return snapshot;
    }
    throw StoreRefused(url_.text + ": its names change faster than they can be read");
  });
}

bool RedisStore::readSnapshot(std::set<std::string> const& names, StoreSnapshot& snapshot) {
  constexpr std::string_view kType = "type:";
  constexpr std::string_view kData = "data:";
  connection_->add({"MULTI"});
  connection_->add({"GET", key("epoch")});
  connection_->add({"XINFO", "STREAM", key("stream")});
  connection_->add({"SMEMBERS", key("index")});
  for (std::string const& name : names) {
    connection_->add({name.starts_with(kType) ? "GET" : "HGETALL", key(name)});
  }
  connection_->add({"EXEC"});
  for (size_t i = 0; i < names.size() + 4; ++i) connection_->need();
  Reply const all = connection_->need();
  if (all.size() != names.size() + 3) return false;
  Reply const index = all[2];
  if (index.size() != names.size()) return false;
  for (size_t i = 0; i < index.size(); ++i) {
    if (!names.contains(std::string(index[i].text()))) return false;
  }
  snapshot.head.epoch = all[0].text();
  bool isEmpty = false;
  snapshot.head.version = headOf(all[1], url_.text, isEmpty);
  if (!snapshot.head.epoch.empty() && snapshot.head.version == StoreVersion()) {
    addMark();  // the stream has been deleted since head() has looked
    return false;
  }
  size_t at = 3;
  for (std::string_view const name : names) {
    Reply const contents = all[at++];
    if (contents.isError()) {
      snapshot.unreadable[key(name)] = contents.text();
    } else if (name.starts_with(kType)) {
      snapshot.records[unescaped(name.substr(kType.size()))].typeName = contents.text();
    } else if (auto const colon = name.find(':', kData.size());
               name.starts_with(kData) && colon != std::string_view::npos) {
      if (contents.size() == 0) continue;
      std::string const path = unescaped(name.substr(kData.size(), colon - kData.size()));
      auto& collection = snapshot.records[path].form[std::string(name.substr(colon + 1))];
      for (size_t i = 0; i + 1 < contents.size(); i += 2) {
        collection[std::string(contents[i].text())] = contents[i + 1].text();
      }
    } else {
      snapshot.unreadable[key(name)] = "it is neither a type nor data";
    }
  }
  return true;
}

std::optional<std::vector<StoreEvent>> RedisStore::changes() {
  return connected([this]() -> std::optional<std::vector<StoreEvent>> {
    readBell();
    do {
      askForChanges();
      Reply const entries = connection_->need();
      auto const last = readAfter(read_, entries, news_);
      if (!last) return std::nullopt;
      if (entries.size() == 1) break;
      read_ = *last;
    } while (news_.empty());
    return std::exchange(news_, {});
  });
}

// From the last entry that has been read, that one included.
void RedisStore::askForChanges() {
  connection_->add(
      {"XRANGE", key("stream"), toString(read_), "+", "COUNT", std::to_string(kMaxAtOnce)});
}

int RedisStore::descriptor() {
  return connected([this] {
    if (bell_ == nullptr) bell_ = std::make_unique<RedisConnection>(url_, options_);
    if (!bellArmed_) {
      bell_->add({"XREAD", "COUNT", "1", "BLOCK", "0", "STREAMS", key("stream"), toString(read_)});
      bell_->send();
      bellArmed_ = true;
    }
    return bell_->descriptor();
  });
}

void RedisStore::readBell() {
  if (!bellArmed_ || !bell_->ready()) return;
  bell_->answer();
  bellArmed_ = false;
}

// --- Writing

void RedisStore::addEvent(StoreChange const& change) {
  std::string const stream = key("stream");
  if (change.kind == Kind::Make) {
    connection_->add({"XADD", stream, "MAXLEN", "~", kMaxChanges, "*", "op",
                      Host::name(change.kind), "path", change.path, "value", change.value});
    return;
  }
  connection_->add({"XADD", stream, "MAXLEN", "~", kMaxChanges, "*", "op", Host::name(change.kind),
                    "path", change.path, "attribute", change.collection, "key", change.key, "value",
                    change.value});
}

// The part of the changes that one command writes: a single one, or values of one collection.
size_t RedisStore::togetherWith(std::span<StoreChange const> changes) {
  constexpr size_t kMost = 500;
  StoreChange const& first = changes.front();
  size_t count = 1;
  if (first.kind != Kind::Set || !first.drops.empty()) return count;
  while (count < std::min(changes.size(), kMost)) {
    StoreChange const& next = changes[count];
    if (next.kind != Kind::Set || next.collection != first.collection || next.path != first.path ||
        next.within != first.within || !next.drops.empty())
      break;
    ++count;
  }
  return count;
}

void RedisStore::addWrite(std::span<StoreChange const> changes, std::set<std::string>& indexed) {
  StoreChange const& first = changes.front();
  std::string const data = dataName(first.path, first.collection);
  std::string const place = key(data);
  switch (first.kind) {
    case Kind::Make:
      connection_->add({"SADD", key("index"), typeName(first.path)});
      break;
    case Kind::Set:
    case Kind::Replace: {
      addToIndex(data, indexed);
      std::vector<std::string_view> words{"HSET", place};
      for (StoreChange const& change : changes) {
        words.push_back(change.key);
        words.push_back(change.value);
      }
      connection_->add(words);
      break;
    }
    case Kind::Del:
      connection_->add({"HDEL", place, first.key});
      break;
  }
  if (first.within) {
    std::string const outer = dataName(first.path, first.within->collection);
    addToIndex(outer, indexed);
    connection_->add({"HSETNX", key(outer), first.within->key, first.within->value});
  }
  for (std::string const& collection : first.drops) {
    std::string const dropped = dataName(first.path, collection);
    connection_->add({"DEL", key(dropped)});
    connection_->add({"SREM", key("index"), dropped});
  }
}

// Collections in objects leave the index with their object, which another client may remove.
void RedisStore::addToIndex(std::string const& name, std::set<std::string>& indexed) {
  bool const nested = name.find('[') != std::string::npos;
  if (!nested && (index_.contains(name) || !indexed.insert(name).second)) return;
  connection_->add({"SADD", key("index"), name});
}

// Claims the types of new records. Those that are there already go from the changes.
void RedisStore::makeTypes(std::vector<StoreChange>& changes) {
  for (StoreChange const& change : changes) {
    if (change.kind == Kind::Make) connection_->add({"GET", key(typeName(change.path))});
  }
  std::string refusal;
  auto const check = [&](StoreChange const& change, Reply const& type) {
    if (type.text() == change.value) return;
    refusal = ": \"" + change.path + "\" is of type " + std::string(type.text()) + ", not " +
              change.value;
  };
  for (StoreChange const& change : changes) {
    if (change.kind != Kind::Make) continue;
    Reply const type = connection_->need();
    if (!type.isNothing()) check(change, type);
  }
  if (!refusal.empty()) throw StoreRefused(url_.text + refusal);
  std::erase_if(changes, [&](StoreChange const& change) {
    if (change.kind != Kind::Make) return false;
    std::string const type = typeName(change.path);
    connection_->add({"SETNX", key(type), change.value});
    connection_->add({"GET", key(type)});
    connection_->add({"SISMEMBER", key("index"), type});
    connection_->need();
    check(change, connection_->need());
    bool const known = connection_->need().number() != 0;
    if (!refusal.empty()) throw StoreRefused(url_.text + refusal);
    return known;
  });
}

StoreVersions RedisStore::writeAll(std::vector<StoreChange> changes) {
  connection_->add({"MULTI"});
  askForChanges();              // what others have written before
  std::vector<size_t> eventAt;  // among what EXEC answers
  eventAt.reserve(changes.size());
  std::set<std::string> indexed;  // by this transaction
  for (std::span<StoreChange const> left(changes); !left.empty();) {
    auto const together = left.first(togetherWith(left));
    addWrite(together, indexed);
    for (StoreChange const& change : together) {
      eventAt.push_back(connection_->awaited() - 1);
      addEvent(change);
    }
    left = left.subspan(together.size());
  }
  // Each command is acknowledged before EXEC answers for all of them.
  size_t const acknowledged = connection_->awaited();
  connection_->add({"EXEC"});
  addWatch();
  std::string refusal;
  for (size_t i = 0; i < acknowledged; ++i) {
    Reply const each = connection_->answer();
    if (each.isError() && refusal.empty()) refusal = each.text();
  }
  Reply const reply = connection_->answer();
  readWatch();
  if (reply.isNothing() && refusal.empty()) refusal = "the store has been emptied or replaced";
  if (reply.isError() && refusal.empty()) refusal = reply.text();
  if (!refusal.empty()) throw StoreRefused(url_.text + ": " + refusal);
  if (reply.size() <= eventAt.back()) {
    throw StoreRefused(url_.text + ": it answered a part of a transaction");
  }
  for (size_t i = 0; i < reply.size(); ++i) {
    // Other commands of a transaction go through; the store is no longer what it should be.
    if (reply[i].isError()) throw StoreRefused(url_.text + ": " + std::string(reply[i].text()));
  }
  index_.merge(indexed);
  StoreVersions const versions{versionOf(reply[eventAt.front()].text()),
                               versionOf(reply[eventAt.back()].text())};
  addNews(reply, eventAt, std::move(changes));
  return versions;
}

// What a transaction has changed need not be read again, where all that is before it has been read.
void RedisStore::addNews(Reply const& reply, std::vector<size_t> const& eventAt,
                         std::vector<StoreChange> changes) {
  Reply const before = reply[0];
  if (before.size() == kMaxAtOnce) return;
  std::vector<StoreEvent> events;
  if (!readAfter(read_, before, events)) return;
  for (size_t i = 0; i < changes.size(); ++i) {
    read_ = versionOf(reply[eventAt[i]].text());
    events.push_back({read_, std::move(changes[i])});
  }
  news_.insert(news_.end(), std::make_move_iterator(events.begin()),
               std::make_move_iterator(events.end()));
}

StoreVersions RedisStore::submit(std::vector<StoreChange> changes) {
  std::string const epoch = epoch_;
  bool sent = false;
  try {
    return connected([&] {
      if (epoch_.empty() || epoch_ != epoch) {
        throw StoreRefused(url_.text + ": the store has been emptied or replaced");
      }
      makeTypes(changes);
      if (changes.empty()) {
        bool isEmpty = false;
        StoreVersion const head = readHead(isEmpty).version;
        return StoreVersions{{head.major, head.minor + 1}, head};
      }
      sent = true;
      return writeAll(std::move(changes));
    });
  } catch (StoreAway const& away) {
    if (!sent) throw;
    throw StoreAway(std::string(away.what()) +
                    "; the connection was lost before the answer: the change may be in the store "
                    "or not");
  }
}

}  // namespace Host
