// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <iterator>
#include <type_traits>
#include <typeinfo>

#include "framework/core/Fatal.h"
#include "framework/core/Notifiee.h"
#include "framework/core/Types.h"

namespace Kiv {

namespace detail {

template <class Handler>
struct HandlerTraits;
template <class C>
struct HandlerTraits<void (C::*)()> {
  using Class = C;
  static constexpr bool kWhole = true;
};
template <class C, class K>
struct HandlerTraits<void (C::*)(K)> {
  using Class = C;
  static constexpr bool kWhole = false;
};

}  // namespace detail

/// Picks the overload of a handler that takes no key: `whole<Sm>(&Sm::handleFoo)`.
template <class C>
constexpr auto whole(void (C::*handler)()) {
  return handler;
}
/// Picks the overload of a handler that takes a key of type K.
template <class K, class C>
constexpr auto keyed(void (C::*handler)(K)) {
  return handler;
}

/// One dispatch row of a reactor: a change of attribute A runs Handler, a member function of the
/// owner or of the reactor itself.
///  - A handler without parameters is for the whole attribute: it runs on every change, and
///    once when the reactor is rebound to another notifier.
///  - A handler with one parameter gets the member's key; a notification without a key is ignored.
///    If a collection is to be handled whole when the reactor is rebound, Whole names the handler.
template <Attr A, auto Handler, auto... Whole>
struct On {
  static_assert(sizeof...(Whole) <= 1);
  static constexpr AttributeId kId = A.id;
  template <class Notifier>
  static constexpr bool kWatches = detail::isAttributeOf<A, Notifier>();
  using Traits = detail::HandlerTraits<decltype(Handler)>;

  template <class Self>
  static void run(Self& self, void const* key) {
    auto& target = self.template handlerTarget<typename Traits::Class>();
    if constexpr (Traits::kWhole) {
      (target.*Handler)();
    } else {
      if (key == nullptr) return;
      (target.*Handler)(*static_cast<typename decltype(A)::Key const*>(key));
    }
  }

  template <class Self>
  static void runWhole(Self& self) {
    if constexpr (Traits::kWhole) {
      static_assert(sizeof...(Whole) == 0);
      run(self, nullptr);
    } else {
      (runOne<Whole>(self), ...);
    }
  }

 private:
  template <auto OneHandler, class Self>
  static void runOne(Self& self) {
    using Class = typename detail::HandlerTraits<decltype(OneHandler)>::Class;
    (self.template handlerTarget<Class>().*OneHandler)();
  }
};

namespace detail {

template <AttributeId... id>
constexpr bool distinctIds() {
  AttributeId const all[] = {0, id...};
  for (AttributeId const& at : all) {
    if (std::find(&at + 1, std::end(all), at) != std::end(all)) return false;
  }
  return true;
}

}  // namespace detail

/// The dispatch rows of a reactor, in the order in which a rebind runs them.
template <class... Row>
struct Rows {
  static_assert(detail::distinctIds<Row::kId...>(),
                "two rows for one attribute: the second would never run");
  template <class Notifier>
  static constexpr bool kWatch = (Row::template kWatches<Notifier> && ...);

  template <class Self>
  static void dispatch(Self& self, AttributeId id, void const* key) {
    (void)((id == Row::kId && (Row::run(self, key), true)) || ...);
    (void)self, (void)id, (void)key;
  }
  template <class Self>
  static void runWhole(Self& self, U32 binding) {
    ((self.mayDispatch() && self.kivBinding() == binding ? Row::runWhole(self) : void()), ...);
    (void)self, (void)binding;
  }
};

/// A reactor on one Notifier, acting for one Owner, the state machine that made it. Row are its
/// dispatch rows:
///
///   struct KivL3Output final
///       : Kiv::Reactor<KivL3Output, BfnL3Output, AgentSm,
///                      Kiv::On<BfnL3Output::kStartMacRewriteSm, &AgentSm::handleStart>> {};
///
/// A reactor with handlers of its own names its rows inside its class instead, as `Rows`.
///
/// A reactor that needs no constructor declares none: Reactor::make() binds it just the same.
///
/// Construction binds the notifier and calls no handler. An attribute that no row names is ignored.
/// A reactor that is marked for deletion, or whose owner was destroyed, dispatches nothing. A
/// handler may destroy the reactor: it is not accessed after a handler has run.
template <class Self, class NotifierT, class OwnerT, class... Row>
class Reactor : public NotifieeConst {
 public:
  using Notifier = NotifierT;
  using Owner = OwnerT;
  using Rows = Kiv::Rows<Row...>;

  Reactor(Ptr<Notifier> const& notifier, Owner* owner) { bind(notifier, owner); }

  /// Makes a Self, by its constructor of these two arguments if it has one. Notification is off.
  static Ptr<Self> make(Ptr<Notifier> const& notifier, Owner* owner) {
    if constexpr (std::is_constructible_v<Self, Ptr<Notifier> const&, Owner*>) {
      return Kiv::make<Self>(notifier, owner);
    } else {
      Ptr<Self> reactor = Kiv::make<Self>();
      reactor->bind(notifier, owner);
      return reactor;
    }
  }

  Ptr<Notifier> notifier() const { return Ptr<Notifier>(notifierRaw()); }
  /// The notifier without counting a reference; valid while the reactor is bound to it.
  Notifier* notifierRaw() const {
    return static_cast<Notifier*>(const_cast<PtrInterface*>(notifierBase().get()));
  }

  /// Rebinds. The current notifier again: nothing. Another one: each whole-object handler runs once
  /// in the order of the rows, skipped while the reactor is marked for deletion, and then the
  /// reactor registers. Null: the reactor is unbound and no handler runs. An object of another type
  /// than Notifier is a fatal error. When one of those handlers rebinds the reactor once more, the
  /// remaining ones run for the last binding only.
  ///
  /// A handler that throws ends the run; the reactor is bound and registered all the same, and the
  /// exception is rethrown. Throws std::bad_alloc before anything has changed.
  void notifierIs(Ptr<PtrInterface const> const& notifier) override {
    if (notifier) {
      PtrInterface const& object = *notifier;
      KIV_CHECK(dynamic_cast<Notifier const*>(&object) != nullptr, "a reactor cannot watch a ",
                typeid(object).name());
    }
    if (notifier == notifierBase()) return;
    Ptr<Owner> const owner(owner_);
    Ptr<Reactor> const self(this);
    if (!notifier) {
      NotifieeConst::notifierIs(nullptr);
      return;
    }
    // It also holds the notifier, which the old one may be the last to hold.
    NotifieeRoom room(notifier);
    NotifieeConst::notifierIs(room.notifier());
    try {
      Self::Rows::runWhole(static_cast<Self&>(*this), this->kivBinding());
    } catch (...) {
      room.give();
      this->isRegisteredNotifieeIs(true);
      throw;
    }
    room.give();
    this->isRegisteredNotifieeIs(true);
  }

  /// A handler may release the owner or the reactor: during a notification both live until it
  /// returns (see NotifieeList).
  void onAttribute(AttributeId id, void const* key) override {
    static_assert(Self::Rows::template kWatch<Notifier>,
                  "a row of the reactor names an attribute of another type than the notifier's");
    static_assert(
        requires { typename Owner::StateMachine; }, "a reactor's owner is a StateMachine");
    if (!mayDispatch()) return;
    Self::Rows::dispatch(static_cast<Self&>(*this), id, key);
  }
  bool mayDispatch() const { return !kivMarkedForDeletion() && owner_ != nullptr; }

  void handleZeroRef() override {
    if (!NotifieeList::keepWhileRunning(*this)) NotifieeConst::handleZeroRef();
  }

  PtrInterface* actsm() const override { return owner_; }
  Owner* owner() const { return owner_; }
  /// The owner disowns its reactors when it is destroyed: a late notification then runs no handler.
  void ownerIs(Owner* owner) { owner_ = owner; }

  template <class C>
  C& handlerTarget() {
    if constexpr (std::is_base_of_v<C, Owner>) {
      return *owner_;
    } else {
      return static_cast<Self&>(*this);
    }
  }

 protected:
  Reactor() = default;

 private:
  void bind(Ptr<Notifier> const& notifier, Owner* owner) {
    owner_ = owner;
    NotifieeConst::notifierIs(notifier);
  }

  Owner* owner_ = nullptr;
};

}  // namespace Kiv
