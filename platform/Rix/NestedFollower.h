#pragma once

#include <Rix/CollectionFollower.h>

#include <map>
#include <memory>

namespace Rix {

/// Follows a collection of entities and keeps one child follower an element, made when the element comes and
/// withdrawn when it goes or another entity takes its place. A Child has withdraw() and holds its entity.
template <class Map, class Child>
class NestedFollower {
 public:
  using Key = typename Map::Key;
  using Value = typename Map::Value;
  using Make = std::function<std::unique_ptr<Child>(const Key&, const Value&)>;

  NestedFollower(Kelp::Ptr<const Zeb::Entity> entity, const Zeb::Attribute& attribute,
                 typename CollectionFollower<Map>::Read read, Make make)
      : make_(std::move(make)),
        follower_(
            std::move(entity), attribute, std::move(read),
            [this](const Key& key, const Value& value) { put(key, value); }, [this](const Key& key) { gone(key); }) {}

  void withdraw() { follower_.withdraw(); }

 private:
  struct Slot {
    const void* identity = nullptr;
    std::unique_ptr<Child> child;
  };

  void put(const Key& key, const Value& value) {
    const void* identity = value.get();
    if (auto at = children_.find(key); at != children_.end()) {
      if (at->second.identity == identity) return;
      gone(key);
    }
    if (auto child = make_(key, value)) children_[key] = Slot{identity, std::move(child)};
  }

  void gone(const Key& key) {
    auto at = children_.find(key);
    if (at == children_.end()) return;
    const auto child = std::move(at->second.child);
    children_.erase(at);
    child->withdraw();
  }

  Make make_;
  std::map<Key, Slot> children_;
  CollectionFollower<Map> follower_;  // last: it fills the others when it is made
};

}  // namespace Rix
