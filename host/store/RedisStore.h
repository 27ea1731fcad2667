// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/store/OpenStore.h"
#include "host/store/RedisConnection.h"
#include "host/store/Store.h"

namespace Host {

/// A store at a Redis server, which many processes share. docs/store.md has the names and forms of
/// what is kept there.
///
/// A version is the id of an entry of the prefix's stream. Each submit() is one transaction of the
/// server, which fails as a whole when the store's epoch has changed. A reader asks for the entries
/// from its last one on, that one included: when it is not there any more, changes may have been
/// lost.
class RedisStore final : public Store {
 public:
  /// How many changes the stream keeps, about.
  static constexpr std::string_view kMaxChanges = "100000";

  /// Connects with the first operation.
  RedisStore(StoreUrl url, StoreOptions options);
  ~RedisStore() override;

  std::string name() const override { return url_.text; }
  StoreHead head() override;
  void begin() override;
  StoreSnapshot snapshot() override;
  std::optional<std::vector<StoreEvent>> changes() override;
  StoreVersions submit(std::vector<StoreChange> changes) override;
  std::string claim(std::string const& name, std::string const& owner, unsigned seconds) override;
  int descriptor() override;

 private:
  // Runs an operation; a connection that is lost in it is given up.
  template <class F>
  auto connected(F const& operation);
  void watchEpoch();
  void addWatch();
  void readWatch();
  StoreHead readHead(bool& isEmpty);
  StoreVersion addMark();
  void askForChanges();
  static size_t togetherWith(std::span<StoreChange const> changes);
  void addWrite(std::span<StoreChange const> changes, std::set<std::string>& indexed);
  void addEvent(StoreChange const& change);
  void addToIndex(std::string const& name, std::set<std::string>& indexed);
  void makeTypes(std::vector<StoreChange>& changes);
  StoreVersions writeAll(std::vector<StoreChange> changes);
  void addNews(RedisReply const& reply, std::vector<size_t> const& eventAt,
               std::vector<StoreChange> changes);
  bool readSnapshot(std::set<std::string> const& names, StoreSnapshot& snapshot);
  void readBell();

  std::string key(std::string_view name) const { return options_.prefix + ":" + std::string(name); }

  StoreUrl const url_;
  StoreOptions const options_;
  std::unique_ptr<RedisConnection> connection_;
  std::string epoch_;             // at the server, watched there
  StoreVersion read_;             // the last entry that has been read
  std::vector<StoreEvent> news_;  // read, and not given by changes() yet
  std::set<std::string> index_;   // names that are known to be in the server's index

  // A connection on which the server reports that there is another entry.
  std::unique_ptr<RedisConnection> bell_;
  bool bellArmed_ = false;
};

}  // namespace Host
