#pragma once

#include <Kelp/Hash.h>
#include <Zeb/MapEntry.h>

#include <bit>
#include <memory>

namespace Zeb {

/// A hash map whose order of iteration is the order of (hash of the key, key), whatever its history. A bucket
/// is the run of hashes that share their leading bits, and its chain is sorted, so growing splits each bucket
/// in place and the order stays. That makes "go on at this key" mean something after any insertion, removal
/// (of that very key, too) and growth. Keys need keyHash, == and <. Not safe for use by several threads.
template <class K, class V>
class HashMap2018 {
 public:
  using Key = K;
  using Value = V;
  using Entry = MapEntry<K, V>;
  using Iterator = MapIterator<HashMap2018>;

  HashMap2018() = default;
  HashMap2018(const HashMap2018&) = delete;
  HashMap2018& operator=(const HashMap2018&) = delete;
  ~HashMap2018() { clear(); }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  uint32_t version() const { return version_.value(); }

  const V* find(const K& key) const {
    const Entry* entry = entryOf(key, Kelp::keyHash(key));
    return entry ? &entry->value : nullptr;
  }
  V* find(const K& key) { return const_cast<V*>(std::as_const(*this).find(key)); }
  const Entry* findEntry(const K& key) const { return entryOf(key, Kelp::keyHash(key)); }
  bool has(const K& key) const { return find(key) != nullptr; }

  /// Sets the value of a key; an equal write is no change.
  MapWrite put(const K& key, V value) {
    const uint32_t hash = Kelp::keyHash(key);
    if (Entry* known = entryOf(key, hash)) {
      if constexpr (std::equality_comparable<V>) {
        if (known->value == value) return MapWrite::unchanged;
      }
      known->value = std::move(value);
      version_.advance();
      return MapWrite::replaced;
    }
    if (size_ >= bucketCount()) grow();
    Entry* entry = Entry::make(key, std::move(value));
    entry->hash = hash;
    Entry** link = linkTo(key, hash);
    entry->next = *link;
    *link = entry;
    ++size_;
    version_.advance();
    return MapWrite::inserted;
  }

  /// Takes a key out; false when it is not there.
  bool erase(const K& key) {
    if (size_ == 0) return false;
    const uint32_t hash = Kelp::keyHash(key);
    Entry** link = linkTo(key, hash);
    Entry* entry = *link;
    if (!entry || entry->hash != hash || !(entry->key == key)) return false;
    *link = entry->next;
    entry->stale = true;
    --size_;
    version_.advance();
    MapEntryRef<Entry>::drop(entry);
    return true;
  }

  void clear() {
    for (size_t i = 0; i < bucketCount(); ++i) {
      while (Entry* entry = buckets_[i]) {
        buckets_[i] = entry->next;
        entry->stale = true;
        --size_;
        version_.advance();
        MapEntryRef<Entry>::drop(entry);
      }
    }
  }

  Iterator begin() const { return Iterator(this, firstFrom(0)); }
  typename Iterator::End end() const { return {}; }
  /// Starts at a key, or at the element that follows where it would be.
  Iterator from(const K& key) const {
    if (size_ == 0) return Iterator(this, nullptr);
    return Iterator(this, settle(*linkTo(key, Kelp::keyHash(key)), Kelp::keyHash(key)));
  }

  /// The element that follows in iteration order; for iterators.
  Entry* entryAfter(const Entry* entry) const {
    if (size_ == 0) return nullptr;
    if (!entry->stale) return settle(entry->next, entry->hash);
    Entry* at = *linkTo(entry->key, entry->hash);
    if (at && at->hash == entry->hash && at->key == entry->key) at = at->next;  // put in again since
    return settle(at, entry->hash);
  }

 private:
  static constexpr int minBits = 2;
  static constexpr size_t lookAhead = 16;

  size_t bucketCount() const { return buckets_ ? size_t{1} << bits_ : 0; }
  size_t bucketOf(uint32_t hash) const { return hash >> (32 - bits_); }

  Entry* entryOf(const K& key, uint32_t hash) const {
    if (size_ == 0) return nullptr;
    for (Entry* at = buckets_[bucketOf(hash)]; at; at = at->next) {
      if (at->hash == hash && at->key == key) return at;
    }
    return nullptr;
  }
  /// The link behind which (hash, key) is, or would be.
  Entry** linkTo(const K& key, uint32_t hash) const {
    Entry** link = &buckets_[bucketOf(hash)];
    while (*link && ((*link)->hash < hash || ((*link)->hash == hash && (*link)->key < key))) {
      link = &(*link)->next;
    }
    return link;
  }
  Entry* firstFrom(size_t bucket) const {
    for (size_t i = bucket; i < bucketCount(); ++i) {
      prefetchChain(i + lookAhead);
      if (buckets_[i]) return buckets_[i];
    }
    return nullptr;
  }
  /// The element itself, or behind the end of the chain that `hash` is in, the first of the later chains.
  Entry* settle(Entry* at, uint32_t hash) const {
    if (!at) at = firstFrom(bucketOf(hash) + 1);
    if (at) prefetch(at->next);
    return at;
  }
  /// Elements lie anywhere in memory; who walks them asks for those to come while busy with this one.
  [[gnu::always_inline]] void prefetchChain(size_t bucket) const {
    if (bucket < bucketCount()) prefetch(buckets_[bucket]);
  }
  /// Always inline: as a call, which changes nothing, it would be left out.
  [[gnu::always_inline]] static void prefetch(const Entry* entry) {
    if (entry) __builtin_prefetch(entry);  // of null it would cost more than it ever saves
  }

  void grow() {
    const int newBits = buckets_ ? bits_ + 1 : minBits;
    auto wider = std::make_unique<Entry*[]>(size_t{1} << newBits);
    for (size_t i = 0; i < bucketCount(); ++i) {
      prefetchChain(i + lookAhead);
      Entry* at = buckets_[i];
      while (at) {
        Entry** link = &wider[at->hash >> (32 - newBits)];
        *link = at;
        const size_t bucket = at->hash >> (32 - newBits);
        while (at->next && (at->next->hash >> (32 - newBits)) == bucket) at = at->next;
        at = std::exchange(at->next, nullptr);
      }
    }
    buckets_ = std::move(wider);
    bits_ = newBits;
  }

  std::unique_ptr<Entry*[]> buckets_;
  size_t size_ = 0;
  int bits_ = minBits;
  MapVersion version_;
};

}  // namespace Zeb
