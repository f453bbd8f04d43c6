#pragma once

#include <Kelp/Hash.h>
#include <Zeb/MapEntry.h>

#include <bit>
#include <memory>

namespace Zeb {

/// A hash map that is iterated in the order of (hash of the key, key), whatever its history. So "continue at
/// this key" has a meaning after any insertion, any removal (of that very key, too) and any growth.
///
/// A bucket has all hashes with the same leading bits, and its chain is sorted. So growing splits each bucket
/// in two without changing the order. A few buckets are split whenever an element is inserted: no write takes
/// long because the map is large. Keys need keyHash, == and <. Not safe for use by several threads.
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
  /// See MapVersion.
  uint64_t changes() const { return version_.changes(); }
  uint32_t version() const { return version_.version(); }
  /// Counts changes that were not made: for tests of what happens after very many.
  void advanceVersion(uint64_t by) { version_.advance(by); }

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
    if (wider_ || size_ >= bucketCount()) grow();
    Entry* entry = Entry::make(key, std::move(value));
    entry->hash = hash;
    Entry** link = linkTo(key, hash);
    entry->next = *link;
    *link = entry;
    ++size_;
    version_.advance();
    return MapWrite::inserted;
  }

  /// Removes a key; false when it is not there.
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
      while (Entry* entry = bucket(i)) {
        bucket(i) = entry->next;
        entry->stale = true;
        --size_;
        version_.advance();
        MapEntryRef<Entry>::drop(entry);
      }
    }
  }

  Iterator begin() const { return Iterator(this, firstFrom(0)); }
  typename Iterator::End end() const { return {}; }
  /// Starts at a key, or at the first element behind the place where it would be.
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
  /// So many that all buckets are split long before there are twice as many elements.
  static constexpr int splitsAtOnce = 4;

  // While the map grows, the front buckets are in the wider array, and the others have still to be split.
  size_t bucketCount() const { return buckets_ ? (size_t{1} << bits_) + split_ : 0; }
  size_t bucketOf(uint32_t hash) const {
    const size_t index = hash >> (32 - bits_);
    return index >= split_ ? index + split_ : hash >> (31 - bits_);
  }
  Entry*& bucket(size_t index) const {
    return index >= 2 * split_ ? buckets_[index - split_] : wider_[index];
  }

  Entry* entryOf(const K& key, uint32_t hash) const {
    if (size_ == 0) return nullptr;
    for (Entry* at = bucket(bucketOf(hash)); at; at = at->next) {
      if (at->hash == hash && at->key == key) return at;
    }
    return nullptr;
  }
  /// The link that points to (hash, key), or would point to it.
  Entry** linkTo(const K& key, uint32_t hash) const {
    Entry** link = &bucket(bucketOf(hash));
    while (*link && ((*link)->hash < hash || ((*link)->hash == hash && (*link)->key < key))) {
      link = &(*link)->next;
    }
    return link;
  }
  Entry* firstFrom(size_t index) const {
    for (size_t i = index; i < bucketCount(); ++i) {
      prefetchChain(i + lookAhead);
      if (bucket(i)) return bucket(i);
    }
    return nullptr;
  }
  /// The element `at`; when that is null, the end of the chain of `hash`, the first element of a later chain.
  Entry* settle(Entry* at, uint32_t hash) const {
    if (!at) at = firstFrom(bucketOf(hash) + 1);
    if (at) prefetch(at->next);
    return at;
  }
  /// Elements lie anywhere in memory. While the map is walked, those that come later are fetched in advance.
  [[gnu::always_inline]] void prefetchChain(size_t index) const {
    if (index < bucketCount()) prefetch(bucket(index));
  }
  /// Always inline: the compiler would leave out a call, because the function changes nothing.
  [[gnu::always_inline]] static void prefetch(const Entry* entry) {
    if (entry) __builtin_prefetch(entry);  // to prefetch null costs more than this test
  }

  void grow() {
    if (!buckets_) {
      buckets_ = std::make_unique<Entry*[]>(size_t{1} << bits_);
      return;
    }
    // Each of its buckets is set when it comes into use.
    if (!wider_) wider_ = std::make_unique_for_overwrite<Entry*[]>(size_t{2} << bits_);
    for (int i = 0; i < splitsAtOnce && split_ < size_t{1} << bits_; ++i) splitNext();
    if (split_ < size_t{1} << bits_) return;
    buckets_ = std::move(wider_);
    split_ = 0;
    ++bits_;
  }
  void splitNext() {
    prefetchChain(2 * split_ + lookAhead);
    Entry* lower = buckets_[split_];
    const uint32_t middle = static_cast<uint32_t>(2 * split_ + 1) << (31 - bits_);
    Entry** link = &lower;
    while (*link && (*link)->hash < middle) link = &(*link)->next;
    wider_[2 * split_ + 1] = std::exchange(*link, nullptr);
    wider_[2 * split_] = lower;
    ++split_;
  }

  std::unique_ptr<Entry*[]> buckets_;
  std::unique_ptr<Entry*[]> wider_;  // null: the map is not growing
  size_t split_ = 0;                 // buckets that are in the wider array, split in two
  size_t size_ = 0;
  int bits_ = minBits;
  MapVersion version_;
};

}  // namespace Zeb
