#pragma once

#include <Acl/Counters.h>

#include <vector>

namespace Velo::VeloAcl {

/// The counters of a collection that were counted last, found again without hashing their whole keys. Nothing
/// is owned: a counter is the collection's, and what is remembered of it holds until the collection gets or
/// loses a counter. So the cache takes a counter from nobody but the collection, together with the number of
/// the collection's changes at that moment: whoever made the counter has announced it, and by the time that
/// returns it may be gone or another one. Part of the helper, which keeps the collections.
template <size_t places>
class CounterCacheOf {
 public:
  using Collection = Velo::Counter::VeloDpAclCounterColl;
  using Counter = Velo::Counter::VeloDpAclCounter;
  using Key = Velo::Counter::VeloDpAclCounterKey;

  CounterCacheOf() : places_(places) {}

  /// Null when the counter is not remembered.
  Counter* find(const Collection& collection, Acl::AclDirection dir, Acl::AclType type,
                const Kelp::String& aclName, const Kiv::UniqueId& ruleId) const {
    const Place& place = places_[placeOf(dir, ruleId)];
    const bool known = place.counter && place.key.ruleId == ruleId && place.key.direction == dir &&
                       place.key.aclType == type && place.collection == &collection &&
                       place.changes == collection.counterCollection().changes() &&
                       place.key.aclName == aclName;
    return known ? place.counter : nullptr;
  }
  /// Remembers what the collection has of a key, if anything.
  void remember(Collection& collection, const Key& key) {
    places_[placeOf(key.direction, key.ruleId)] = {key, &collection, collection.counterCollection().changes(),
                                                   collection.counterCollection(key).get()};
  }

 private:
  struct Place {
    Key key;
    const Collection* collection = nullptr;
    uint64_t changes = 0;
    Counter* counter = nullptr;  // the collection's
  };

  /// Ids are handed out in a row, or are hashes: their lower bits tell them apart. A list that is bound in
  /// and out has two counters for each rule.
  static size_t placeOf(Acl::AclDirection dir, const Kiv::UniqueId& id) {
    return (id.value() + static_cast<size_t>(dir) * (places / 2)) % places;
  }

  std::vector<Place> places_;
};

using CounterCache = CounterCacheOf<2048>;

}  // namespace Velo::VeloAcl
