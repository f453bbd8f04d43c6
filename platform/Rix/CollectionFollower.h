#pragma once

#include <Zeb/Attributes.h>

#include <functional>
#include <set>

namespace Rix {

/// Follows one collection of one entity, which it holds. It calls `put` for every element that is there at
/// the start and for every one that is set later, and `gone` for every one that is removed.
///
/// Handlers are told of the current state. So an element that was set and removed again before its turn is
/// not reported, and one that was removed and set again may be put without having been gone. A handler gets
/// the value in the map itself: it can be read until the handler returns, even when the handler removes the
/// element, but a write to the element changes it.
///
/// Handlers may change the collection and withdraw the follower, but not destroy it. withdraw() ends the
/// following and reports every element as gone. The destructor reports nothing.
template <class Map>
class CollectionFollower final : public Zeb::Notifiee {
 public:
  using Key = typename Map::Key;
  using Value = typename Map::Value;
  using Read = std::function<const Map&()>;
  using Put = std::function<void(const Key&, const Value&)>;
  using Gone = std::function<void(const Key&)>;

  CollectionFollower(Kelp::Ptr<const Zeb::Entity> entity, const Zeb::Attribute& attribute, Read read, Put put,
                     Gone gone)
      : entity_(std::move(entity)),
        attribute_(attribute),
        read_(std::move(read)),
        put_(std::move(put)),
        gone_(std::move(gone)) {
    entity_->publisher().subscribe(*this);
    for (auto at = read_().begin(); at && !withdrawn_; at.next()) {
      if (!known_.contains(at.key())) handleKey(at.key());  // known: a handler has set it meanwhile
    }
  }
  /// Unsubscribes first: while the members are destroyed the collection may still change.
  ~CollectionFollower() override { entity_->publisher().unsubscribe(*this); }

  void withdraw() {
    withdrawn_ = true;
    entity_->publisher().unsubscribe(*this);
    while (!known_.empty()) {
      const Key key = *known_.begin();
      known_.erase(known_.begin());
      gone_(key);
    }
  }

  void handleChange(const Zeb::Change& change) override {
    if (change.is(attribute_)) handleKey(change.keyAs<Key>());
  }

 private:
  void handleKey(const Key& key) {
    if (const auto at = read_().from(key); at && at.key() == key) {  // the iterator keeps the element alive
      known_.insert(key);
      put_(key, at.value());
    } else if (known_.erase(key) > 0) {
      gone_(key);
    }
  }

  const Kelp::Ptr<const Zeb::Entity> entity_;
  const Zeb::Attribute& attribute_;
  const Read read_;
  const Put put_;
  const Gone gone_;
  std::set<Key> known_;  // what was put and is not gone
  bool withdrawn_ = false;
};

}  // namespace Rix
