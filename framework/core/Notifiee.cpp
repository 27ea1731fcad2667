#include "framework/core/Notifiee.h"

#include <algorithm>
#include <new>
#include <span>
#include <utility>

#include "framework/core/Activity.h"

namespace Kiv {

NotifieeList::~NotifieeList() {
  if (rep_ == nullptr) return;
  for (Visit* visit = rep_->innermost; visit != nullptr; visit = visit->outer) {
    visit->list = nullptr;
  }
  ::operator delete(rep_);
}

NotifieeList::Rep* NotifieeList::allocate(U32 capacity) {
  static_assert(sizeof(Rep) % alignof(NotifieeConst*) == 0);
  void* const memory = ::operator new(sizeof(Rep) + capacity * sizeof(void*));
  return new (memory) Rep{nullptr, 0, 0, capacity};
}

void NotifieeList::add(NotifieeConst* notifiee) {
  if (rep_ == nullptr) {
    rep_ = allocate(1);
  } else if (rep_->used == rep_->capacity) {
    // A visit in progress goes by the list, not by the block, so the block may move under it.
    Rep* const grown = allocate(2 * rep_->capacity);
    grown->innermost = rep_->innermost;
    grown->live = rep_->live;
    grown->used = rep_->used;
    std::copy_n(rep_->entries(), rep_->used, grown->entries());
    ::operator delete(std::exchange(rep_, grown));
  }
  rep_->entries()[rep_->used++] = notifiee;
  ++rep_->live;
}

void NotifieeList::remove(NotifieeConst* notifiee) {
  if (rep_ == nullptr) return;
  NotifieeConst** const end = rep_->entries() + rep_->used;
  NotifieeConst** const found = std::find(rep_->entries(), end, notifiee);
  if (found == end) return;
  *found = nullptr;
  --rep_->live;
  if (rep_->innermost == nullptr) compact();
}

void NotifieeList::clear() {
  if (rep_ == nullptr) return;
  for (NotifieeConst*& entry : std::span(rep_->entries(), rep_->used)) {
    if (entry != nullptr) entry->registered_ = false;
    entry = nullptr;
  }
  rep_->live = 0;
  if (rep_->innermost == nullptr) compact();
}

void NotifieeList::notificationOff() {
  if (rep_ == nullptr) return;
  for (NotifieeConst* const entry : std::span(rep_->entries(), rep_->used)) {
    if (entry != nullptr) entry->onNotificationOff();
  }
}

void NotifieeList::compact() {
  NotifieeConst** const entries = rep_->entries();
  NotifieeConst** const end = std::remove(entries, entries + rep_->used, nullptr);
  rep_->used = static_cast<U32>(end - entries);
}

void NotifieeList::thrown(U32 index, NotifieeConst* notifiee) {
  if (rep_->entries()[index] == notifiee) notifiee->onNotificationException();
}

NotifieeConst::~NotifieeConst() {
  if (registered_) notifier_->notifieeList().remove(this);
}

void NotifieeConst::notifierIs(Ptr<PtrInterface const> const& notifier) {
  if (notifier == notifier_) return;
  NotifieeConst::isRegisteredNotifieeIs(false);
  notifier_ = notifier;
}

void NotifieeConst::hasNotificationActiveIs(bool active) {
  PtrInterface::hasNotificationActiveIs(active);
  isRegisteredNotifieeIs(active);
}

void NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == registered_ || !notifier_) return;
  if (registered) {
    notifier_->notifieeList().add(this);
  } else {
    notifier_->notifieeList().remove(this);
  }
  registered_ = registered;
}

Activity& NotifieeConst::kivFwkActivity() const {
  return Activity::framework();
}

void NotifieeConst::handleZeroRef() {
  onZeroReferences();
  PtrInterface::handleZeroRef();
}

}  // namespace Kiv
