// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <ostream>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "framework/core/AllocTrack.h"
#include "framework/core/Fatal.h"

namespace Kiv {

class PtrInterface;

/// An intrusive reference-counted pointer to a framework object.
///
/// Copying counts one reference more, destruction one less; a move counts nothing. Assignment and
/// reset empty the pointer before the old object is released, so that a destructor that reads this
/// pointer never finds an object under destruction. Counting is atomic only when
/// VFPtrInterface::threadSafePointers_ is set. Dereferencing a null Ptr ends the process, in every
/// build type.
///
///   Ptr<Port> const port = makeActive<Port>(7u);  // the first reference
///   Ptr<Port const> const same = port;            // one more, for reading
///   Ptr<Port> const self(this);                   // within a member function: held until its end
template <class T>
class Ptr {
 public:
  using element_type = T;

  Ptr() = default;
  Ptr(std::nullptr_t) {}
  /// Shares an object that is alive, or under construction.
  explicit Ptr(T* object) : object_(object) { retain(); }
  Ptr(Ptr const& other) : object_(other.object_) { retain(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U>
  requires std::convertible_to<U*, T*> Ptr(Ptr<U> const& other) : object_(other.get()) { retain(); }
  template <class U>
  requires std::convertible_to<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : object_(other.release()) {}
  ~Ptr() { drop(object_); }

  Ptr& operator=(Ptr other) noexcept {
    swap(other);
    return *this;
  }
  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }
  void reset() { drop(std::exchange(object_, nullptr)); }

  /// Takes over a reference that the caller owns.
  static Ptr adopt(T* object) {
    Ptr taken;
    taken.object_ = object;
    return taken;
  }
  /// Gives the reference to the caller; the pointer is null afterwards.
  [[nodiscard]] T* release() noexcept { return std::exchange(object_, nullptr); }

  T* get() const { return object_; }
  T* operator->() const { return checked(); }
  T& operator*() const { return *checked(); }
  explicit operator bool() const { return object_ != nullptr; }

  template <class U>
  friend bool operator==(Ptr const& a, Ptr<U> const& b) {
    return a.get() == b.get();
  }
  friend bool operator==(Ptr const& a, std::nullptr_t) { return a.object_ == nullptr; }
  friend std::ostream& operator<<(std::ostream& out, Ptr const& p) {
    return out << static_cast<void const*>(p.object_);
  }

 private:
  void retain() const {
    if (object_ != nullptr) object_->kivRefInc();
  }
  static void drop(T* object) {
    if (object != nullptr) object->kivRefDec();
  }
  T* checked() const {
    if (object_ == nullptr) [[unlikely]]
      nullDereferenced();
    return object_;
  }
  [[noreturn, gnu::cold, gnu::noinline]] static void nullDereferenced() {
    assertFail("ptr", __FILE__, __LINE__, __PRETTY_FUNCTION__, "null Kiv::Ptr dereferenced");
  }

  T* object_ = nullptr;
};

/// Makes a framework object; the only way to make one, since no other function reaches its
/// operator new. The object's notification is off. Nothing is counted or kept when the constructor
/// throws.
template <class T, class... Args>
[[nodiscard]] Ptr<T> make(Args&&... args) {
  static_assert(std::derived_from<T, PtrInterface>);
  static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__, "kivMemAlloc aligns no further");
  T* const object = new T(std::forward<Args>(args)...);
  AllocTrackTypeInfo::trackAllocation(typeid(T));
  return Ptr<T>::adopt(object);
}

/// make(), then switches the object's notification on: how every object that others may watch is
/// made.
template <class T, class... Args>
[[nodiscard]] Ptr<T> makeActive(Args&&... args) {
  Ptr<T> object = make<T>(std::forward<Args>(args)...);
  object->hasNotificationActiveIs(true);
  return object;
}

/// The same object under another of its types; null when it is not of that type.
template <class T, class U>
[[nodiscard]] Ptr<T> ptrCast(Ptr<U> const& p) {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}

}  // namespace Kiv

template <class T>
struct std::hash<Kiv::Ptr<T>> {
  size_t operator()(Kiv::Ptr<T> const& p) const { return std::hash<T*>()(p.get()); }
};

// After the class, since the counted objects are declared in terms of Ptr.
#include "framework/core/PtrInterface.h"
