// SPDX-License-Identifier: Apache-2.0
#include "framework/core/String.h"

#include <cstring>
#include <new>
#include <ostream>

#include "framework/core/Fatal.h"
#include "framework/core/Hash.h"
#include "framework/core/PtrInterface.h"

namespace Kiv {

constinit char const String::kNoBytes[1] = {};

String::Rep* String::allocate(size_t size) {
  if (size == 0) return nullptr;
  Rep* const rep = new (::operator new(sizeof(Rep) + size + 1)) Rep{1, size};
  rep->bytes()[size] = '\0';
  return rep;
}

String::String(char const* bytes, size_t size) : rep_(allocate(size)) {
  if (rep_ != nullptr) std::memcpy(rep_->bytes(), bytes, size);
}

void String::nullText() {
  assertFail("text != nullptr", __FILE__, __LINE__, __PRETTY_FUNCTION__, "a Kiv::String of null");
}

void String::retain() const noexcept {
  if (VFPtrInterface::threadSafePointers_) {
    __atomic_fetch_add(&rep_->count, 1u, __ATOMIC_RELAXED);
  } else {
    ++rep_->count;
  }
}

void String::release() noexcept {
  U32 const left = VFPtrInterface::threadSafePointers_
                       ? __atomic_sub_fetch(&rep_->count, 1u, __ATOMIC_ACQ_REL)
                       : --rep_->count;
  if (left == 0) ::operator delete(rep_);
}

U32 String::hash() const {
  return hashText(view());
}

std::ostream& operator<<(std::ostream& stream, String const& string) {
  return stream << string.view();
}

}  // namespace Kiv
