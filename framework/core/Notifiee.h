// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/EventScope.h"
#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"

namespace Kiv {

class Activity;
class ActivityConfig;

/// A reactor's base: receives the changes of one notifier.
///
/// Ownership: holds its notifier; is held by the state machine that made it; leaves the notifier's
/// list in its own destructor, also when that destructor runs because a constructor threw.
/// Lifetime: while it is registered its notifier is alive.
class NotifieeConst : public PtrInterface {
 public:
  /// Rebinds to another notifier, or to none. This base operation rebinds only: no handler runs,
  /// and a registration with the old notifier ends.
  virtual void notifierIs(Ptr<PtrInterface const> const& notifier);
  /// One attribute of the notifier has changed; `key` points at the member's key for a collection.
  virtual void onAttribute(AttributeId id, void const* key) = 0;
  /// The last reference to this notifiee has gone; it is deleted next.
  virtual void onZeroReferences() {}
  /// The activity delivers a notification. Empty: dispatch is synchronous, through onAttribute.
  virtual void handleNotification(ActivityConfig*) {}
  /// Switches delivery on or off: on registers with the notifier, off unregisters. Idempotent, so a
  /// reactor switched on by its maker and again by its machine gets one call a change.
  void hasNotificationActiveIs(bool active) override;
  /// A handler of this notifiee has thrown; the exception then reaches the mutator's caller.
  virtual void onNotificationException() {}
  /// The state machine this notifiee acts for, or null.
  virtual PtrInterface* actsm() const { return nullptr; }
  virtual Activity& kivFwkActivity() const;
  /// Enters or leaves the notifier's list. Idempotent; nothing when there is no notifier.
  virtual void isRegisteredNotifieeIs(bool registered);
  /// The notifier's notification is about to be switched off. Throwing keeps it on. Must not change
  /// the notifier's list.
  virtual void onNotificationOff() {}

  bool isRegisteredNotifiee() const { return at_ != kInNoList; }
  Ptr<PtrInterface const> const& notifierBase() const { return notifier_; }
  /// Another number after each rebind: two equal ones mean the same binding, also where an object
  /// was freed and another one made at its address.
  U32 kivBinding() const { return binding_; }

  /// Marks for deletion, including the notifiee's own reactors.
  virtual void kivDoZombieReactors(bool zombie) { kivMarkedForDeletionIs(zombie); }

  void handleZeroRef() override;

 protected:
  NotifieeConst() = default;
  ~NotifieeConst() override;

 private:
  friend class NotifieeList;
  static constexpr U32 kInNoList = ~U32{0};

  U32 at_ = kInNoList;  // index in the notifier's list
  Ptr<PtrInterface const> notifier_;
  U32 binding_ = 0;
};

/// Room for one notifiee in an object's list, and a hold on the object. The constructor throws
/// std::bad_alloc; after it one registration, made after give(), cannot.
class NotifieeRoom {
 public:
  explicit NotifieeRoom(Ptr<PtrInterface const> const& notifier) : notifier_(notifier) {
    notifier_->notifieeList().reserve();
  }
  NotifieeRoom(NotifieeRoom const&) = delete;
  NotifieeRoom& operator=(NotifieeRoom const&) = delete;
  ~NotifieeRoom() { give(); }

  Ptr<PtrInterface const> const& notifier() const { return notifier_; }
  void give() noexcept {
    if (held_) notifier_->notifieeList().unreserve();
    held_ = false;
  }

 private:
  Ptr<PtrInterface const> const notifier_;
  bool held_ = true;
};

// A visit in progress, on the stack of visit(). What is destroyed or should be during a call is
// noted here, so that a call which destroys nothing costs no reference.
struct NotifieeList::Visit {
  enum : U64 { kListDied = 1, kRunningKept = 2, kOwnerKept = 4 };

  Visit(NotifieeList* visited, Visit* around) : list(visited), outer(around) {}

  NotifieeList* list;      // null once the list has died
  NotifieeConst* running;  // from the first call on: the notifiee; null once it has died
  Visit* const outer;
  PtrInterface const* owner;  // where kOwnerKept
  U64 events = 0;             // of the call
};

// Ends a visit. Its members are copies that no handler can reach, so that they stay in registers.
class NotifieeList::VisitEnd {
 public:
  VisitEnd(NotifieeList& list, Visit const& visit) : list_(list), visit_(visit) {}
  VisitEnd(VisitEnd const&) = delete;
  VisitEnd& operator=(VisitEnd const&) = delete;
  ~VisitEnd() {
    innermost_ = visit_.outer;
    if (visit_.list == nullptr) [[unlikely]]
      return;
    Rep const& rep = *list_.rep_;
    if (rep.live != rep.used && !list_.visited()) [[unlikely]]
      list_.compact();
  }

 private:
  NotifieeList& list_;
  Visit const& visit_;
};

inline void NotifieeList::visit(AttributeId id, void const* key) {
  if (rep_ == nullptr) return;
  // All that the handlers trace carries the time at which the outermost visit first traced.
  Ringlog::EventScope const event;
  Visit visit(this, innermost_);
  innermost_ = &visit;
  VisitEnd const end(*this, visit);
  U32 const count = rep_->used;
  for (U32 i = 0; i < count; ++i) {
    NotifieeConst* const notifiee = rep_->entries()[i];
    if (notifiee == nullptr) [[unlikely]]
      continue;
    visit.running = notifiee;
    try {
      notifiee->onAttribute(id, key);
    } catch (...) {
      thrown(visit, i);
      throw;
    }
    if (visit.events != 0) [[unlikely]] {
      if (settle(visit)) return;
    }
  }
}

}  // namespace Kiv
