// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>

#include "framework/core/Types.h"

namespace Kiv {

class NotifieeConst;  // PtrInterface::NotifieeConst
class PtrInterface;

/// The notifiees of one object, in the order of registration.
///
/// Ownership: the list owns nothing. A notifiee holds its notifier and leaves the list in its own
/// destructor.
///
/// Re-entrancy: a handler may do anything, also to the list being visited. During a visit
///  - a notifiee that removes itself or another one: the removed one is not called any more;
///  - a notifiee that is added is not called for the current change, only for later ones;
///  - a notifiee that rebinds to another notifier counts as removed;
///  - a notifiee may be destroyed, the running one included;
///  - the list itself may be destroyed with its owner: the visit ends there;
///  - a reactor whose last reference goes while its own handler runs, or the last reference to its
///    owner, is destroyed when the handler has returned. Of two, the reactor goes first.
/// Visits nest: a handler that mutates the notifier visits the list again before it returns.
///
/// Cost: an object without notifiees pays one pointer. Adding and removing take constant time on
/// average: a removal leaves a hole; holes are closed when the outermost visit ends, and outside of
/// a visit when they are the greater part.
///
///   watched->notifieeList().add(notifiee);      // NotifieeConst::isRegisteredNotifieeIs(true)
///   watched->notifieeList().visit(kNumber.id);  // PtrInterface::notify(kNumber.id)
///   watched->notifieeList().remove(notifiee);   // NotifieeConst::isRegisteredNotifieeIs(false)
class NotifieeList {
 public:
  NotifieeList() = default;
  NotifieeList(NotifieeList const&) = delete;
  NotifieeList& operator=(NotifieeList const&) = delete;
  ~NotifieeList();

  bool empty() const { return size() == 0; }
  size_t size() const { return rep_ == nullptr ? 0 : rep_->live; }

  /// Appends a notifiee that is in no list. Throws std::bad_alloc; the list is then as it was.
  void add(NotifieeConst* notifiee);
  /// Removes; absent: nothing.
  void remove(NotifieeConst* notifiee) noexcept;
  /// Removes all and notifies none of them.
  void clear() noexcept;

  /// Keeps room for one notifiee more, so that one add() after the matching unreserve() cannot
  /// throw. Throws std::bad_alloc; nothing is kept then. See NotifieeRoom.
  void reserve();
  void unreserve() noexcept { --rep_->reserved; }

  /// Calls onAttribute(id, key) on every notifiee. An exception from a handler is reported to that
  /// notifiee's onNotificationException() and leaves this function; notifiees after it are not
  /// called; the list stays usable.
  void visit(AttributeId id, void const* key = nullptr);
  /// Calls onNotificationOff() on every notifiee; the first exception leaves this function.
  void notificationOff();

  /// For the last reference to a reactor or to a reactor's owner: takes it over if one of their
  /// handlers is running, and drops it when that one has returned. Returns whether it has.
  static bool keepWhileRunning(PtrInterface const& object) noexcept {
    return innermost_ != nullptr && keep(object);
  }

 private:
  friend class NotifieeConst;
  struct Visit;
  class VisitEnd;

  // One block of memory: this head, followed by `capacity` entries, `used` of them in use and
  // `reserved` kept free. A null entry is the hole that a removal leaves.
  struct Rep {
    U32 live;
    U32 used;
    U32 capacity;
    U32 reserved;

    NotifieeConst** entries() { return reinterpret_cast<NotifieeConst**>(this + 1); }
  };

  static Rep* allocate(U32 capacity);
  void makeRoom();
  void grow();
  void compact() noexcept;
  static void thrown(Visit& visit, U32 index);
  bool visited() const noexcept;
  static bool keep(PtrInterface const& object) noexcept;
  static bool settle(Visit& visit) noexcept;
  static void forget(NotifieeConst const& notifiee) noexcept;

  static Visit* innermost_;  // of the visits in progress, of all lists

  Rep* rep_ = nullptr;
};

}  // namespace Kiv
