#pragma once

#include <Acl/Counters.h>

#include <vector>

namespace Velo::VeloAcl {

/// Finds the counters of a collection that were used last, without hashing their whole keys. It does not own
/// them: a counter belongs to the collection, and what is remembered of it is valid until the collection gets
/// or loses a counter.
///
/// The cache takes a counter only from the collection itself, together with the change count of the
/// collection at that moment. To make a counter announces it, and a handler may have removed or replaced the
/// counter before the call that made it returns. Part of the helper, which keeps the collections alive.
template <size_t places>
class CounterCacheOf {
 public:
  using Collection = Velo::Counter::VeloDpAclCounterColl;
  using Counter = Velo::Counter::VeloDpAclCounter;
  using Key = Velo::Counter::VeloDpAclCounterKey;

  CounterCacheOf() : places_(places) {}

  /// The counter; null when it is not remembered.
  Counter* find(const Collection& collection, Acl::AclDirection dir, Acl::AclType type,
                const Kelp::String& aclName, const Kiv::UniqueId& ruleId) const {
    const Place& place = places_[placeOf(dir, ruleId)];
    const bool known = place.counter && place.key.ruleId == ruleId && place.key.direction == dir &&
                       place.key.aclType == type && place.collection == &collection &&
                       place.changes == collection.counterCollection().changes() &&
                       place.key.aclName == aclName;
    return known ? place.counter : nullptr;
  }
  /// Remembers the counter that the collection has for a key, if it has one.
  void remember(Collection& collection, const Key& key) {
    places_[placeOf(key.direction, key.ruleId)] = {key, &collection, collection.counterCollection().changes(),
                                                   collection.counterCollection(key).get()};
  }

 private:
  struct Place {
    Key key;
    const Collection* collection = nullptr;
    uint64_t changes = 0;
    Counter* counter = nullptr;  // owned by the collection
  };

  /// Ids are consecutive numbers or hashes, so that their lower bits spread well. A list that is bound both
  /// in and out has two counters for each rule.
  static size_t placeOf(Acl::AclDirection dir, const Kiv::UniqueId& id) {
    return (id.value() + static_cast<size_t>(dir) * (places / 2)) % places;
  }

  std::vector<Place> places_;
};

using CounterCache = CounterCacheOf<2048>;

}  // namespace Velo::VeloAcl
