#pragma once

#include <Zeb/Attributes.h>

#include <functional>
#include <set>

namespace Rix {

/// Follows one collection of one entity: `put` is called for every element that is there at the start and for
/// every one that is set later, `gone` for every one that is taken out. It holds the entity. Handlers are
/// told of the current state: an element that was set and taken out again before its turn is not mentioned,
/// one that was taken out and set again may be put without having been gone. The value that a handler is
/// given is the one in the map: it can be read to the handler's end, even when the handler takes the element
/// out, but a write to the element shows in it. Handlers may change the collection and withdraw the follower,
/// but not destroy it. Destruction is silent; withdraw() ends the following and reports every element as
/// gone.
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
  /// What is torn down with the members may still change the collection; it is not followed any more then.
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
    if (const auto at = read_().from(key); at && at.key() == key) {  // keeps the element
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
