// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "framework/core/Ptr.h"
#include "framework/core/PtrInterface.h"

namespace Kiv {

/// Base of the state machines: the `initialized` flag, the type, and the three operations that are
/// forwarded to the reactors.
///
/// Derived names its reactors once, in attribute order, its child machines, and its type:
///
///   void kivEachReactor(auto f) { f(l3Output_); f(perVrf_); }
///   void kivEachChild(auto f) { f(childSm_); }  // Ptrs; null ones are skipped
///   static Kiv::Type const& _kivType();
///
/// When its last reference goes, before its destructor runs, a machine marks and disowns its
/// reactors: from then on none of them dispatches anything, even if it is still referenced
/// elsewhere. A constructor that throws leaves that to the slots, which do it for what they hold.
template <class Derived, class Base = PtrInterface>
class StateMachine : public Base {
 public:
  bool initialized() const { return initialized_; }
  /// Stores the flag; does not notify.
  void initializedIs(bool initialized) { initialized_ = initialized; }

  Type const& fwkType() const override { return Derived::_kivType(); }

  /// Switches the machine's own notification, its reactors and its child machines. Nothing when
  /// `active` is what already holds.
  void hasNotificationActiveIs(bool active) override;

  /// Marks (or unmarks) every reactor in attribute order, then the machine itself. Nothing when the
  /// machine's own mark is already so.
  void kivDoZombieReactors(bool zombie);

  void handleZeroRef() override;

 protected:
  using Base::Base;

  void kivEachChild(auto) {}

 private:
  /// Marks and disowns every reactor, in attribute order.
  void kivTeardown();
  Derived& self() { return static_cast<Derived&>(*this); }

  bool initialized_ = false;
};

// Outside of the class, so that `extern template class` keeps them where the reactors are complete.
template <class Derived, class Base>
void StateMachine<Derived, Base>::hasNotificationActiveIs(bool active) {
  if (active == this->hasNotificationActive()) return;
  Base::hasNotificationActiveIs(active);
  try {
    self().kivEachReactor([active](auto& reactors) { reactors.hasNotificationActiveIs(active); });
    self().kivEachChild([active](auto& child) {
      // Through the base: the child's own reactors need not be known here.
      if (child) static_cast<PtrInterface&>(*child).hasNotificationActiveIs(active);
    });
  } catch (...) {
    // A reactor found no memory to register: switching again reaches all of them.
    Base::hasNotificationActiveIs(!active);
    throw;
  }
}

template <class Derived, class Base>
void StateMachine<Derived, Base>::handleZeroRef() {
  if (NotifieeList::keepWhileRunning(*this)) return;
  kivTeardown();
  Base::handleZeroRef();
}

template <class Derived, class Base>
void StateMachine<Derived, Base>::kivDoZombieReactors(bool zombie) {
  if (zombie == this->kivMarkedForDeletion()) return;
  self().kivEachReactor([zombie](auto& reactors) { reactors.kivDoZombieReactors(zombie); });
  this->kivMarkedForDeletionIs(zombie);
}

template <class Derived, class Base>
void StateMachine<Derived, Base>::kivTeardown() {
  kivDoZombieReactors(true);
  self().kivEachReactor([](auto& reactors) { reactors.ownerIs(nullptr); });
}

}  // namespace Kiv
