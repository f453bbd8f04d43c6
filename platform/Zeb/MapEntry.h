#pragma once

#include <MemSlab/Slab.h>

#include <cstdint>
#include <utility>

namespace Zeb {

/// One element of a map. It is counted, so that an iterator can stand on an element that was removed. Such an
/// element is stale: its key and value can still be read, but it is not in the map. The members that a search
/// reads come first. All elements of a type come from one slab, so that in a map that was filled in its own
/// order neighbours are neighbours in memory, too.
template <class K, class V>
struct MapEntry {
  template <class... Args>
  static MapEntry* make(Args&&... args) {
    return new (MemSlab::slabOf<MapEntry>().take()) MapEntry(std::forward<Args>(args)...);
  }
  void free() {
    this->~MapEntry();
    MemSlab::slabOf<MapEntry>().giveBack(this);
  }

  MapEntry* next = nullptr;  // of the hash chain; for the map's use
  uint32_t hash = 0;
  uint32_t users : 31 = 1;
  uint32_t stale : 1 = false;
  const K key;
  [[no_unique_address]] V value;

 private:
  MapEntry(const K& k, V v) : key(k), value(std::move(v)) {}
};

/// A counted reference to a map element.
template <class Entry>
class MapEntryRef {
 public:
  MapEntryRef() = default;
  explicit MapEntryRef(Entry* entry) : entry_(entry) {
    if (entry_) ++entry_->users;
  }
  MapEntryRef(const MapEntryRef& other) : MapEntryRef(other.entry_) {}
  MapEntryRef(MapEntryRef&& other) noexcept : entry_(std::exchange(other.entry_, nullptr)) {}
  MapEntryRef& operator=(MapEntryRef other) noexcept {
    std::swap(entry_, other.entry_);
    return *this;
  }
  ~MapEntryRef() { drop(entry_); }

  static void drop(Entry* entry) {
    if (entry && --entry->users == 0) entry->free();
  }
  Entry* get() const { return entry_; }

 private:
  Entry* entry_ = nullptr;
};

/// Walks a map in its own order while the map may change in any way; even the current element may be removed.
/// Elements that are there all the time are visited exactly once, whatever is inserted or removed between the
/// steps. The map must outlive the iterator.
template <class Map>
class MapIterator {
 public:
  using Entry = typename Map::Entry;
  struct End {};

  MapIterator() = default;
  MapIterator(const Map* map, Entry* at) : map_(map), at_(at) {}

  explicit operator bool() const { return at_.get() != nullptr; }
  const auto& key() const { return at_.get()->key; }
  const auto& value() const { return std::as_const(at_.get()->value); }
  /// True when the current element was removed since the iterator reached it.
  bool stale() const { return at_.get()->stale; }
  void next() { at_ = MapEntryRef<Entry>(map_->entryAfter(at_.get())); }

  std::pair<const typename Map::Key&, const typename Map::Value&> operator*() const {
    return {key(), value()};
  }
  MapIterator& operator++() {
    next();
    return *this;
  }
  bool operator==(End) const { return at_.get() == nullptr; }

 private:
  const Map* map_ = nullptr;
  MapEntryRef<Entry> at_;
};

/// What a write did to a map.
enum class MapWrite { unchanged, inserted, replaced };

/// Counts the changes of a collection. As long as changes() is the same, a search gives the same result as
/// before; the count does not wrap in the life of a process. The version is its lower 23 bits. They are
/// enough to notice that a change which was just announced was missed, but not to compare versions over a
/// long time.
class MapVersion {
 public:
  uint64_t changes() const { return changes_; }
  uint32_t version() const { return changes_ & 0x7fffff; }
  void advance(uint64_t by = 1) { changes_ += by; }

 private:
  uint64_t changes_ = 0;
};

}  // namespace Zeb
