// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <type_traits>
#include <utility>

#include "framework/collections/HashTable.h"
#include "framework/core/Hash.h"
#include "framework/core/Ptr.h"

namespace Kiv {

/// Objects by a key that each object carries and never changes, in the order of HashMap2018. Holds
/// a reference to each member; the table keeps no copy of the keys.
///
/// Does not notify; see MemberCollection.
template <class MemberT, auto KeyOf, U32 kConstant>
class HashMap {
 public:
  using Member = MemberT;
  using Key = std::remove_cvref_t<std::invoke_result_t<decltype(KeyOf), Member const&>>;

 private:
  struct Traits {
    using Slot = Ptr<MemberT>;
    using Key = HashMap::Key;
    static Key key(Slot const& slot) { return std::invoke(KeyOf, *slot.get()); }
    static U32 hash(U32 seed, Key const& key) { return hashSingleAttr(seed, key); }
  };
  using Table = HashTable<Traits>;

 public:
  HashMap() : table_(HashHelper::hashSeed32() ^ kConstant) {}

  static Key keyOf(Member const& member) { return std::invoke(KeyOf, member); }
  size_t size() const { return table_.size(); }
  bool empty() const { return table_.empty(); }
  size_t heapBytes() const { return table_.heapBytes(); }
  auto begin() const { return table_.begin(); }
  auto end() const { return table_.end(); }
  /// The member of `key`, or the one after where it would be.
  auto lowerBound(Key const& key) const { return table_.lowerBound(key); }

  /// Null when absent. The collection's reference keeps the member alive only while it is in.
  Member* find(Key const& key) const {
    Ptr<Member> const* const slot = table_.find(key);
    return slot == nullptr ? nullptr : slot->get();
  }
  bool has(Key const& key) const { return table_.find(key) != nullptr; }
  /// See HashTable::prefetch.
  void prefetch(Key const& key) const { table_.prefetch(key); }

  /// Stores `member`, replacing another object under its key; gives back what was stored there
  /// before, which may be `member` itself.
  Ptr<Member> set(Ptr<Member> member) {
    auto const [stored, isNew] = table_.insert(member);
    if (isNew) return nullptr;
    stored->swap(member);
    return member;
  }
  /// Gives back what it removed; null when absent.
  Ptr<Member> take(Key const& key) {
    std::optional<Ptr<Member>> taken = table_.take(key);
    return taken ? std::move(*taken) : nullptr;
  }
  void clear() { table_.clear(); }

  /// A walk that stays valid across any change between its steps; see HashMap2018::Cursor.
  class Cursor {
   public:
    explicit Cursor(HashMap const& map) : cursor_(map.table_) {}
    Cursor(HashMap const& map, Key const& from) : cursor_(map.table_, from) {}
    /// The next member, or null at the end. Take a Ptr when it may be removed meanwhile.
    Member* next() {
      Ptr<Member> const* const slot = cursor_.next();
      return slot == nullptr ? nullptr : slot->get();
    }

   private:
    typename Table::Cursor cursor_;
  };

  Cursor cursor() const { return Cursor(*this); }

 private:
  Table table_;
};

}  // namespace Kiv
