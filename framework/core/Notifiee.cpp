// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Notifiee.h"

#include <algorithm>
#include <new>
#include <span>
#include <utility>

#include "framework/core/Activity.h"

namespace Kiv {

NotifieeList::Visit* NotifieeList::innermost_ = nullptr;

NotifieeList::~NotifieeList() {
  if (rep_ == nullptr) return;
  for (Visit* visit = innermost_; visit != nullptr; visit = visit->outer) {
    if (visit->list != this) continue;
    visit->list = nullptr;
    visit->events |= Visit::kListDied;
  }
  ::operator delete(rep_);
}

NotifieeList::Rep* NotifieeList::allocate(U32 capacity) {
  static_assert(sizeof(Rep) % alignof(NotifieeConst*) == 0);
  void* const memory = ::operator new(sizeof(Rep) + capacity * sizeof(void*));
  return new (memory) Rep{0, 0, capacity, 0};
}

// One entry beyond those in use or reserved.
inline void NotifieeList::makeRoom() {
  if (rep_ == nullptr || rep_->used + rep_->reserved == rep_->capacity) grow();
}

void NotifieeList::grow() {
  if (rep_ == nullptr) {
    rep_ = allocate(1);
    return;
  }
  // A visit in progress refers to the list, not to the block, so the block may be reallocated
  // during it.
  Rep* const grown = allocate(2 * rep_->capacity);
  grown->live = rep_->live;
  grown->used = rep_->used;
  grown->reserved = rep_->reserved;
  std::copy_n(rep_->entries(), rep_->used, grown->entries());
  ::operator delete(std::exchange(rep_, grown));
}

void NotifieeList::reserve() {
  makeRoom();
  ++rep_->reserved;
}

void NotifieeList::add(NotifieeConst* notifiee) {
  makeRoom();
  notifiee->at_ = rep_->used;
  rep_->entries()[rep_->used++] = notifiee;
  ++rep_->live;
}

void NotifieeList::remove(NotifieeConst* notifiee) noexcept {
  if (rep_ == nullptr) return;
  U32 const at = notifiee->at_;
  if (at >= rep_->used || rep_->entries()[at] != notifiee) return;
  notifiee->at_ = NotifieeConst::kInNoList;
  rep_->entries()[at] = nullptr;
  --rep_->live;
  if (rep_->live <= rep_->used / 2 && !visited()) compact();
}

void NotifieeList::clear() noexcept {
  if (rep_ == nullptr) return;
  for (NotifieeConst*& entry : std::span(rep_->entries(), rep_->used)) {
    if (entry != nullptr) entry->at_ = NotifieeConst::kInNoList;
    entry = nullptr;
  }
  rep_->live = 0;
  if (!visited()) compact();
}

bool NotifieeList::visited() const noexcept {
  for (Visit const* visit = innermost_; visit != nullptr; visit = visit->outer) {
    if (visit->list == this) return true;
  }
  return false;
}

bool NotifieeList::keep(PtrInterface const& object) noexcept {
  for (Visit* visit = innermost_; visit != nullptr; visit = visit->outer) {
    if (visit->running == nullptr) continue;
    if (visit->running == &object) {
      visit->events |= Visit::kRunningKept;
      return true;
    }
    if (visit->running->actsm() == &object) {
      visit->events |= Visit::kOwnerKept;
      visit->owner = &object;
      return true;
    }
  }
  return false;
}

// Drops what the call that has returned had to keep. Returns whether the list has died.
bool NotifieeList::settle(Visit& visit) noexcept {
  NotifieeConst const* const running = std::exchange(visit.running, nullptr);
  U64 const events = std::exchange(visit.events, 0);
  if ((events & Visit::kRunningKept) != 0) running->kivRefDec();
  if ((events & Visit::kOwnerKept) != 0) visit.owner->kivRefDec();
  return visit.list == nullptr;
}

void NotifieeList::forget(NotifieeConst const& notifiee) noexcept {
  for (Visit* visit = innermost_; visit != nullptr; visit = visit->outer) {
    if (visit->running == &notifiee) visit->running = nullptr;
  }
}

void NotifieeList::notificationOff() {
  if (rep_ == nullptr) return;
  for (NotifieeConst* const entry : std::span(rep_->entries(), rep_->used)) {
    if (entry != nullptr) entry->onNotificationOff();
  }
}

void NotifieeList::compact() noexcept {
  U32 kept = 0;
  for (NotifieeConst* const entry : std::span(rep_->entries(), rep_->used)) {
    if (entry == nullptr) continue;
    entry->at_ = kept;
    rep_->entries()[kept++] = entry;
  }
  rep_->used = kept;
}

void NotifieeList::thrown(Visit& visit, U32 index) {
  NotifieeConst* const notifiee = visit.running;
  if (settle(visit) || notifiee == nullptr) return;
  if (visit.list->rep_->entries()[index] == notifiee) notifiee->onNotificationException();
}

NotifieeConst::~NotifieeConst() {
  NotifieeList::forget(*this);
  if (isRegisteredNotifiee()) notifier_->notifieeList().remove(this);
}

void NotifieeConst::notifierIs(Ptr<PtrInterface const> const& notifier) {
  if (notifier == notifier_) return;
  if (isRegisteredNotifiee()) notifier_->notifieeList().remove(this);
  ++binding_;
  notifier_ = notifier;
}

void NotifieeConst::hasNotificationActiveIs(bool active) {
  isRegisteredNotifieeIs(active);
  PtrInterface::hasNotificationActiveIs(active);
}

void NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == isRegisteredNotifiee() || !notifier_) return;
  if (registered) {
    notifier_->notifieeList().add(this);
  } else {
    notifier_->notifieeList().remove(this);
  }
}

Activity& NotifieeConst::kivFwkActivity() const {
  return Activity::framework();
}

void NotifieeConst::handleZeroRef() {
  onZeroReferences();
  PtrInterface::handleZeroRef();
}

}  // namespace Kiv
