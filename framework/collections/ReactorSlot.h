// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "framework/core/Notifiee.h"
#include "framework/core/Ptr.h"

namespace Kiv {

namespace detail {

/// Makes a reactor and switches it on. It may run handlers, including one that releases the owner,
/// which does not hold the reactor yet: the caller holds the owner.
template <class R, class Notifier, class Owner>
Ptr<R> makeReactor(Ptr<Notifier> const& notifier, Owner* owner) {
  NotifieeRoom room{Ptr<PtrInterface const>(notifier)};  // nothing may fail after the handlers
  Ptr<R> reactor = R::make(notifier, owner);
  room.give();
  reactor->hasNotificationActiveIs(true);
  return reactor;
}

/// Ends a reactor whose owner is being destroyed; the reactor may still be referenced elsewhere.
template <class R>
void endReactor(R& reactor) {
  reactor.kivDoZombieReactors(true);
  reactor.ownerIs(nullptr);
}

}  // namespace detail

/// The place of one single-object reactor in a state machine: empty, or holding the reactor R that
/// watches a Notifier for an Owner. R may be incomplete where the slot is declared if it names
/// both.
///
/// A reactor in the slot is registered. One that leaves it is marked for deletion, so that it
/// dispatches nothing more when it is held elsewhere. Destroying the slot also clears the reactor's
/// owner, even where the owner's constructor throws.
template <class R, class Notifier = typename R::Notifier, class Owner = typename R::Owner>
class ReactorSlot {
 public:
  ReactorSlot() = default;
  ReactorSlot(ReactorSlot const&) = delete;
  ReactorSlot& operator=(ReactorSlot const&) = delete;
  ~ReactorSlot() {
    if (reactor_ && reactor_->owner() != nullptr) detail::endReactor(*reactor_);
  }

  /// Creates the reactor on `notifier`, switches it on and then stores it, or rebinds the existing
  /// one through its virtual notifierIs. A null notifier creates nothing. Throws std::bad_alloc;
  /// nothing has changed then.
  void is(Ptr<Notifier> const& notifier, Owner* owner) {
    if (reactor_) {
      Ptr<R> const reactor = reactor_;
      reactor->notifierIs(notifier);
    } else if (notifier) {
      Ptr<Owner> const keep(owner);
      reactor_ = detail::makeReactor<R>(notifier, owner);
    }
  }
  void del() {
    Ptr<R> const reactor = std::move(reactor_);
    if (reactor) reactor->kivDoZombieReactors(true);
  }

  Ptr<R> const& reactor() const { return reactor_; }
  explicit operator bool() const { return static_cast<bool>(reactor_); }
  R* operator->() const { return reactor_.operator->(); }
  /// The watched object, or null.
  Ptr<Notifier> notifier() const { return reactor_ ? reactor_->notifier() : Ptr<Notifier>(); }
  Notifier* notifierRaw() const { return reactor_ ? reactor_->notifierRaw() : nullptr; }

  void hasNotificationActiveIs(bool active) {
    if (reactor_) reactor_->hasNotificationActiveIs(active);
  }
  void kivDoZombieReactors(bool zombie) {
    if (reactor_) reactor_->kivDoZombieReactors(zombie);
  }
  void ownerIs(Owner* owner) {
    if (reactor_) reactor_->ownerIs(owner);
  }

 private:
  Ptr<R> reactor_;
};

}  // namespace Kiv
