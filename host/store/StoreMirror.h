// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "framework/core/Clock.h"
#include "framework/core/Ptr.h"
#include "framework/corvo/Database.h"
#include "host/store/RecordForm.h"
#include "host/store/Store.h"

namespace Host {

/// Makes a state database the mirror of a store: records appear and change in it when the store has
/// changed, in the store's order. What this process writes takes the same way: submit() puts it
/// into the store first.
///
/// Connection: while the store is away the database stays as it is, Database::connected() is false,
/// writes are refused, and follow() tries again after growing pauses. Afterwards it continues with
/// the next change, or, when changes have been lost, from a snapshot: as the difference, on the
/// same objects. A store whose history went back is not applied until accept() is called.
///
/// Written behind: at the paths of Options::behind the database leads. What is written there is
/// submitted by the next follow(), the last state only, and tried again until the store takes it.
///
/// Contents that cannot be read are left out, named in the log and listed by unreadable().
///
/// Re-entrancy: handlers of a change may call submit(); their change is applied after the one that
/// is being applied. follow() inside of a handler does nothing. The mirror must outlive follow().
/// Errors: what handlers throw passes through after all changes have been applied, the first of
/// several.
/// Ownership: holds store, database and clock. One mirror a database.
class StoreMirror {
 public:
  enum class State : Kiv::U8 {
    Away,      ///< not connected
    Current,   ///< follows the store
    WentBack,  ///< connected to a store that lacks what it had; waits for accept()
  };
  struct Options {
    /// Paths that are written behind.
    std::set<std::string> behind;
    double firstPause = 0.1;  // seconds
    double longestPause = 10;
  };
  /// What there is to say of it.
  struct Status {
    State state = State::Away;
    std::string reason;     ///< why it is not Current
    double since = 0;       ///< by the clock
    StoreVersion version;   ///< of the last change applied
    Kiv::U64 applied = 0;   ///< changes since the start
    Kiv::U64 resyncs = 0;   ///< snapshots taken, the first one included
    Kiv::U64 attempts = 0;  ///< to connect, since it was Current
  };

  StoreMirror(std::unique_ptr<Store> store, Kiv::Ptr<Corvo::Database> database,
              Kiv::Ptr<Kiv::Clock const> clock, Options options);
  StoreMirror(std::unique_ptr<Store> store, Kiv::Ptr<Corvo::Database> database,
              Kiv::Ptr<Kiv::Clock const> clock)
      : StoreMirror(std::move(store), std::move(database), std::move(clock), Options()) {}
  StoreMirror(StoreMirror const&) = delete;
  StoreMirror& operator=(StoreMirror const&) = delete;
  ~StoreMirror();

  Store& store() { return *store_; }
  Status const& status() const { return status_; }
  bool current() const { return status_.state == State::Current; }

  /// Applies what the store has, connects when that is due, and writes behind. To be called when
  /// the store's descriptor is readable, when due() has come, and before the process waits.
  void follow();
  /// What becomes readable when the store has something for follow(); -1: nothing does now. Valid
  /// until the next call of any operation.
  int descriptor();
  /// When follow() has something to do by itself, by the clock; infinity: not before the store says
  /// so.
  double due() const;

  /// Checks the changes, puts them into the store as one transaction, and applies what the store
  /// has then. Throws UnreadableException or StoreError, and has then changed nothing here; see
  /// StoreAway for what it may have changed in the store.
  void submit(std::vector<StoreChange> changes);
  /// Reports on the changes of one submitReadable() by their numbers.
  struct Progress {
    std::function<void(size_t)> applies;                     ///< it is applied next
    std::function<void(size_t, std::exception_ptr)> failed;  ///< its handlers have thrown
  };
  /// The same for changes that whoever made them knows to be readable and complete, of records that
  /// are there. What handlers throw is reported and does not pass through. A change that comes here
  /// with others in a snapshot has no report of its own; what handlers throw then is reported for
  /// the last change. Not within a handler.
  void submitReadable(std::vector<StoreChange> changes, Progress const& progress);
  // One change each.
  void make(std::string const& path, std::string const& typeName);
  void set(std::string const& path, std::string const& collection, std::string const& key,
           std::string const& value);
  void del(std::string const& path, std::string const& collection, std::string const& key);

  /// The operator takes the store as it is, after it went back. The database becomes equal to it.
  void accept();

  /// A number that is the same for the same contents at the last snapshot and the same changes
  /// since; what is written behind does not count.
  Kiv::U64 contentsHash() const { return contentsHash_; }

  /// What the store holds and this process cannot read: place and reason.
  std::map<std::string, std::string> const& unreadable() const { return unreadable_; }

 private:
  void connect();
  void resync();
  bool wentBack(StoreHead const& head);
  void load(std::string const& path, StoredRecord const& stored);
  void bring(std::string const& path, Kiv::PtrInterface& record, RecordForm const& to);
  void applyNews();
  void apply(StoreChange const& change);
  void applyReadable(StoreChange const& change, Kiv::PtrInterface& record);
  void needTaking() const;
  void complete(std::vector<StoreChange>& changes) const;
  void needRecords(std::span<StoreChange const> changes) const;
  StoreVersions put(std::vector<StoreChange> changes);
  void followTo(StoreVersions const& versions, Progress const* progress);
  void applyOwn(StoreChange const& change);
  void writeBehind();
  void submitBehind(std::string const& path);
  void stateIs(State state, std::string const& reason);
  void lost(std::string const& reason);
  void addToHash(std::string_view text);
  void skip(std::string const& place, std::string const& why);
  // Runs what may call handlers; the first exception is kept for the end of follow().
  template <class F>
  void guarded(F const& step);
  bool isBehind(std::string const& path) const { return options_.behind.contains(path); }

  std::unique_ptr<Store> const store_;
  Kiv::Ptr<Corvo::Database> const database_;
  Kiv::Ptr<Kiv::Clock const> const clock_;
  Options const options_;

  Status status_;
  std::string epoch_;  // empty: never connected
  bool accepting_ = false;
  bool following_ = false;
  bool saidAway_ = false;
  unsigned losses_ = 0;
  bool resyncWanted_ = false;
  std::optional<StoreVersion> until_;  // submit() applies the changes up to its own
  // The changes that submitReadable() reports on.
  struct Own {
    StoreVersions versions;
    Progress const* progress;
    size_t applied = 0;
  };
  std::optional<Own> own_;
  Kiv::U64 contentsHash_ = 0;
  double pause_;
  double connectDue_ = 0;
  std::set<std::string> mirrored_;            // paths
  std::map<std::string, RecordForm> behind_;  // what the store has of paths written behind
  double behindDue_ = 0;
  double behindPause_;
  bool behindRefused_ = false;
  std::map<std::string, std::string> unreadable_;
  std::exception_ptr thrown_;  // by a handler
};

/// "away", "current", "went back".
char const* name(StoreMirror::State state);

}  // namespace Host
