#pragma once

#include <Zeb/Attributes.h>

#include <functional>
#include <set>

namespace Rix {

/// Follows one collection of one entity: `put` is called for every element that is there at the start and for
/// every one that is set later, `gone` for every one that is taken out. It holds the entity. Handlers are told
/// of the current state: an element that was set and taken out again before its turn is only `gone`.
/// Destruction is silent; withdraw() first reports every element as gone.
template <class Map>
class CollectionFollower final : public Zeb::Notifiee {
 public:
  using Key = typename Map::Key;
  using Value = typename Map::Value;
  using Read = std::function<const Map&()>;
  using Put = std::function<void(const Key&, const Value&)>;
  using Gone = std::function<void(const Key&)>;

  CollectionFollower(Kelp::Ptr<const Zeb::Entity> entity, const Zeb::Attribute& attribute, Read read, Put put, Gone gone)
      : entity_(std::move(entity)), attribute_(attribute), read_(std::move(read)), put_(std::move(put)),
        gone_(std::move(gone)) {
    entity_->publisher().subscribe(*this);
    for (auto at = read_().begin(); at; at.next()) handleKey(at.key());
  }

  void withdraw() {
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
    if (const Value* value = read_().find(key)) {
      known_.insert(key);
      put_(key, *value);
    } else if (known_.erase(key) > 0) {
      gone_(key);
    }
  }

  Kelp::Ptr<const Zeb::Entity> entity_;
  const Zeb::Attribute& attribute_;
  Read read_;
  Put put_;
  Gone gone_;
  std::set<Key> known_;
};

}  // namespace Rix
