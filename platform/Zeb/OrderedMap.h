#pragma once

#include <Zeb/MapEntry.h>

#include <concepts>
#include <map>

namespace Zeb {

/// The same contract as HashMap2018 with iteration in the order of the keys; from() is a lower bound.
template <class K, class V>
class OrderedMap {
 public:
  using Key = K;
  using Value = V;
  using Entry = MapEntry<K, V>;
  using Iterator = MapIterator<OrderedMap>;

  OrderedMap() = default;
  OrderedMap(const OrderedMap&) = delete;
  OrderedMap& operator=(const OrderedMap&) = delete;
  ~OrderedMap() { clear(); }

  size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  /// See MapVersion.
  uint64_t changes() const { return version_.changes(); }
  uint32_t version() const { return version_.version(); }
  /// Counts changes that were not made: for tests of what happens after very many.
  void advanceVersion(uint64_t by) { version_.advance(by); }

  const V* find(const K& key) const {
    auto at = entries_.find(key);
    return at == entries_.end() ? nullptr : &at->second->value;
  }
  V* find(const K& key) { return const_cast<V*>(std::as_const(*this).find(key)); }
  bool has(const K& key) const { return entries_.contains(key); }

  /// Sets the value of a key; an equal write is no change.
  MapWrite put(const K& key, V value) {
    if (V* known = find(key)) {
      if constexpr (std::equality_comparable<V>) {
        if (*known == value) return MapWrite::unchanged;
      }
      *known = std::move(value);
      version_.advance();
      return MapWrite::replaced;
    }
    entries_.emplace(key, Entry::make(key, std::move(value)));
    version_.advance();
    return MapWrite::inserted;
  }

  /// Removes a key; false when it is not there.
  bool erase(const K& key) {
    auto at = entries_.find(key);
    if (at == entries_.end()) return false;
    Entry* entry = at->second;
    entries_.erase(at);
    entry->stale = true;
    version_.advance();
    MapEntryRef<Entry>::drop(entry);
    return true;
  }

  void clear() {
    while (!entries_.empty()) {
      const K key = entries_.begin()->first;
      erase(key);
    }
  }

  Iterator begin() const { return Iterator(this, entryAt(entries_.begin())); }
  typename Iterator::End end() const { return {}; }
  /// Starts at the first element whose key is not less than `key`.
  Iterator from(const K& key) const { return Iterator(this, entryAt(entries_.lower_bound(key))); }

  /// The element that follows in iteration order; for iterators.
  Entry* entryAfter(const Entry* entry) const { return entryAt(entries_.upper_bound(entry->key)); }

 private:
  using Entries = std::map<K, Entry*>;
  Entry* entryAt(typename Entries::const_iterator at) const {
    return at == entries_.end() ? nullptr : at->second;
  }

  Entries entries_;
  MapVersion version_;
};

}  // namespace Zeb
