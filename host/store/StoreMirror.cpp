// SPDX-License-Identifier: Apache-2.0
#include "host/store/StoreMirror.h"

#include <algorithm>
#include <limits>

#include "framework/core/Fatal.h"
#include "framework/core/Restore.h"
#include "framework/core/Strep.h"
#include "framework/corvo/Exceptions.h"
#include "framework/log/EmitLog.h"
#include "framework/log/LogHandle.h"

namespace Host {

namespace {

using Kind = StoreChange::Kind;
using Kiv::Ptr;
using Kiv::PtrInterface;

Kiv::LogHandle storeAway(
    "BFN_MAC_REWRITE_STORE_AWAY", Kiv::LogSeverity::error, "The state store is away: %s.",
    "The store of the state database cannot be reached. The agent continues with what it knows; "
    "changes are refused until the store is back. It is tried again by itself.",
    "Check that the store runs and can be reached from here.", 60.0, 2.0, false);
Kiv::LogHandle storeBack("BFN_MAC_REWRITE_STORE_BACK", Kiv::LogSeverity::notice,
                         "The state store is back: %s.",
                         "The store of the state database is followed again.",
                         "No action is needed.", 60.0, 2.0, false);
Kiv::LogHandle storeWentBack(
    "BFN_MAC_REWRITE_STORE_WENT_BACK", Kiv::LogSeverity::alert,
    "The state store is not applied: %s.",
    "The store has been emptied, or replaced by an earlier state of it. The agent continues with "
    "what it knows.",
    "Restore the store, or accept it as it is: the agent then takes over what it holds.", 60.0, 2.0,
    false);
Kiv::LogHandle storeUnreadable(
    "BFN_MAC_REWRITE_STORE_UNREADABLE", Kiv::LogSeverity::error,
    "In the state store, %s cannot be read and is left out: %s.",
    "An entry of the store is not what this version of the agent writes there.",
    "Correct or remove the entry.", 60.0, 100.0, false);
Kiv::LogHandle storeRefusedBehind(
    "BFN_MAC_REWRITE_STORE_WRITE_REFUSED", Kiv::LogSeverity::error,
    "The agent's own state is not in the state store yet: %s.",
    "The store refuses what the agent has to say of itself. It is tried again by itself.",
    "Check the store's free space and the rights of the agent in it.", 60.0, 2.0, false);

std::string shown(std::string const& text) {
  constexpr size_t kMax = 200;
  std::string const form = Kiv::quotedToStrep(text).stdString();
  return form.size() <= kMax ? form : form.substr(0, kMax) + "...";
}

std::string placeOf(std::string const& path, std::string const& collection,
                    std::string const& key) {
  std::string place = shown(path) + " " + shown(collection);
  if (!key.empty()) place += " " + Kiv::quotedToStrep(key).stdString();
  return place;
}

}  // namespace

char const* name(StoreMirror::State state) {
  switch (state) {
    case StoreMirror::State::Away:
      return "away";
    case StoreMirror::State::Current:
      return "current";
    case StoreMirror::State::WentBack:
      return "went back";
  }
  return "?";
}

StoreMirror::StoreMirror(std::unique_ptr<Store> store, Ptr<Corvo::Database> database,
                         Ptr<Kiv::Clock const> clock, Options options)
    : store_(std::move(store)),
      database_(std::move(database)),
      clock_(std::move(clock)),
      options_(std::move(options)),
      pause_(options_.firstPause),
      behindPause_(options_.firstPause) {
  status_.reason = "not connected yet";
  status_.since = clock_->now();
  database_->connectedIs(false);
}

StoreMirror::~StoreMirror() = default;

template <class F>
void StoreMirror::guarded(F const& step) {
  try {
    step();
  } catch (...) {
    if (!thrown_) thrown_ = std::current_exception();
  }
}

void StoreMirror::follow() {
  if (following_) return;
  {
    Kiv::Restore<bool> const outer{following_, false};
    following_ = true;
    try {
      if (!current() && clock_->now() >= connectDue_) connect();
      if (current()) applyNews();
      if (current()) writeBehind();
    } catch (StoreError const& exception) {
      lost(exception.what());
    }
  }
  if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
}

int StoreMirror::descriptor() {
  if (!current()) return -1;
  int descriptor = -1;
  try {
    descriptor = store_->descriptor();
  } catch (StoreError const& exception) {
    lost(exception.what());  // what its handlers throw comes out of the next follow()
  }
  return descriptor;
}

double StoreMirror::due() const {
  if (!current()) return connectDue_;
  return behindRefused_ ? behindDue_ : std::numeric_limits<double>::infinity();
}

void StoreMirror::connect() {
  ++status_.attempts;
  StoreHead const head = store_->head();
  if (epoch_.empty() || accepting_) {
    resync();
  } else if (!wentBack(head)) {
    stateIs(State::Current, "");
  }
}

bool StoreMirror::wentBack(StoreHead const& head) {
  if (epoch_.empty() || accepting_) return false;
  std::string why;
  if (head.epoch.empty()) {
    why = "it has been emptied";
  } else if (head.epoch != epoch_) {
    why = "it is another one than before";
  } else if (head.version < status_.version) {
    why = "it is at " + toString(head.version) + " and was at " + toString(status_.version);
  } else {
    return false;
  }
  connectDue_ = clock_->now() + options_.longestPause;
  stateIs(State::WentBack, store_->name() + ": " + why);
  return true;
}

void StoreMirror::resync() {
  unsigned const losses = losses_;
  resyncWanted_ = false;
  StoreSnapshot snapshot = store_->snapshot();
  if (snapshot.head.epoch.empty() && (epoch_.empty() || accepting_)) {
    store_->begin();
    snapshot = store_->snapshot();
  }
  if (wentBack(snapshot.head)) return;
  accepting_ = false;
  epoch_ = snapshot.head.epoch;
  status_.version = snapshot.head.version;
  ++status_.resyncs;
  unreadable_.clear();
  behind_.clear();
  for (auto const& [place, why] : snapshot.unreadable) skip(shown(place), why);
  auto const known = mirrored_;
  contentsHash_ = 0;
  for (auto const& [path, stored] : snapshot.records) {
    if (isBehind(path)) continue;
    addToHash(path);
    for (auto const& [collection, entries] : stored.form) {
      addToHash(collection);
      for (auto const& [key, value] : entries) {
        addToHash(key);
        addToHash(value);
      }
    }
  }
  for (auto const& [path, stored] : snapshot.records) load(path, stored);
  for (std::string const& path : known) {
    if (!snapshot.records.contains(path) && !isBehind(path)) {
      auto const record = database_->object(path);
      bring(path, *record, recordForm(*record->fwkType().construct({})));
      mirrored_.erase(path);
    }
  }
  // A handler may have lost the connection again.
  if (losses == losses_) stateIs(State::Current, "");
}

void StoreMirror::load(std::string const& path, StoredRecord const& stored) {
  Ptr<PtrInterface> made;
  try {
    made = Corvo::Database::makeObject(path, stored.typeName);
  } catch (Corvo::MountException const& exception) {
    skip(shown(path), exception.what());
    return;
  }
  Ptr<PtrInterface> const there = database_->object(path);
  if (there && &there->fwkType() != &made->fwkType()) {
    skip(shown(path), "it is of type " + std::string(there->fwkType().name()) + " here and of " +
                          stored.typeName + " there");
    return;
  }
  fillRecord(*made, stored.form,
             [&](std::string const& collection, std::string const& key, std::string const& why) {
               skip(placeOf(path, collection, key), why);
             });
  mirrored_.insert(path);
  if (isBehind(path)) behind_[path] = recordForm(*made);
  if (!there) {
    guarded([&] { database_->objectIs(path, made); });
  } else if (!isBehind(path)) {
    bring(path, *there, recordForm(*made));
  }
}

void StoreMirror::bring(std::string const& path, PtrInterface& record, RecordForm const& to) {
  for (StoreChange const& change : differenceOf(path, recordForm(record), to)) {
    guarded([&] { applyChange(change, record); });
  }
}

void StoreMirror::applyNews() {
  while (current()) {
    if (resyncWanted_) resync();
    std::optional<std::vector<StoreEvent>> const news = store_->changes();
    if (!news) {
      resync();
      continue;
    }
    if (news->empty() && !resyncWanted_) return;
    for (StoreEvent const& event : *news) {
      status_.version = event.version;
      ++status_.applied;
      if (own_ && event.version >= own_->versions.first && event.version <= own_->versions.last) {
        applyOwn(event.change);
      } else {
        apply(event.change);
      }
    }
    if (until_ && status_.version >= *until_ && !resyncWanted_) return;
  }
}

void StoreMirror::applyOwn(StoreChange const& change) {
  Progress const& progress = *own_->progress;
  size_t const number = own_->applied++;
  progress.applies(number);
  std::exception_ptr const before = std::exchange(thrown_, nullptr);
  apply(change);
  if (thrown_) progress.failed(number, std::exchange(thrown_, nullptr));
  thrown_ = before;
}

void StoreMirror::apply(StoreChange const& change) {
  std::string const& path = change.path;
  if (isBehind(path)) return;
  addToHash(name(change.kind));
  for (std::string const* part : {&path, &change.collection, &change.key, &change.value}) {
    addToHash(*part);
  }
  bool const mirrored = mirrored_.contains(path);
  if (change.kind == Kind::Make) {
    if (!mirrored) load(path, {change.value, {}});
    return;
  }
  if (!mirrored) return;  // the record itself cannot be read
  if (!unreadable_.empty()) {
    auto const member = memberOfCollection(change.collection);
    if (member && unreadable_.contains(placeOf(path, member->first, member->second))) return;
  }
  applyReadable(change, *database_->object(path));
}

void StoreMirror::applyReadable(StoreChange const& change, PtrInterface& record) {
  std::string why;
  guarded([&] {
    try {
      applyChange(change, record);
    } catch (UnreadableException const& exception) {
      why = exception.what();
    }
  });
  if (why.empty()) {
    if (unreadable_.empty()) return;
    bool const wasUnreadable =
        unreadable_.erase(placeOf(change.path, change.collection, change.key)) != 0;
    // The object's own collections have been left out, too.
    if (wasUnreadable && isOfMember(change, record.fwkType())) resyncWanted_ = true;
    return;
  }
  skip(placeOf(change.path, change.collection, change.key), why);
  if (isOfMember(change, record.fwkType())) {
    resyncWanted_ = true;
    return;
  }
  guarded([&] {
    try {
      applyAbsence(change, record);
    } catch (UnreadableException const&) {  // not even a key
    }
  });
}

void StoreMirror::skip(std::string const& place, std::string const& why) {
  if (unreadable_.try_emplace(place, why).second) Kiv::emitLog(storeUnreadable, place, why);
}

void StoreMirror::complete(std::vector<StoreChange>& changes) const {
  std::map<std::string, Kiv::Type const*> made;
  for (StoreChange& change : changes) {
    if (isBehind(change.path)) {
      throw UnreadableException(shown(change.path) + " is written by the agent only");
    }
    if (change.kind == Kind::Make) {
      try {
        made[change.path] = &Corvo::Database::makeObject(change.path, change.value)->fwkType();
      } catch (Corvo::MountException const& exception) {
        throw UnreadableException(exception.what());
      }
      continue;
    }
    auto const found = made.find(change.path);
    if (found == made.end() && !mirrored_.contains(change.path)) {
      throw UnreadableException("there is no record at " + shown(change.path));
    }
    completeChange(
        change, found == made.end() ? database_->object(change.path)->fwkType() : *found->second);
  }
}

void StoreMirror::needTaking() const {
  if (status_.state == State::Away) throw StoreAway(status_.reason);
  if (status_.state == State::WentBack) {
    throw StoreRefused(status_.reason + "; it has to be accepted first");
  }
}

void StoreMirror::needRecords(std::span<StoreChange const> changes) const {
  std::string const* known = nullptr;
  for (StoreChange const& change : changes) {
    if (known != nullptr && change.path == *known) continue;
    known = &change.path;
    if (!mirrored_.contains(change.path)) {
      throw UnreadableException("there is no record at " + shown(change.path));
    }
  }
}

StoreVersions StoreMirror::put(std::vector<StoreChange> changes) {
  try {
    return store_->submit(std::move(changes));
  } catch (StoreAway const& exception) {
    lost(exception.what());
    throw;
  }
}

void StoreMirror::followTo(StoreVersions const& versions, Progress const* progress) {
  if (following_) {
    // A handler's: it is applied once the present change has been, and all that comes before it.
    until_.reset();
    return;
  }
  Kiv::Restore<std::optional<StoreVersion>> const end{until_, std::nullopt};
  Kiv::Restore<std::optional<Own>> const reports{own_, std::nullopt};
  until_ = versions.last;  // what comes after the own changes can wait
  if (progress != nullptr) own_ = Own{versions, progress};
  follow();
}

void StoreMirror::submit(std::vector<StoreChange> changes) {
  needTaking();
  complete(changes);
  followTo(put(std::move(changes)), nullptr);
}

void StoreMirror::submitReadable(std::vector<StoreChange> changes, Progress const& progress) {
  KIV_CHECK(!following_);
  needTaking();
  if (changes.empty()) return;
  needRecords(changes);
  size_t const last = changes.size() - 1;
  StoreVersions const versions = put(std::move(changes));
  try {
    followTo(versions, &progress);
  } catch (...) {
    progress.failed(last, std::current_exception());
  }
}

void StoreMirror::make(std::string const& path, std::string const& typeName) {
  submit({{Kind::Make, path, {}, {}, typeName, {}, {}}});
}
void StoreMirror::set(std::string const& path, std::string const& collection,
                      std::string const& key, std::string const& value) {
  submit({{Kind::Set, path, collection, key, value, {}, {}}});
}
void StoreMirror::del(std::string const& path, std::string const& collection,
                      std::string const& key) {
  submit({{Kind::Del, path, collection, key, {}, {}, {}}});
}

void StoreMirror::accept() {
  if (status_.state != State::WentBack) return;
  accepting_ = true;
  connectDue_ = clock_->now();
  follow();
}

void StoreMirror::writeBehind() {
  if (clock_->now() < behindDue_) return;
  try {
    for (std::string const& path : options_.behind) submitBehind(path);
    behindRefused_ = false;
    behindPause_ = options_.firstPause;
  } catch (StoreRefused const& exception) {
    if (!behindRefused_) Kiv::emitLog(storeRefusedBehind, exception.what());
    behindRefused_ = true;
    behindDue_ = clock_->now() + behindPause_;
    behindPause_ = std::min(2 * behindPause_, options_.longestPause);
  }
}

void StoreMirror::submitBehind(std::string const& path) {
  Ptr<PtrInterface> const record = database_->object(path);
  if (!record) return;
  auto const known = behind_.find(path);
  bool const isNew = known == behind_.end();
  RecordForm const form = recordForm(*record);
  std::vector<StoreChange> changes = differenceOf(path, isNew ? RecordForm() : known->second, form);
  for (StoreChange& change : changes) completeChange(change, record->fwkType());
  if (isNew) {
    changes.insert(changes.begin(),
                   {Kind::Make, path, {}, {}, std::string(record->fwkType().name()), {}, {}});
  }
  if (changes.empty()) return;
  store_->submit(changes);
  behind_[path] = form;
}

void StoreMirror::addToHash(std::string_view text) {
  constexpr Kiv::U64 kSpread = 0x9E37'79B9'7F4A'7C15;
  contentsHash_ = (contentsHash_ ^ std::hash<std::string_view>()(text)) * kSpread;
  contentsHash_ ^= contentsHash_ >> 32;
}

void StoreMirror::lost(std::string const& reason) {
  ++losses_;
  accepting_ = false;
  if (current()) pause_ = options_.firstPause;
  connectDue_ = clock_->now() + pause_;
  pause_ = std::min(2 * pause_, options_.longestPause);
  stateIs(State::Away, reason);
}

void StoreMirror::stateIs(State state, std::string const& reason) {
  if (status_.state != state) status_.since = clock_->now();
  bool const wasWentBack = status_.state == State::WentBack;
  status_.state = state;
  status_.reason = reason;
  switch (state) {
    case State::Away:
      if (!saidAway_) Kiv::emitLog(storeAway, reason);
      saidAway_ = true;
      break;
    case State::WentBack:
      if (!wasWentBack) Kiv::emitLog(storeWentBack, reason);
      break;
    case State::Current:
      status_.attempts = 0;
      pause_ = options_.firstPause;
      if (saidAway_ || wasWentBack) Kiv::emitLog(storeBack, store_->name());
      saidAway_ = false;
      break;
  }
  guarded([&] { database_->connectedIs(current()); });
}

}  // namespace Host
