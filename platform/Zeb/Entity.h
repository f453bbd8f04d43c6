#pragma once

#include <Kelp/Ptr.h>
#include <Kelp/String.h>
#include <MemSlab/Slab.h>
#include <Zeb/HashMap2018.h>
#include <Zeb/Publisher.h>
#include <Zeb/Reflect.h>

#include <memory>

namespace Zeb {

template <class T>
class Owned;
template <class T>
inline constexpr bool isOwned = false;
template <class T>
inline constexpr bool isOwned<Owned<T>> = true;

/// Base of everything in the state tree: a name, a parent, and attributes whose changes are published. The
/// attributes are declared with the rows of Zeb/Attributes.h. An equal write is no change and is not
/// published; nor is anything once destruction has begun (Kelp::nodeLive cleared).
class Entity : public Kelp::Node, public Reflected {
 public:
  explicit Entity(Kelp::String name = {}) : name_(std::move(name)) {}

  const Kelp::String& name() const { return name_; }
  /// The owner, which clears this when it gives the entity up. Null for an entity that nobody owns.
  Entity* parent() const { return parent_; }
  virtual void parentIs(Entity* parent) { parent_ = parent; }

  /// Where changes of this entity are announced; made on first use. Following a read-only view is allowed.
  virtual Publisher& publisher() const;
  bool hasSubscribers() const { return publisher_ && !publisher_->empty(); }

 protected:
  ~Entity() override = default;

  void publishChange(const Attribute& attribute, const void* key = nullptr) {
    if (publisher_) publishChangeRecursive(attribute, key);
  }
  /// Tells the subscribers; there has been one at least. Changes that they make are told within this call,
  /// too.
  void publishChangeRecursive(const Attribute& attribute, const void* key = nullptr);

  template <class T>
  bool zebAssign(const Attribute& attribute, T& member, T value) {
    if constexpr (std::equality_comparable<T>) {
      if (member == value) return false;
    }
    // The old value dies last: it may be what keeps the caller's argument alive.
    std::swap(member, value);
    // But it is no child any more when the handlers run; one of them may make it one again.
    if constexpr (isOwned<T>) value.disown();
    publishChange(attribute);
    return true;
  }
  template <class Map>
  bool zebPut(const Attribute& attribute, Map& map, const typename Map::Key& key, typename Map::Value value) {
    const typename Map::Key stable = key;
    if (map.put(stable, std::move(value)) == MapWrite::unchanged) return false;
    publishChange(attribute, &stable);
    return true;
  }
  template <class Map>
  bool zebErase(const Attribute& attribute, Map& map, const typename Map::Key& key) {
    const typename Map::Key stable = key;
    if (!map.erase(stable)) return false;
    publishChange(attribute, &stable);
    return true;
  }
  /// Get or create the owned entity of a key.
  template <class Map>
  auto zebChild(const Attribute& attribute, Map& map, const typename Map::Key& key) {
    using T = typename Map::Value::Type;
    if (auto* known = map.find(key)) return known->ptr();
    const typename Map::Key stable = key;
    auto made = MemSlab::make<T>(stable);
    map.put(stable, Owned<T>(this, made));
    publishChange(attribute, &stable);
    return made;
  }
  /// Takes an owned entity out and hands it back; null when the key is not there.
  template <class Map>
  auto zebEraseChild(const Attribute& attribute, Map& map, const typename Map::Key& key) {
    using T = typename Map::Value::Type;
    Kelp::Ptr<T> held;
    if (auto* known = map.find(key)) {
      held = known->ptr();
      known->disown();  // not released: an iterator that stands on the element still reads it
      zebErase(attribute, map, key);
    }
    return held;
  }

 private:
  Kelp::String name_;
  Entity* parent_ = nullptr;
  mutable std::unique_ptr<Publisher> publisher_;
};

/// An owned entity. The owner is its parent as long as the entity is held here and no other owner has taken
/// it: the last one that took it is the parent. An entity in a const Owned is const.
template <class T>
class Owned {
 public:
  using Type = T;

  Owned() = default;
  Owned(Entity* owner, Kelp::Ptr<T> entity) : owner_(owner), entity_(std::move(entity)) {
    if (entity_) entity_->parentIs(owner_);
  }
  Owned(Owned&& other) noexcept : owner_(other.owner_), entity_(std::move(other.entity_)) {}
  Owned& operator=(Owned&& other) noexcept {
    std::swap(owner_, other.owner_);
    std::swap(entity_, other.entity_);
    return *this;
  }
  ~Owned() { release(); }

  /// Clears the parent, unless another owner has taken the entity, and keeps holding the entity.
  void disown() {
    Entity* owner = std::exchange(owner_, nullptr);
    if (owner && entity_ && entity_->parent() == owner) entity_->parentIs(nullptr);
  }
  /// Clears the parent as disown() does, and hands the entity over to the caller.
  Kelp::Ptr<T> release() {
    disown();
    return std::move(entity_);
  }

  T* get() { return entity_.get(); }
  const T* get() const { return entity_.get(); }
  Kelp::Ptr<T> ptr() { return entity_; }
  Kelp::Ptr<const T> ptr() const { return entity_; }
  T* operator->() { return entity_.get(); }
  const T* operator->() const { return entity_.get(); }
  const T& operator*() const { return *entity_; }
  explicit operator bool() const { return static_cast<bool>(entity_); }
  bool operator==(const Owned& other) const { return entity_ == other.entity_; }

 private:
  Entity* owner_ = nullptr;
  Kelp::Ptr<T> entity_;
};

}  // namespace Zeb
