// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "framework/collections/NodePool.h"
#include "framework/core/Fatal.h"

namespace Kiv {

/// Members ordered by the key's `<`; a walk is ascending. Keys and values may be move-only.
///
/// Iterators and references stay valid until their own member is removed. Inserting a key that is
/// present is fatal (insertOrAssign is not). A new greatest key is inserted without a search, so a
/// map is filled fastest in ascending order. Memory comes from a pool of the map's own and is given
/// back when the map is empty.
///
///   RbTreeMap<Ovra::IpAddr, std::string> names;
///   names.insert(ip, "r1");
///   for (auto const& [ip, name] : names) out << ip << name;
template <class K, class V>
class RbTreeMap {
  using Allocator = NodePoolAllocator<std::pair<K const, V>>;
  using Map = std::map<K, V, std::less<K>, Allocator>;

 public:
  using Key = K;
  using Value = V;
  /// Bidirectional; `it->first` is the key, `it->second` the value.
  using Iterator = typename Map::iterator;
  using ConstIterator = typename Map::const_iterator;
  // The names that the standard's algorithms and test matchers ask for.
  using value_type = typename Map::value_type;
  using iterator = Iterator;
  using const_iterator = ConstIterator;

  RbTreeMap() : map_(Allocator(nullptr)) {}
  RbTreeMap(RbTreeMap const&) = delete;
  RbTreeMap& operator=(RbTreeMap const&) = delete;
  /// The source is left empty.
  RbTreeMap(RbTreeMap&& other) noexcept : RbTreeMap() { swap(other); }
  RbTreeMap& operator=(RbTreeMap&& other) noexcept {
    RbTreeMap taken(std::move(other));
    swap(taken);
    return *this;
  }
  ~RbTreeMap() = default;
  void swap(RbTreeMap& other) noexcept {
    pool_.swap(other.pool_);
    map_.swap(other.map_);
  }
  friend void swap(RbTreeMap& a, RbTreeMap& b) noexcept { a.swap(b); }

  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  /// Bytes allocated by the map itself.
  size_t heapBytes() const { return pool_ == nullptr ? 0 : sizeof(NodePool) + pool_->heapBytes(); }

  /// A key that is present is fatal.
  Iterator insert(K key, V value) {
    needPool();
    if (isGreatest(key)) return map_.emplace_hint(map_.end(), std::move(key), std::move(value));
    auto const [at, isNew] = map_.emplace(std::move(key), std::move(value));
    if (!isNew) assertDupKey();
    return at;
  }
  /// Inserts, or replaces the value of a present key.
  Iterator insertOrAssign(K key, V value) {
    needPool();
    if (isGreatest(key)) return map_.emplace_hint(map_.end(), std::move(key), std::move(value));
    return map_.insert_or_assign(std::move(key), std::move(value)).first;
  }

  Iterator find(K const& key) { return map_.find(key); }
  ConstIterator find(K const& key) const { return map_.find(key); }
  bool contains(K const& key) const { return map_.find(key) != map_.end(); }
  /// The first member whose key is not less than `key`.
  Iterator lowerBound(K const& key) { return map_.lower_bound(key); }
  ConstIterator lowerBound(K const& key) const { return map_.lower_bound(key); }
  /// The first member whose key is greater than `key`.
  Iterator upperBound(K const& key) { return map_.upper_bound(key); }
  ConstIterator upperBound(K const& key) const { return map_.upper_bound(key); }

  /// True when there was one to remove. `key` may be the member's own.
  bool erase(K const& key) {
    Iterator const at = map_.find(key);
    if (at == map_.end()) return false;
    map_.erase(at);
    return true;
  }
  /// Gives the next member.
  Iterator erase(ConstIterator at) { return map_.erase(at); }
  void clear() { map_.clear(); }

  Iterator begin() { return map_.begin(); }
  Iterator end() { return map_.end(); }
  ConstIterator begin() const { return map_.begin(); }
  ConstIterator end() const { return map_.end(); }

 private:
  // A map that never held anything owns no memory.
  void needPool() {
    if (pool_ != nullptr) return;
    pool_ = std::make_unique<NodePool>();
    map_ = Map(Allocator(pool_.get()));
  }
  bool isGreatest(K const& key) const { return !map_.empty() && map_.rbegin()->first < key; }
  [[noreturn, gnu::cold]] static void assertDupKey() {
    assertFail("!assertDupKey( key )", __FILE__, __LINE__,
               static_cast<char const*>(__PRETTY_FUNCTION__),
               "A key that is already present is inserted");
  }

  std::unique_ptr<NodePool> pool_;
  Map map_;
};

}  // namespace Kiv
