// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "framework/core/Types.h"
#include "host/store/StoreError.h"

namespace Host {

/// The contents of one record in string forms: collection, key, value. A scalar is a collection
/// with the one key "". See RecordForm.h for how they are made.
using RecordForm = std::map<std::string, std::map<std::string, std::string>>;

/// A place in a store's order of changes. Later is greater. A store counts in one number or two.
struct StoreVersion {
  Kiv::U64 major = 0;
  Kiv::U64 minor = 0;

  friend auto operator<=>(StoreVersion const&, StoreVersion const&) = default;
};

/// "12-3".
std::string toString(StoreVersion const& version);

/// One change of a store.
struct StoreChange {
  enum class Kind : Kiv::U8 {
    Make,     ///< a record at a path where there is none; `value` is the name of its type
    Set,      ///< a value; an object that is there stays the same object
    Replace,  ///< an object, by another one under its key
    Del,
  };
  /// An entry that is made with this change when it is not there, without an event of its own.
  struct Entry {
    std::string collection;
    std::string key;
    std::string value;

    friend bool operator==(Entry const&, Entry const&) = default;
  };

  Kind kind = Kind::Set;
  std::string path;
  std::string collection;
  std::string key;
  std::string value;

  // What else the store does in the same step. Not part of the event: who applies it knows.
  std::vector<std::string> drops;  ///< collections that go with an object
  std::optional<Entry> within;     ///< the object that the collection belongs to

  friend bool operator==(StoreChange const&, StoreChange const&) = default;
};

/// "make", "set", "replace", "del".
char const* name(StoreChange::Kind kind);
std::optional<StoreChange::Kind> storeChangeKind(std::string_view name);

/// Where changes that were submitted together lie in a store's order: one after the other, with no
/// others in between. Where there was nothing to write, `first` is after `last`.
struct StoreVersions {
  StoreVersion first;
  StoreVersion last;
};

/// A change that is in the store.
struct StoreEvent {
  StoreVersion version;
  StoreChange change;
};

/// Which history a store has, and how far it is.
struct StoreHead {
  /// Drawn at random when the store begins; empty: it has not begun, or has been emptied.
  std::string epoch;
  StoreVersion version;
};

struct StoredRecord {
  std::string typeName;
  RecordForm form;
};

/// All that a store holds at one moment, and which moment that is.
struct StoreSnapshot {
  StoreHead head;
  std::map<std::string, StoredRecord> records;  // by path
  /// What the store holds where a record should be, and is none: place and reason.
  std::map<std::string, std::string> unreadable;
};

/// Where records are kept beyond the life of a process: contents by path, and the ordered changes
/// of them. An object of this class is one client of a store, and reads its changes once.
///
/// A store keeps text and knows no types. What it holds may be anything, since others may write it.
///
/// Every operation may throw StoreAway, and connects again when the connection was lost. Used on
/// one thread; no operation calls back.
class Store {
 public:
  Store() = default;
  Store(Store const&) = delete;
  Store& operator=(Store const&) = delete;
  virtual ~Store();

  /// Which store this is, for people: its URL.
  virtual std::string name() const = 0;

  virtual StoreHead head() = 0;
  /// Gives a store that has no epoch a new one. Nothing when it has one.
  virtual void begin() = 0;
  /// changes() continues from here.
  virtual StoreSnapshot snapshot() = 0;
  /// Some of the changes that follow what snapshot() and changes() have given, in order, this
  /// client's own ones among them; empty: there are none yet. Nothing: changes in between are lost,
  /// and a snapshot is needed.
  virtual std::optional<std::vector<StoreEvent>> changes() = 0;
  /// Puts the changes into the store, all of them or none, in this order, as one transaction.
  /// Returns once they are there, with their versions. Throws StoreRefused. A record that is made
  /// again with its type changes nothing and has no version; with another type it is refused.
  virtual StoreVersions submit(std::vector<StoreChange> changes) = 0;

  /// Takes the name for that owner, for so many seconds, unless another owner has it. Gives the
  /// owner that has it then. A store that no other process can open gives `owner`.
  virtual std::string claim(std::string const& name, std::string const& owner, unsigned seconds) {
    (void)name;
    (void)seconds;
    return owner;
  }

  /// A descriptor that becomes readable when changes() has something to read or the connection is
  /// lost; -1: changes come from this process only. Valid until the next call of any operation.
  virtual int descriptor() { return -1; }
};

/// A new epoch: 32 hexadecimal digits.
std::string makeStoreEpoch();

}  // namespace Host
