#pragma once

#include <Acl/Counters.h>

#include <vector>

namespace Velo::VeloAcl {

/// The counters of a collection that were counted last, found again without hashing their whole keys. What is
/// remembered holds until the collection gets or loses a counter. Part of the helper, which keeps the
/// collections.
class CounterCache {
 public:
  using Collection = Velo::Counter::VeloDpAclCounterColl;
  using Counter = Velo::Counter::VeloDpAclCounter;
  using Key = Velo::Counter::VeloDpAclCounterKey;

  CounterCache() : places_(places) {}

  /// Null when the counter is not remembered.
  Counter* find(const Collection& collection, Acl::AclDirection dir, Acl::AclType type,
                const Kelp::String& aclName, const Kiv::UniqueId& ruleId) const {
    const Place& place = places_[placeOf(dir, ruleId)];
    const bool known = place.counter && place.key.ruleId == ruleId && place.key.direction == dir &&
                       place.key.aclType == type && place.collection == &collection &&
                       place.version == collection.counterCollection().version() &&
                       place.key.aclName == aclName;
    return known ? place.counter : nullptr;
  }
  void remember(const Collection& collection, const Key& key, Counter* counter) {
    places_[placeOf(key.direction, key.ruleId)] = {key, &collection, collection.counterCollection().version(),
                                                   counter};
  }

 private:
  static constexpr size_t places = 2048;
  struct Place {
    Key key;
    const Collection* collection = nullptr;
    uint32_t version = 0;
    Counter* counter = nullptr;  // the collection's
  };

  /// Ids are handed out in a row, or are hashes: their lower bits tell them apart. A list that is bound in
  /// and out has two counters for each rule.
  static size_t placeOf(Acl::AclDirection dir, const Kiv::UniqueId& id) {
    return (id.value() + static_cast<size_t>(dir) * (places / 2)) % places;
  }

  std::vector<Place> places_;
};

}  // namespace Velo::VeloAcl
