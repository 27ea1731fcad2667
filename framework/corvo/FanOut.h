// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <exception>
#include <vector>

#include "framework/core/Ptr.h"

namespace Corvo {

/// Objects that are called in turn, all of them, also when a call throws.
///
/// Ownership: holds none of its members; each leaves before it is destroyed. Re-entrancy: a call
/// may add and remove members, and may call each() again. One that is removed is not called any
/// more; one that is added is called from the next each() on. The list itself must outlive each().
template <class T>
class FanOut {
 public:
  bool empty() const {
    return std::ranges::all_of(members_, [](T const* member) { return member == nullptr; });
  }
  /// Appends. Throws std::bad_alloc; the list is then as it was.
  void add(T* member) { members_.push_back(member); }
  /// Removes; absent: nothing.
  void remove(T* member) {
    auto const found = std::ranges::find(members_, member);
    if (found == members_.end()) return;
    if (depth_ == 0) {
      members_.erase(found);
    } else {
      *found = nullptr;
      holes_ = true;
    }
  }

  /// Calls `f(member)` for every member, in the order in which they were added. Returns the first
  /// exception of a call, or null.
  template <class F>
  std::exception_ptr each(F const& f) {
    std::exception_ptr first;
    ++depth_;
    size_t const count = members_.size();
    for (size_t i = 0; i < count; ++i) {
      if (members_[i] == nullptr) continue;
      Kiv::Ptr<T> const member(members_[i]);
      try {
        f(*member);
      } catch (...) {
        if (!first) first = std::current_exception();
      }
    }
    if (--depth_ == 0 && holes_) {
      std::erase(members_, nullptr);
      holes_ = false;
    }
    return first;
  }

 private:
  std::vector<T*> members_;  // null: removed during each()
  int depth_ = 0;
  bool holes_ = false;
};

}  // namespace Corvo
