// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

#include "framework/core/NotifieeList.h"
#include "framework/core/Types.h"

namespace Kiv {

class GenericIterator;
class GenericValue;
class NotifieeConst;
class Type;
enum class GenericOp : U8;
template <class T>
class Ptr;
// The one friend that reaches operator new; defined in Ptr.h.
template <class T, class... Args>
[[nodiscard]] Ptr<T> make(Args&&... args);  // NOLINT(readability-redundant-declaration)

/// What the reference counting of every framework object shares.
class VFPtrInterface {
 public:
  /// Selects atomic counting for the whole process: of references, of the bytes of a String and in
  /// the allocation tracker. Off by default and never set by this library: all its objects live on
  /// one thread. A host whose threads make, share and drop objects sets it once, before it makes
  /// the first one. It covers nothing else: attributes, collections, notification and the texts of
  /// interface ids and VRF names (InternPool) belong to the framework thread.
  static bool threadSafePointers_;
};

/// The base of every framework object.
///
/// Ownership: objects are made by Kiv::make, which alone may allocate one, and held through
/// Kiv::Ptr; an object is destroyed with its last Ptr. During its own constructor and destructor an
/// object holds a reference to itself, so a constructor may hand out `Ptr(this)` freely: a
/// temporary one never deletes the object. An object on the stack is fatal in debug builds, when it
/// is destroyed.
///
/// The reference word: the low bits count references, bit 31 is the marked-for-deletion flag and
/// bit 29 the notification-active flag. 2^29 - 1 references are the limit; one more is fatal in
/// debug builds.
class PtrInterface : public VFPtrInterface {
 public:
  using NotifieeConst = Kiv::NotifieeConst;

  static constexpr U32 kMarkedForDeletionBit = U32{1} << 31;
  static constexpr U32 kNotificationActiveBit = U32{1} << 29;
  static constexpr U32 kCountMask = ~(kMarkedForDeletionBit | kNotificationActiveBit);

  PtrInterface(PtrInterface const&) = delete;
  PtrInterface& operator=(PtrInterface const&) = delete;

  /// Memory of every framework object comes from here; `operator new` calls it. Throws
  /// std::bad_alloc.
  static void* kivMemAlloc(size_t size);
  static void kivMemFree(void* memory) noexcept;

  void kivRefInc() const noexcept;
  /// Drops one reference. The one that lowers the count to zero calls the object's handleZeroRef().
  void kivRefDec() const;
  /// The whole word, for tests and for a look inside.
  U32 kivRefWord() const { return refWord_; }
  U32 kivRefCount() const { return refWord_ & kCountMask; }

  /// Marked objects are on their way out: a marked reactor dispatches nothing.
  bool kivMarkedForDeletion() const { return (refWord_ & kMarkedForDeletionBit) != 0; }
  void kivMarkedForDeletionIs(bool marked) { bitIs(kMarkedForDeletionBit, marked); }

  /// The objects that are notified of this object's changes.
  NotifieeList& notifieeList() const { return notifieeList_; }

  /// Whether this object notifies its notifiees of changes. Off after construction; changes made
  /// while it was off are not notified later. A notifiee may refuse that it is switched off, by an
  /// exception.
  bool hasNotificationActive() const { return (refWord_ & kNotificationActiveBit) != 0; }
  virtual void hasNotificationActiveIs(bool active) {
    if (!active && hasNotificationActive()) notifieeList_.notificationOff();
    bitIs(kNotificationActiveBit, active);
  }

  /// The last reference has gone. Deletes the object.
  virtual void handleZeroRef();

  /// The description of the object's own type.
  virtual Type const& fwkType() const;
  static Type const& _kivType();
  /// One operation on an attribute by name, arguments and result in generic form: see GenericOp.
  /// Throws RangeException when the type has no such attribute, when the attribute does not know
  /// the operation, or when an argument does not parse; nothing has changed then.
  GenericValue genericIfAttributeOp(GenericOp op, std::string_view name,
                                    std::span<GenericValue const> arguments = {});
  /// A walk over a collection attribute by name. Throws RangeException when there is none.
  std::unique_ptr<GenericIterator> genericIfIterator(std::string_view name);

  /// Notifies of a change when notification is active. Called by mutators after the change is
  /// stored, and at the very end: a handler may destroy this object.
  void notify(AttributeId id, void const* key = nullptr) const {
    if (hasNotificationActive()) notifieeList_.visit(id, key);
  }

 protected:
  PtrInterface() = default;
  virtual ~PtrInterface();
  // Destructors of derived types name it.
  static void operator delete(void* memory) noexcept { kivMemFree(memory); }

 private:
  template <class T>
  friend class Ptr;
  template <class T, class... Args>
  friend Ptr<T> make(Args&&... args);

  static void* operator new(size_t size) { return kivMemAlloc(size); }
  static void* operator new[](size_t size) = delete;

  void bitIs(U32 bit, bool on);
  void kivLastRefGone();
  [[noreturn]] static void tooManyReferences();

  mutable NotifieeList notifieeList_;
  mutable U32 refWord_ = 1;  // the reference that the constructor holds; Kiv::make takes it over
};

inline void PtrInterface::kivRefInc() const noexcept {
  if constexpr (kDebugBuild) {
    constexpr U32 kCount = kNotificationActiveBit - 1;
    if ((refWord_ & kCount) == kCount) tooManyReferences();
  }
  if (threadSafePointers_) [[unlikely]] {
    __atomic_fetch_add(&refWord_, 1u, __ATOMIC_RELAXED);
  } else {
    ++refWord_;
  }
}

inline void PtrInterface::kivRefDec() const {
  U32 const word =
      threadSafePointers_ ? __atomic_sub_fetch(&refWord_, 1u, __ATOMIC_ACQ_REL) : --refWord_;
  if ((word & kCountMask) == 0) [[unlikely]] {
    const_cast<PtrInterface*>(this)->kivLastRefGone();
  }
}

inline void PtrInterface::bitIs(U32 bit, bool on) {
  if (threadSafePointers_) [[unlikely]] {
    if (on) {
      __atomic_fetch_or(&refWord_, bit, __ATOMIC_RELAXED);
    } else {
      __atomic_fetch_and(&refWord_, ~bit, __ATOMIC_RELAXED);
    }
  } else {
    refWord_ = on ? refWord_ | bit : refWord_ & ~bit;
  }
}

}  // namespace Kiv

// After the class, so that notify() runs inline down to the call of each notifiee.
#include "framework/core/Notifiee.h"
