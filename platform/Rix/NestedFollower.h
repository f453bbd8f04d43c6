#pragma once

#include <Rix/CollectionFollower.h>

#include <map>
#include <memory>

namespace Rix {

/// Follows a collection of entities, and keeps a child follower for each element. A child is made when its
/// element comes, and withdrawn when the element goes or is replaced by another entity. A Child has
/// withdraw() and holds its entity. To make or withdraw a child may change the collection; the old child is
/// always withdrawn completely before the next one of that key is made. `make` may return null for an element
/// that is of no interest.
template <class Map, class Child>
class NestedFollower {
 public:
  using Key = typename Map::Key;
  using Value = typename Map::Value;
  using Read = typename CollectionFollower<Map>::Read;
  using Make = std::function<std::unique_ptr<Child>(const Key&, const Value&)>;

  NestedFollower(Kelp::Ptr<const Zeb::Entity> entity, const Zeb::Attribute& attribute, Read read, Make make)
      : read_(read),
        make_(std::move(make)),
        follower_(
            std::move(entity), attribute, std::move(read),
            [this](const Key& key, const Value&) { settle(key); }, [this](const Key& key) { settle(key); }) {}

  void withdraw() {
    withdrawn_ = true;
    follower_.withdraw();
  }

 private:
  struct Slot {
    Kelp::Ptr<const Kelp::Node> entity;  // held, so that no other entity can have its address meanwhile
    std::unique_ptr<Child> child;
    bool settling = false;
  };

  /// Makes the child of a key fit the element that is there now.
  void settle(const Key& key) {
    auto slot = children_.try_emplace(key).first;
    if (slot->second.settling) return;  // the outer call looks again
    slot->second.settling = true;
    try {
      while (!settleOnce(key, slot->second)) {
      }
    } catch (...) {
      done(slot);
      throw;
    }
    done(slot);
  }

  /// One step; true when there is nothing left to do.
  bool settleOnce(const Key& key, Slot& slot) {
    const auto at = read_().from(key);
    const bool there = !withdrawn_ && at && at.key() == key;
    const Kelp::Ptr<const Kelp::Node> now(there ? at.value().get() : nullptr);
    if (now == slot.entity) return true;
    slot.entity = nullptr;
    if (slot.child) {
      const auto old = std::move(slot.child);
      old->withdraw();
    } else {
      slot.entity = now;
      if (now) slot.child = make_(key, at.value());
    }
    return false;
  }

  void done(typename std::map<Key, Slot>::iterator slot) {
    slot->second.settling = false;
    if (!slot->second.child) children_.erase(slot);
  }

  const Read read_;
  const Make make_;
  std::map<Key, Slot> children_;
  bool withdrawn_ = false;
  CollectionFollower<Map> follower_;  // last: it fills the others when it is made
};

}  // namespace Rix
